// SPDX-License-Identifier: Apache-2.0
//
// The helper's work, from its first instruction to the dump under its final
// name.

#include "crash/linux/CrashDump.h"

#include "crash/CrashText.h"
#include "crash/linux/CrashStreams.h"
#include "crash/linux/CrashThreads.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <wx/log.h>

namespace KzaCore
{

namespace
{

int g_directory = -1;

// Gives the signals of a fault their default action and forbids core files: a
// fault of the helper must not start another dump.
void BecomeHelper()
{
    for (const int signal : kCrashSignals)
        SetDefaultAction(signal);
    const rlimit none = {0, 0};
    setrlimit(RLIMIT_CORE, &none);
}

// Closes all descriptors but the standard ones and `kept`. The process may have
// crashed because it had no descriptor left; the helper has a table of its own,
// in which there is room again afterwards.
void CloseInherited(int kept)
{
    constexpr unsigned kFirst = STDERR_FILENO + 1;
    if (kept < static_cast<int>(kFirst))
    {
        syscall(SYS_close_range, kFirst, ~0U, 0);
        return;
    }
    const auto held = static_cast<unsigned>(kept);
    if (held > kFirst)
        syscall(SYS_close_range, kFirst, held - 1, 0);
    syscall(SYS_close_range, held + 1, ~0U, 0);
}

int CreateUnfinished(const char* name)
{
    return openat(g_directory, name,
                  O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                  S_IRUSR | S_IWUSR);
}

// Opens the directory by its path when its descriptor fails: since arming, the
// directory may have been removed and made again, or the descriptor closed by
// code that closes every descriptor.
int CreateUnfinished(const CCrashPlan& plan, const char* name)
{
    g_directory = plan.directoryFd;
    const int file = CreateUnfinished(name);
    if (file >= 0)
        return file;
    const int error = errno;
    g_directory = open(plan.directory, kOpenCrashDirectory);
    if (g_directory < 0)
    {
        errno = error;
        return -1;
    }
    return CreateUnfinished(name);
}

int Publish(const CCrashPlan& plan, const char* unfinished)
{
    char previous[sizeof(plan.fileName) + sizeof(kPreviousDumpSuffix)];
    CCrashText name(previous, sizeof(previous));
    name.Add(plan.fileName).Add(kPreviousDumpSuffix);
    if (renameat(g_directory, plan.fileName, g_directory, previous) != 0 &&
        errno != ENOENT)
        return errno;
    if (renameat(g_directory, unfinished, g_directory, plan.fileName) != 0)
        return errno;
    return 0;
}

int WriteUnder(const CCrashPlan& plan, const CCrashCause& cause)
{
    const int descriptor = CreateUnfinished(plan, cause.unfinishedName);
    if (descriptor < 0)
        return errno;
    CMinidumpFile file(descriptor);
    int error = CCrashStreams(plan, cause, file).Write();
    if (error == 0)
        error = Publish(plan, cause.unfinishedName);
    if (error != 0)
        unlinkat(g_directory, cause.unfinishedName, 0);
    return error;
}

// The message is for a user who started the agent in the foreground. It cannot
// go to the log, which takes locks. The helper writes it, because the crashing
// process must not wait for a reader of its standard error.
void TellStandardError(const CCrashPlan& plan,
                       const CCrashCause& cause,
                       int error)
{
    static char buffer[PATH_MAX + 512];
    CCrashText text(buffer, sizeof(buffer));
    text.Add(plan.application).Add(": signal ");
    text.AddNumber(cause.info->si_signo);
    text.Add(error == 0 ? ", dump in " : ", no dump in ");
    text.Add(plan.directory).Add("/").Add(plan.fileName);
    if (error != 0)
        text.Add(" (error ").AddNumber(error).Add(")");
    text.Add("\n");
    if (write(STDERR_FILENO, text.Text(), text.Length()) < 0)
        return; // standard error is closed or has no reader
}

} // namespace

void WriteCrashDump(const CCrashPlan& plan, const CCrashCause& cause)
{
    BecomeHelper();
    CloseInherited(plan.directoryFd);
    const int error = WriteUnder(plan, cause);
    TellStandardError(plan, cause, error);
    NoteCrashServed(cause);
    // The other threads stay stopped until the signal has ended the process;
    // otherwise one of them could end it with another status.
    AwaitDeathOfThreads();
}

void ArmCrashDumps(const CCrashPlan& plan)
{
    if (!ArmCrashSignals(plan, WriteCrashDump))
        wxLogSysError("Crash dumps cannot be armed");
}

} // namespace KzaCore
