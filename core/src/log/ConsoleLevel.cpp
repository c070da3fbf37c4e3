// SPDX-License-Identifier: Apache-2.0

#include "log/ConsoleLevel.h"

#include <string>
#include <utility>

#include <unistd.h>

namespace KzaCore
{

namespace
{

const std::pair<const char*, EConsoleLevel> kNames[] = {
    {"error", EConsoleLevel::Error},     {"warning", EConsoleLevel::Warning},
    {"message", EConsoleLevel::Message}, {"info", EConsoleLevel::Info},
    {"debug", EConsoleLevel::All},       {"true", EConsoleLevel::All},
    {"1", EConsoleLevel::All},           {"false", EConsoleLevel::Nothing},
    {"0", EConsoleLevel::Nothing},
};

EConsoleLevel LevelNamed(const std::string& text)
{
    for (const auto& [name, level] : kNames)
        if (text == name)
            return level;
    return EConsoleLevel::WarningOnTerminal;
}

} // namespace

EConsoleLevel ConsoleLevelOf(const DomValue& setting)
{
    if (const auto* const isOn = std::get_if<bool>(&setting))
        return *isOn ? EConsoleLevel::All : EConsoleLevel::Nothing;
    if (const auto* const number = std::get_if<long long>(&setting))
        return LevelNamed(std::to_string(*number));
    if (const auto* const text = std::get_if<std::string>(&setting))
        return LevelNamed(*text);
    return EConsoleLevel::WarningOnTerminal;
}

bool IsForConsole(const CRecordKind& kind, EConsoleLevel most)
{
    if (kind.console == EConsole::Leave)
        return false;
    switch (most)
    {
    case EConsoleLevel::Nothing:
        return false;
    case EConsoleLevel::Error:
        return kind.level <= ELogLevel::Error;
    case EConsoleLevel::Warning:
        return kind.level <= ELogLevel::Warning;
    case EConsoleLevel::Message:
        return kind.level <= ELogLevel::Message;
    case EConsoleLevel::Info:
        return kind.level <= ELogLevel::Verbose;
    case EConsoleLevel::All:
        return true;
    case EConsoleLevel::WarningOnTerminal:
        break;
    }
    return kind.level <= ELogLevel::Warning && isatty(STDERR_FILENO) == 1;
}

} // namespace KzaCore
