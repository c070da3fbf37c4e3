// SPDX-License-Identifier: Apache-2.0
//
// kzctl on terminals: what is too wide wraps, nothing is cut.

#include "support/Terminal.h"
#include "e2e/kzctl/Kzctl.h"

#include <gtest/gtest.h>

#include <sstream>

#include <unistd.h>

using namespace TestSupport;

namespace
{

constexpr char kBlue[] = "\x1b[34m"; // such as a hostile text may hold

std::string Record(const std::string& level, const std::string& text)
{
    return "2026-11-21 02:04:00 [4711:4712] " + level + " kza: " + text + "\n";
}

// A service with something of everything that kzctl shows.
class CShownService
{
public:
    CShownService()
    {
        WriteFile(m_kzctl.File("work/log/kz_agent.log"),
                  Record("ERROR", std::string(100, 'e') + " ä end") +
                      Record("INFO", "a" + std::string(kBlue) + "b") +
                      Record("WARNING", "with many words that have to go into "
                                        "lines of their own"));
        WriteFile(m_kzctl.File("Plugin-Widget-any-11.0.0-1.noarch.kzp"), "x");
        WriteFile(m_kzctl.Service().PidFile(),
                  std::to_string(DeadPid()) + "\n");
    }

    [[nodiscard]] CProcessResult Run(int columns, const Words& words) const
    {
        CTerminal terminal(static_cast<unsigned short>(columns));
        CServiceOptions options;
        options.process.inChild = [end = terminal.ProgramsEnd()]
        {
            if (dup2(end, STDOUT_FILENO) < 0)
                _exit(126);
        };
        CProcess process(m_kzctl.CommandLine(words),
                         m_kzctl.Service().Process(options));
        EXPECT_TRUE(WaitUntil(
            [&]
            {
                terminal.Text();
                return process.HasEnded();
            }));
        CProcessResult result = process.Wait();
        result.out = terminal.Text();
        return result;
    }

    [[nodiscard]] CProcessResult Run(const Words& words) const
    {
        return m_kzctl.Run(words);
    }

private:
    CKzctl m_kzctl;
};

// Without colours; with another escape left, which the tests then show.
std::string WithoutColours(std::string text)
{
    for (const char* code : {"\x1b[31m", "\x1b[32m", "\x1b[33m", "\x1b[0m"})
        for (std::size_t at = text.find(code); at != std::string::npos;
             at = text.find(code))
            text.erase(at, std::string(code).size());
    return text;
}

// Characters of UTF-8, as far as the test's texts have them.
std::size_t Width(const std::string& line)
{
    return static_cast<std::size_t>(std::count_if(
        line.begin(), line.end(),
        [](char c) { return (static_cast<unsigned char>(c) & 0xc0) != 0x80; }));
}

std::string WithoutBlanks(const std::string& text)
{
    std::string all;
    for (const char c : text)
        if (c != ' ' && c != '\n')
            all += c;
    return all;
}

TEST(KzctlTerminal, WhatIsTooWideWrapsAndNothingIsCut)
{
    const CShownService service;
    for (const Words& words : {Words{"status"}, Words{"log"}, Words{"packages"},
                               Words{"check"}, Words{"version"}})
        for (const int columns : {40, 80})
        {
            SCOPED_TRACE(words[0] + " " + std::to_string(columns));
            const CProcessResult shown = service.Run(columns, words);
            const std::string text = WithoutColours(shown.out);
            EXPECT_EQ(text.find('\x1b'), std::string::npos);
            std::istringstream lines(text);
            for (std::string line; std::getline(lines, line);)
                EXPECT_LE(Width(line), static_cast<std::size_t>(columns))
                    << line;
            const CProcessResult plain = service.Run(words);
            EXPECT_EQ(shown.status, plain.status);
            std::string expected = plain.out;
            for (std::size_t at = expected.find('\x1b');
                 at != std::string::npos; at = expected.find('\x1b'))
                expected[at] = '?';
            EXPECT_EQ(WithoutBlanks(text), WithoutBlanks(expected));
        }
}

TEST(KzctlTerminal, ColoursAreForTerminals)
{
    const CShownService service;
    EXPECT_NE(service.Run(80, {"log"}).out.find("\x1b[31m2026-11-21"),
              std::string::npos);
    EXPECT_NE(service.Run(80, {"packages"}).out.find("\x1b[31mrefused\x1b[0m"),
              std::string::npos);
    EXPECT_EQ(service.Run({"packages"}).out.find('\x1b'), std::string::npos);
    EXPECT_EQ(service.Run(80, {"packages", "--json"}).out.find('\x1b'),
              std::string::npos);
}

TEST(KzctlTerminal, ATerminalOfNoWidthCountsAs80)
{
    const CShownService service;
    EXPECT_EQ(service.Run(0, {"log"}).out, service.Run(80, {"log"}).out);
}

TEST(KzctlTerminal, HelpFits)
{
    const CShownService service;
    for (const Words& words : {Words{"help"}, Words{"help", "status"},
                               Words{"help", "packages"}, Words{"help", "set"}})
    {
        const CProcessResult help = service.Run(60, words);
        EXPECT_EQ(help.status, 0) << help.err;
        std::istringstream lines(help.out);
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(line.size(), 60U) << line;
    }
}

} // namespace
