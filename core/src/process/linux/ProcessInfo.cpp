// SPDX-License-Identifier: Apache-2.0
//
// Facts about processes from the files of /proc; proc(5) describes them.

#include "process/ProcessInfo.h"

#include <array>
#include <charconv>
#include <climits>
#include <fstream>
#include <memory>
#include <sstream>
#include <utility>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

std::string PathOf(pid_t pid, const char* file)
{
    return "/proc/" + std::to_string(pid) + "/" + file;
}

std::string ReadAll(const std::string& path)
{
    std::ifstream file(path);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::string LinkTarget(const std::string& path)
{
    std::array<char, PATH_MAX> target;
    const ssize_t size = readlink(path.c_str(), target.data(), target.size());
    return size < 0 ? std::string()
                    : std::string(target.data(), static_cast<size_t>(size));
}

// The identity of the file that a path leads to; unset when it leads to none,
// or the system does not give it.
using FileId = std::pair<dev_t, ino_t>;

std::optional<FileId> IdOf(const std::string& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0)
        return std::nullopt;
    return FileId(status.st_dev, status.st_ino);
}

// The time of the system's boot, in seconds since the epoch.
double BootTime()
{
    const std::string stat = ReadAll("/proc/stat");
    const std::size_t at = stat.find("\nbtime ");
    return at == std::string::npos ? 0 : std::stod(stat.substr(at + 7));
}

// The fields of `stat` that follow the program's name; the first is number 3.
class CStatFields
{
public:
    explicit CStatFields(const std::string& fields)
    {
        std::istringstream in(fields);
        for (std::string field; in >> field;)
            m_fields.push_back(field);
    }

    [[nodiscard]] char State() const
    {
        return m_fields.empty() ? '?' : m_fields.front().front();
    }

    // Field `number` as proc(5) counts; 0 when it is not there.
    [[nodiscard]] long long Number(std::size_t number) const
    {
        long long value = 0;
        if (number - 3 < m_fields.size())
        {
            const std::string& text = m_fields[number - 3];
            std::from_chars(text.data(), text.data() + text.size(), value);
        }
        return value;
    }

private:
    std::vector<std::string> m_fields;
};

template <typename TPredicate>
std::vector<pid_t> ProcessesThat(TPredicate holds)
{
    std::vector<pid_t> found;
    const std::unique_ptr<DIR, int (*)(DIR*)> all(opendir("/proc"), closedir);
    while (const dirent* entry = all ? readdir(all.get()) : nullptr)
    {
        const std::string name = entry->d_name;
        pid_t pid = 0;
        std::from_chars(name.data(), name.data() + name.size(), pid);
        if (pid > 0 && holds(pid))
            found.push_back(pid);
    }
    return found;
}

} // namespace

std::optional<CProcessInfo> InfoOfProcess(pid_t pid)
{
    // The program's name may contain any character, parentheses and blanks too.
    const std::string stat = ReadAll(PathOf(pid, "stat"));
    const std::size_t begin = stat.find('(');
    const std::size_t end = stat.rfind(')');
    if (begin == std::string::npos || end == std::string::npos)
        return std::nullopt;

    const CStatFields fields(stat.substr(end + 1));
    const auto ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
    CProcessInfo info;
    info.name = stat.substr(begin + 1, end - begin - 1);
    info.executable = LinkTarget(PathOf(pid, "exe"));
    info.state = fields.State();
    info.parent = static_cast<pid_t>(fields.Number(4));
    info.cpuSeconds =
        static_cast<double>(fields.Number(14) + fields.Number(15)) / ticks;
    info.started = BootTime() + static_cast<double>(fields.Number(22)) / ticks;
    info.residentKiB = fields.Number(24) * (sysconf(_SC_PAGESIZE) / 1024);
    info.threads = static_cast<int>(fields.Number(20));
    info.directory = LinkTarget(PathOf(pid, "cwd"));
    std::istringstream words(ReadAll(PathOf(pid, "cmdline")));
    for (std::string word; std::getline(words, word, '\0');)
        info.words.push_back(word);
    return info;
}

std::vector<pid_t> ChildrenOfProcess(pid_t parent)
{
    return ProcessesThat(
        [parent](pid_t pid)
        {
            const std::string stat = ReadAll(PathOf(pid, "stat"));
            const std::size_t end = stat.rfind(')');
            return end != std::string::npos &&
                   CStatFields(stat.substr(end + 1)).Number(4) == parent;
        });
}

std::vector<pid_t> ProcessesOf(const std::string& executable,
                               const std::string& directory)
{
    const std::optional<FileId> program = IdOf(executable);
    const std::optional<FileId> place = IdOf(directory);
    return ProcessesThat(
        [&](pid_t pid)
        {
            const std::string exe = PathOf(pid, "exe");
            const bool runsIt = (program && IdOf(exe) == program) ||
                                LinkTarget(exe) == executable + " (deleted)";
            return runsIt && (directory.empty() ||
                              (place && IdOf(PathOf(pid, "cwd")) == place));
        });
}

} // namespace KzaCore
