// SPDX-License-Identifier: Apache-2.0
//
// Arming the crash handler. All steps that can be done before a crash are done
// here, while memory, locks and the log still work.

#include "kza_core/CrashHandler.h"

#include "base/Mutex.h"
#include "base/ProcessAlive.h"
#include "crash/CrashPlan.h"
#include "crash/CrashText.h"
#include "domain/KeyObservers.h"
#include "kza_core/Dom.h"
#include "process/SignalStack.h"

#include <wx/filename.h>
#include <wx/log.h>

#include <charconv>
#include <string>
#include <string_view>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

CMutex s_versionMutex;
std::string s_version KZA_GUARDED_BY(s_versionMutex);

// Keeps the agent's version for the plans made after this call.
void RefreshVersion(const CDom* root)
{
    const std::string version = root ? root->Get(DomKey::kVersion) : "";
    const CLock lock(s_versionMutex);
    if (!version.empty())
        s_version = version;
}

constexpr std::string_view kKeys[] = {DomKey::kVersion};
const CKeyObserver s_observer(kKeys, RefreshVersion);

template <std::size_t size>
void Keep(char (&buffer)[size], const char* text)
{
    CCrashText(buffer, size).Add(text);
}

CCrashPlan MakePlan(const wxFileName& dump, const wxString& appName, bool full)
{
    CCrashPlan plan = {};
    Keep(plan.directory, dump.GetPath().fn_str());
    Keep(plan.fileName, dump.GetFullName().fn_str());
    Keep(plan.application, appName.utf8_str());
    plan.full = full;
    const CLock lock(s_versionMutex);
    Keep(plan.version, s_version.c_str());
    return plan;
}

// The directory stays open, so that a dump can be written also when the path
// has changed or the process has lost the right to follow it.
int OpenDirectory(const CCrashPlan& plan)
{
    const int directory = open(plan.directory, kOpenCrashDirectory);
    if (directory < 0 || faccessat(directory, ".", W_OK, AT_EACCESS) != 0)
        wxLogSysError("Crash dumps cannot be written into '%s'",
                      wxString(plan.directory, *wxConvFileName));
    return directory;
}

// The id of the process whose unfinished dump has this name; 0 for any other
// name.
pid_t OwnerOfUnfinished(std::string_view name, std::string_view dumpName)
{
    constexpr std::string_view kSuffix = kUnfinishedDumpSuffix;
    if (name.size() <= dumpName.size() + 1 + kSuffix.size() ||
        name.substr(0, dumpName.size()) != dumpName ||
        name[dumpName.size()] != '.' ||
        name.substr(name.size() - kSuffix.size()) != kSuffix)
        return 0;
    name.remove_prefix(dumpName.size() + 1);
    name.remove_suffix(kSuffix.size());
    pid_t owner = 0;
    const char* end = name.data() + name.size();
    const auto parsed = std::from_chars(name.data(), end, owner);
    return parsed.ec == std::errc() && parsed.ptr == end ? owner : 0;
}

// Removes the unfinished dumps of processes that were killed, or lost their
// power, before the dump was complete. Does nothing where the directory cannot
// be read.
void RemoveLeftovers(int directory, const char* dumpName)
{
    const int duplicate = fcntl(directory, F_DUPFD_CLOEXEC, 0);
    DIR* const listing = duplicate < 0 ? nullptr : fdopendir(duplicate);
    if (listing == nullptr)
    {
        if (duplicate >= 0)
            close(duplicate);
        return;
    }
    while (const dirent* const entry = readdir(listing))
    {
        const pid_t owner = OwnerOfUnfinished(entry->d_name, dumpName);
        if (owner > 0 && !IsProcessAlive(owner))
            unlinkat(directory, entry->d_name, 0);
    }
    closedir(listing);
}

// The signal stack lasts as long as the process, because the main thread may
// crash while static objects are destroyed. The pointer is volatile so that the
// compiler does not remove it: a leak checker must find the object through it.
const CSignalStack* volatile s_mainStack = nullptr;

} // namespace

void InitCrashHandler(const wxString& dumpFile,
                      const wxString& appName,
                      bool fullDump)
{
    static int directory = -1;
    if (s_mainStack == nullptr)
        s_mainStack = new CSignalStack;

    wxFileName dump(dumpFile);
    dump.MakeAbsolute();
    CCrashPlan plan = MakePlan(dump, appName, fullDump);
    plan.directoryFd = OpenDirectory(plan);
    RemoveLeftovers(plan.directoryFd, plan.fileName);
    ArmCrashDumps(plan);
    if (directory >= 0)
        close(directory);
    directory = plan.directoryFd;
}

} // namespace KzaCore
