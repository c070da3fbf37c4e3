// SPDX-License-Identifier: Apache-2.0
//
// What the setting `log.console` asks for.

#include "log/ConsoleLevel.h"

#include "support/Terminal.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

using namespace KzaCore;
using namespace TestSupport;

namespace
{

// Stands in the place of standard error while it lives.
class CStandardError
{
public:
    explicit CStandardError(int fd)
        : m_before(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3))
    {
        dup2(fd, STDERR_FILENO);
    }
    ~CStandardError()
    {
        dup2(m_before, STDERR_FILENO);
        close(m_before);
    }
    CStandardError(const CStandardError&) = delete;
    CStandardError& operator=(const CStandardError&) = delete;

private:
    int m_before;
};

// The levels of which records are repeated, by their first letters.
std::string Repeated(EConsoleLevel most)
{
    std::string letters;
    for (const auto& [level, letter] : {std::pair{ELogLevel::Error, 'E'},
                                        {ELogLevel::Warning, 'W'},
                                        {ELogLevel::Message, 'M'},
                                        {ELogLevel::Info, 'I'},
                                        {ELogLevel::Verbose, 'V'},
                                        {ELogLevel::Debug, 'D'},
                                        {ELogLevel::Trace, 'T'}})
    {
        EXPECT_FALSE(IsForConsole({level, EConsole::Leave}, most));
        if (IsForConsole({level, EConsole::Repeat}, most))
            letters += letter;
    }
    return letters;
}

} // namespace

TEST(ConsoleLevel, IsALevelOrASwitch)
{
    const std::pair<DomValue, const char*> cases[] = {
        {std::string("error"), "E"},
        {std::string("warning"), "EW"},
        {std::string("message"), "EWM"},
        {std::string("info"), "EWMIV"},
        {std::string("debug"), "EWMIVDT"},
        {true, "EWMIVDT"},
        {std::string("true"), "EWMIVDT"},
        {1LL, "EWMIVDT"},
        {std::string("1"), "EWMIVDT"},
        {false, ""},
        {std::string("false"), ""},
        {0LL, ""},
        {std::string("0"), ""},
    };
    for (const auto& [setting, letters] : cases)
        EXPECT_EQ(Repeated(ConsoleLevelOf(setting)), letters);
}

TEST(ConsoleLevel, WhatMakesNoSenseIsAsIfUnset)
{
    const DomValue cases[] = {{},
                              std::string(),
                              std::string("Warning"),
                              std::string("verbose"),
                              std::string("trace"),
                              std::string("error "),
                              std::string("no"),
                              2LL,
                              -1LL};
    for (const DomValue& setting : cases)
        EXPECT_EQ(ConsoleLevelOf(setting), EConsoleLevel::WarningOnTerminal);
}

TEST(ConsoleLevel, UnsetItShowsWarningsOnATerminalAlone)
{
    {
        const CTerminal terminal;
        const CStandardError here(terminal.ProgramsEnd());
        EXPECT_EQ(Repeated(EConsoleLevel::WarningOnTerminal), "EW");
    }
    const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
    {
        const CStandardError here(null);
        EXPECT_EQ(Repeated(EConsoleLevel::WarningOnTerminal), "");
        close(STDERR_FILENO);
        EXPECT_EQ(Repeated(EConsoleLevel::WarningOnTerminal), "");
    }
    close(null);
}
