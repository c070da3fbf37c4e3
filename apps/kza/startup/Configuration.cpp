// SPDX-License-Identifier: Apache-2.0

#include "startup/Configuration.h"

#include "kza_core/Dom.h"

#include <wx/config.h>
#include <wx/fileconf.h>

namespace DomKey = KzaCore::DomKey;

namespace
{

constexpr char kDefaultTrace[] = "Appl,Cmd,Srvc,kza.Heartbeat,"
                                 "kza.ListenThread,kza.PluginUtils";

void ApplySqliteConfiguration(const wxConfigBase& config, KzaCore::CDom& dom)
{
    wxString name;
    long index = 0;
    for (bool more = config.GetFirstEntry(name, index); more;
         more = config.GetNextEntry(name, index))
    {
        long value = 0;
        if (name.StartsWith(DomKey::kSqlitePrefix) && config.Read(name, &value))
            dom.SetWx(name, static_cast<long long>(value));
    }
}

} // namespace

void OpenConfiguration(const wxString& application,
                       const wxString& vendor,
                       const KzaCore::CDom& dom)
{
    // The framework keeps the new one.
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
    delete wxConfigBase::Set(new wxFileConfig(
        application, vendor, dom.GetWxString(DomKey::kPathIni),
        dom.GetWxString(DomKey::kPathIniGlobal),
        wxCONFIG_USE_LOCAL_FILE | wxCONFIG_USE_GLOBAL_FILE, wxConvAuto()));
}

void ApplyConfiguration(const wxString& application,
                        bool isDefaultApp,
                        KzaCore::CDom& dom)
{
    const wxConfigBase& config = *wxConfigBase::Get();
    const wxString components = isDefaultApp
                                    ? config.Read("Trace", kDefaultTrace)
                                    : config.Read(application + ".Trace", "");
    wxString fipsMode;
    if (config.Read("FIPSMode", &fipsMode))
        dom.SetWx(DomKey::kFipsMode, fipsMode);
    dom.SetWx(DomKey::kTraceMore, components);

    // A failed read still touches the variable: the result decides.
    long level = 0;
    const bool hasLevel = config.Read("DumpLevel", &level);
    dom.Set(DomKey::kFullDump, hasLevel && level != 0);

    ApplySqliteConfiguration(config, dom);
}
