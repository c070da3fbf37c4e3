// SPDX-License-Identifier: Apache-2.0
//
// The settings of the process's log, which follow keys of the root domain:
// `app.name`, `app.path.work`, `log.maxsize`, `log.keep` and `log.console`.
//
// Numbers and a switch may also be given as text. A value that makes no sense
// counts as absent.

#include "domain/KeyObservers.h"
#include "kza_core/Dom.h"
#include "log/ConsoleLevel.h"
#include "log/ProcessLog.h"

#include <charconv>

namespace KzaCore
{

namespace
{

bool ToNumber(const std::string& text, long long& number)
{
    const char* end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

// Reads a number or a text, because a setting given with --domain_var is text.
void ReadNumber(const CDom& dom, const char* key, std::int64_t& value)
{
    long long number = -1;
    if ((dom.Get(key, number) || ToNumber(dom.Get(key), number)) && number >= 0)
        value = number;
}

CLogSettings ReadSettings(const CDom& dom)
{
    CLogSettings settings;
    settings.workDir = dom.Get(DomKey::kPathWork);
    settings.appName = dom.Get(DomKey::kName);
    ReadNumber(dom, DomKey::kLogMaxSize, settings.maxSize);
    ReadNumber(dom, DomKey::kLogKeep, settings.oldFiles);
    settings.console = ConsoleLevelOf(dom.Value(DomKey::kLogConsole));
    return settings;
}

void RefreshLog(const CDom* root)
{
    ProcessLog().Configure(root ? ReadSettings(*root) : CLogSettings());
}

constexpr std::string_view kKeys[] = {DomKey::kName, DomKey::kPathWork,
                                      DomKey::kLogMaxSize, DomKey::kLogKeep,
                                      DomKey::kLogConsole};
const CKeyObserver s_observer(kKeys, RefreshLog);

} // namespace

} // namespace KzaCore
