// SPDX-License-Identifier: Apache-2.0

#include "e2e/packages/Packages.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iterator>
#include <regex>
#include <set>

namespace fs = std::filesystem;

namespace TestSupport
{

namespace
{

constexpr char kReport[] = R"(
return {
  init = function()
    for _, event in ipairs(dom:AgentEvents()) do
      local second = math.floor(event.time_ms / 1000)
      if event.time_ms >= tonumber(arg[1]) and event.time == second then
        print(event.number .. " " .. event.severity .. " " .. event.text)
      end
    end
    print(tostring(dom:Get("kza.HeartbeatNow")))
    for line in io.popen(arg[2]):lines() do print(line) end
  end
}
)";

// The directory's path shown as "@".
std::string Shorten(std::string text, const std::string& directory)
{
    for (std::size_t at = 0;
         (at = text.find(directory, at)) != std::string::npos;)
        text.replace(at, directory.size(), "@");
    return text;
}

std::vector<std::string> SplitLines(const std::string& text)
{
    std::vector<std::string> lines;
    std::size_t at = 0;
    for (std::size_t end = 0; (end = text.find('\n', at)) != std::string::npos;
         at = end + 1)
        lines.push_back(text.substr(at, end - at));
    return lines;
}

} // namespace

std::string Event(const std::string& outcome, const std::string& package)
{
    return Event(outcome, package, package.substr(0, package.rfind('.')));
}

std::string Event(const std::string& outcome,
                  const std::string& package,
                  const std::string& plugin)
{
    return outcome + " " + plugin + "|" +
           package.substr(0, package.rfind('.')) + "|@/" + package;
}

std::string Refusal(const std::string& package, const std::string& reason)
{
    return "WARNING Unable to unpack '@/" + package + "': " + reason;
}

CPackageHost::CPackageHost()
{
    m_host.AddModule("report", kReport);
}

void CPackageHost::Add(const std::string& name,
                       const std::vector<CZipInput>& files) const
{
    Add(name, MakeZip(files));
}

void CPackageHost::Add(const std::string& name, const std::string& bytes) const
{
    WriteFile(File(name), bytes);
}

std::vector<std::string> CPackageHost::Words(const std::string& probe) const
{
    using namespace std::chrono;
    const auto now = system_clock::now().time_since_epoch();
    std::vector<std::string> words = {"--appname", "report",
                                      "--install_plugins", "--trace", "Appl"};
    words.insert(words.end(), m_options.begin(), m_options.end());
    words.insert(words.end(),
                 {"--",
                  std::to_string(duration_cast<milliseconds>(now).count()),
                  probe});
    return m_host.Words(words);
}

void CPackageHost::Run(const CProcessOptions& options, const std::string& probe)
{
    const CProcessResult result = TestSupport::Run(Words(probe), options);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.err, "");
    m_events.clear();
    m_probe.clear();
    m_heartbeat.clear();
    for (const std::string& line : SplitLines(Shorten(result.out, Bin())))
    {
        if (!m_heartbeat.empty())
            m_probe.push_back(line);
        else if (line == "true" || line == "nil")
            m_heartbeat = line;
        else
            m_events.push_back(line);
    }
    ReadLog();
}

void CPackageHost::ReadLog()
{
    static const std::regex kTrace(R"(TRACE Appl: Packages\.cpp:\d+ \w+ (.*))");
    static const std::regex kOther(R"((ERROR|WARNING) [^:]*: (.*))");
    const auto lines = ReadLogLines(File("work/log/report.log"));
    m_log.clear();
    for (std::size_t i = m_logLines; i < lines.size(); ++i)
    {
        const std::string record = Shorten(RecordText(lines[i]), Bin());
        std::smatch match;
        if (std::regex_match(record, match, kTrace))
            m_log.push_back("TRACE " + match[1].str());
        else if (std::regex_match(record, match, kOther))
            m_log.push_back(match[1].str() + " " + match[2].str());
    }
    m_logLines = lines.size();
}

std::vector<std::string> CPackageHost::Problems() const
{
    std::vector<std::string> problems;
    std::copy_if(m_log.begin(), m_log.end(), std::back_inserter(problems),
                 [](const std::string& record)
                 { return record.rfind("TRACE", 0) != 0; });
    return problems;
}

std::vector<std::string> CPackageHost::Tree() const
{
    static const std::set<std::string> kOwn = {"kz_agent", "lib", "lua",
                                               "work"};
    std::vector<std::string> names;
    for (auto item = fs::recursive_directory_iterator(Bin());
         item != fs::recursive_directory_iterator(); ++item)
    {
        const bool isDirectory = fs::is_directory(item->symlink_status());
        if (item.depth() == 0 &&
            kOwn.count(item->path().filename().string()) > 0)
        {
            if (isDirectory)
                item.disable_recursion_pending();
            continue;
        }
        names.push_back(item->path().lexically_relative(Bin()).string() +
                        (isDirectory ? "/" : ""));
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace TestSupport
