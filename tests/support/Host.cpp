// SPDX-License-Identifier: Apache-2.0

#include "support/Host.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <regex>
#include <sstream>

namespace fs = std::filesystem;

namespace TestSupport
{

namespace
{

// Whether a fallback for POSIX tells by the record what it lacks.
bool IsNoteOfFallback(const std::string& line)
{
    const char* const notes[] = {
        " is not written on this system; a crash leaves ",
        " On this system a worker whose watchdog was killed goes on ",
        " Stop requests are noticed up to ",
    };
    return std::string(KZA_PLATFORM) == "posix" &&
           std::any_of(std::begin(notes), std::end(notes),
                       [&line](const char* note)
                       { return line.find(note) != std::string::npos; });
}

void CopyInto(const fs::path& from, const fs::path& to)
{
    fs::copy(from, to, fs::copy_options::recursive);
}

} // namespace

std::string WithoutNotesOfFallbacks(const std::string& records)
{
    std::string text;
    std::size_t begin = 0;
    while (begin < records.size())
    {
        const std::size_t end = records.find('\n', begin);
        const std::size_t next =
            end == std::string::npos ? records.size() : end + 1;
        const std::string line = records.substr(begin, next - begin);
        if (!IsNoteOfFallback(line))
            text += line;
        begin = next;
    }
    return text;
}

std::string ReadLog(const std::string& path)
{
    return WithoutNotesOfFallbacks(ReadFile(path));
}

std::vector<std::string> ReadLogLines(const std::string& path)
{
    std::vector<std::string> lines;
    std::istringstream text(ReadLog(path));
    for (std::string line; std::getline(text, line);)
        lines.push_back(line);
    return lines;
}

CHost::CHost(bool withArchives)
{
    const fs::path stage = KZA_STAGE_DIR;
    CopyInto(stage / "kz_agent", Agent());
    CopyInto(stage / "lib", File("lib"));
    CopyInto(stage / "lua", File("lua"));
    if (withArchives)
        CopyInto(stage / "kza_core", File("kza_core"));
}

std::vector<std::string> CHost::Records(const std::string& application) const
{
    std::vector<std::string> records;
    std::istringstream log(Log(application));
    for (std::string line; std::getline(log, line);)
        records.push_back(RecordText(line));
    return records;
}

void CHost::AddModule(const std::string& name, const std::string& source) const
{
    WriteFile(File("lua/" + name + ".lua"), source);
}

std::vector<std::string> CHost::Words(
    const std::vector<std::string>& arguments) const
{
    std::vector<std::string> words = {Agent()};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return words;
}

CProcessResult CHost::Run(const std::vector<std::string>& arguments,
                          const CProcessOptions& options) const
{
    return TestSupport::Run(Words(arguments), options);
}

CProcessResult CHost::RunTool(const std::string& name,
                              const std::string& source,
                              const std::vector<std::string>& arguments,
                              const CProcessOptions& options) const
{
    AddModule(name, source);
    std::vector<std::string> all = {"--appname", name};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return Run(all, options);
}

std::string RecordText(const std::string& line)
{
    static const std::regex kRecord(
        R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d \[\d+:\d+\] (.*))");
    std::smatch match;
    return std::regex_match(line, match, kRecord) ? match[1].str()
                                                  : std::string();
}

} // namespace TestSupport
