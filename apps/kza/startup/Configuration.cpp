// SPDX-License-Identifier: Apache-2.0

#include "startup/Configuration.h"

#include "kza_core/Dom.h"
#include "kza_core/Owner.h"

#include <wx/config.h>
#include <wx/debug.h>
#include <wx/fileconf.h>
#include <wx/filename.h>
#include <wx/log.h>

#include <functional>
#include <map>
#include <memory>

namespace DomKey = KzaCore::DomKey;

namespace
{

constexpr char kDefaultTrace[] = "Appl,Cmd,Srvc,kza.Heartbeat,"
                                 "kza.ListenThread,kza.PluginUtils";

// The group of settings, and the prefix of the keys that a setting must not
// set.
constexpr char kGroup[] = "domain";
constexpr char kOwnKeys[] = "app.";

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

// Switches the framework's assertions off while the object exists. The
// framework asserts that no group comes twice in a file and that each line is
// an entry, and would show a call stack otherwise.
class CAssertionsOff
{
public:
    CAssertionsOff() : m_before(wxSetAssertHandler(nullptr)) {}
    ~CAssertionsOff() { wxSetAssertHandler(m_before); }

    CAssertionsOff(const CAssertionsOff&) = delete;
    CAssertionsOff& operator=(const CAssertionsOff&) = delete;

private:
    const wxAssertHandler_t m_before;
};

std::unique_ptr<wxFileConfig> Read(const wxString& application,
                                   const wxString& vendor,
                                   const CConfigurationFiles& files)
{
    const CAssertionsOff quiet;
    const long local = files.local.empty() ? 0 : wxCONFIG_USE_LOCAL_FILE;
    const long global = files.global.empty() ? 0 : wxCONFIG_USE_GLOBAL_FILE;
    return std::make_unique<wxFileConfig>(application, vendor, files.local,
                                          files.global, local | global,
                                          wxConvAuto());
}

// --- Owners ----------------------------------------------------------------

KzaCore::TChangeable ChangeableOf(const wxString& file)
{
    KzaCore::TChangeable changeable;
    if (!file.empty() && wxFileName::FileExists(file))
        KzaCore::JudgePath(std::string(file.fn_str()), changeable);
    return changeable;
}

bool AsksForStrictOwners(const CConfigurationFiles& files)
{
    const wxLogNull saidLater;
    const wxString value =
        Read(wxString(), wxString(), files)
            ->Read(wxString(kGroup) + "/" + DomKey::kStrictOwner, wxString());
    return KzaCore::IsSwitchedOn(std::string(value.utf8_str()));
}

// Whether files count of which others can change at least one.
bool IsStrict(const CConfigurationFiles& files,
              bool isLocalTrusted,
              const KzaCore::CDom& dom)
{
    if (!dom.Keys(DomKey::kStrictOwner).empty())
        return dom.OwnerRule() == KzaCore::EOwnerRule::Refuse;
    return AsksForStrictOwners(files) ||
           (!isLocalTrusted && AsksForStrictOwners({wxString(), files.global}));
}

// --- Group [domain] --------------------------------------------------------

void ForEachSetting(wxConfigBase& config,
                    const std::function<void(const wxString& name)>& use)
{
    const wxConfigPathChanger inGroup(&config, wxString(kGroup) + "/");
    wxString name;
    long index = 0;
    for (bool more = config.GetFirstEntry(name, index); more;
         more = config.GetNextEntry(name, index))
        use(name);
}

// The names of settings as spelled in a file, by their lower case.
std::map<wxString, wxString> NamesIn(const wxString& file)
{
    std::map<wxString, wxString> names;
    const wxLogNull saidAlready;
    ForEachSetting(*Read(wxString(), wxString(), {file, wxString()}),
                   [&names](const wxString& name)
                   { names[name.Lower()] = name; });
    return names;
}

void AddEntries(wxConfigBase& config,
                const wxString& group,
                std::vector<CConfigurationEntry>& entries)
{
    wxString name;
    long index = 0;
    for (bool more = config.GetFirstEntry(name, index); more;
         more = config.GetNextEntry(name, index))
        entries.push_back({group, name, config.Read(name, "")});
    for (bool more = config.GetFirstGroup(name, index); more;
         more = config.GetNextGroup(name, index))
    {
        const wxConfigPathChanger inGroup(&config, name + "/");
        AddEntries(config, group.empty() ? name : group + "/" + name, entries);
    }
}

// The reason why an entry sets no key; empty when it sets one.
wxString Objection(const wxString& name)
{
    const wxString lower = name.Lower();
    if (lower.StartsWith(kOwnKeys) ||
        lower == wxString(DomKey::kHeartbeatNow).Lower())
        return "the agent sets this key itself";
    if (name.empty() || name.Contains("/"))
        return "a name is not empty and has no slash";
    return wxString();
}

} // namespace

CJudgedConfiguration JudgeConfiguration(const CConfigurationFiles& files,
                                        const KzaCore::CDom& dom)
{
    using KzaCore::EOwnerRule;
    CJudgedConfiguration judged = {files, false};
    const KzaCore::TChangeable local = ChangeableOf(files.local);
    const KzaCore::TChangeable global = ChangeableOf(files.global);
    if (local.empty() && global.empty())
        return judged;
    judged.isStrict = IsStrict(files, local.empty(), dom);
    const EOwnerRule rule =
        judged.isStrict ? EOwnerRule::Refuse : EOwnerRule::Warn;
    if (!Tolerate(global, rule))
        judged.files.global.clear();
    if (!Tolerate(local, rule))
        judged.files.local.clear();
    return judged;
}

void OpenConfiguration(const wxString& application,
                       const wxString& vendor,
                       const CConfigurationFiles& files)
{
    // The framework owns the new configuration.
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
    delete wxConfigBase::Set(Read(application, vendor, files).release());
}

void ApplySettings(const CConfigurationFiles& files,
                   const std::string& stronger,
                   KzaCore::CDom& dom)
{
    wxConfigBase& config = *wxConfigBase::Get();
    if (!config.HasGroup(kGroup))
        return;
    // For an entry in both files, the framework gives the spelling of the
    // global file and the value of the local one.
    std::map<wxString, wxString> localNames = NamesIn(files.local);
    ForEachSetting(config,
                   [&](const wxString& entry)
                   {
                       const auto local = localNames.find(entry.Lower());
                       const wxString name =
                           local == localNames.end() ? entry : local->second;
                       const wxString objection = Objection(name);
                       if (!objection.empty())
                           wxLogWarning(
                               "Setting '%s' of group [domain] is ignored: %s",
                               name, objection);
                       else if (std::string(name.utf8_str()) != stronger)
                           dom.SetWx(name, config.Read(entry, ""));
                   });
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

    // A failed read may change the variable, so the result decides.
    long level = 0;
    const bool hasLevel = config.Read("DumpLevel", &level);
    dom.Set(DomKey::kFullDump, hasLevel && level != 0);

    ApplySqliteConfiguration(config, dom);
}

std::vector<CConfigurationEntry> EntriesOf(const wxString& file)
{
    const wxLogNull quiet;
    std::vector<CConfigurationEntry> entries;
    AddEntries(*Read(wxString(), wxString(), {file, wxString()}), wxString(),
               entries);
    return entries;
}
