// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Execute.h"

#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <wx/string.h>

#include <chrono>
#include <csignal>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

struct COutcome
{
    bool ok = false;
    std::string output;
    unsigned long result = 99;
    std::string error;
};

COutcome Execute(const std::string& program, const std::string& arguments)
{
    wxString output = "old";
    wxString error = "old";
    COutcome outcome;
    outcome.ok =
        KzaCore::Execute(program, arguments, output, outcome.result, error);
    outcome.output = output.utf8_str();
    outcome.error = error.utf8_str();
    return outcome;
}

// An executable script.
std::string Script(const CTempDir& dir, const std::string& body)
{
    std::string path = dir.File("script");
    WriteFile(path, "#!/bin/sh\n" + body);
    chmod(path.c_str(), 0700);
    return path;
}

TEST(Execute, SuccessIsStatusZero)
{
    const CTempDir dir;
    const COutcome outcome =
        Execute(Script(dir, "echo out; echo err >&2"), "stopmod");
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.output, "out\nerr\n");
    EXPECT_EQ(outcome.result, 0U);
    EXPECT_EQ(outcome.error, "");
}

TEST(Execute, ArgumentsAreWordsAndNoShellSeesThem)
{
    const CTempDir dir;
    EXPECT_EQ(Execute(Script(dir, "for w; do echo \"<$w>\"; done"),
                      " a  $HOME\t'b c' ;d ")
                  .output,
              "<a>\n<$HOME>\n<'b>\n<c'>\n<;d>\n");
    EXPECT_EQ(Execute(Script(dir, "echo $#"), "").output, "0\n");
}

TEST(Execute, FailureTellsTheExitStatus)
{
    const CTempDir dir;
    const COutcome outcome = Execute(Script(dir, "echo bad; exit 7"), "");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.output, "bad\n");
    EXPECT_EQ(outcome.result, 7U);
    EXPECT_EQ(outcome.error, "exit status 7");
}

TEST(Execute, FailureTellsTheSignal)
{
    const CTempDir dir;
    const COutcome outcome = Execute(Script(dir, "kill -9 $$"), "");
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.result, 0U);
    EXPECT_EQ(outcome.error, "killed by signal 9");
}

TEST(Execute, FailureTellsWhatTheSystemSays)
{
    const CTempDir dir;
    EXPECT_EQ(Execute(dir.File("none"), "").error, "No such file or directory");
    WriteFile(dir.File("plain"), "#!/bin/sh\n");
    EXPECT_EQ(Execute(dir.File("plain"), "").error, "Permission denied");
    EXPECT_FALSE(Execute(dir.File("plain"), "").ok);
}

TEST(Execute, MuchOutputIsKeptWhole)
{
    const CTempDir dir;
    const COutcome outcome =
        Execute(Script(dir, "head -c 3000000 /dev/zero | tr '\\0' x"), "");
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.output, std::string(3000000, 'x'));
}

TEST(Execute, OutputThatIsNotUtf8IsKept)
{
    const CTempDir dir;
    EXPECT_EQ(Execute(Script(dir, "printf '\\303\\274'"), "").output,
              "\xC3\xBC");
    EXPECT_EQ(Execute(Script(dir, "printf '\\374'"), "").output, "\xC3\xBC");
}

// The signals of a set as /proc shows it, without those that the C library
// keeps for itself.
unsigned long SignalSet(const std::string& status, const std::string& name)
{
    const std::size_t at = status.find(name + ":");
    return at == std::string::npos
               ? ~0UL
               : strtoul(&status[at + name.size() + 1], nullptr, 16) &
                     0xFFFFFFFE7FFFFFFFUL;
}

TEST(Execute, ChildHasACleanMaskAndDefaultDispositions)
{
    std::string status;
    std::thread(
        [&]
        {
            sigset_t all;
            sigfillset(&all);
            pthread_sigmask(SIG_BLOCK, &all, nullptr);
            struct sigaction ignore
            {
            };
            struct sigaction before
            {
            };
            ignore.sa_handler = SIG_IGN;
            sigaction(SIGHUP, &ignore, &before);
            status = Execute("/bin/cat", "/proc/self/status").output;
            sigaction(SIGHUP, &before, nullptr);
        })
        .join();
    EXPECT_EQ(SignalSet(status, "SigBlk"), 0U);
    EXPECT_EQ(SignalSet(status, "SigIgn"), 0U);
    EXPECT_EQ(SignalSet(status, "SigCgt"), 0U);
}

TEST(Execute, ChildHasNoDescriptorButTheFirstThree)
{
    const int high = fcntl(STDERR_FILENO, F_DUPFD, 100);
    ASSERT_GE(high, 100);
    // 3 is the directory that the program itself reads.
    EXPECT_EQ(Execute("/bin/ls", "/proc/self/fd").output, "0\n1\n2\n3\n");
    close(high);
}

TEST(Execute, DoesNotWaitForWhatTheProgramLeavesBehind)
{
    const CTempDir dir;
    const COutcome outcome =
        Execute(Script(dir, "sleep 1000 & echo $!; exit 0"), "");
    EXPECT_TRUE(outcome.ok);
    const pid_t left = std::stoi(outcome.output);
    EXPECT_TRUE(IsRunning(left));
    kill(left, SIGKILL);
}

TEST(Execute, SignalsDoNotCutTheWaitShort)
{
    const CTempDir dir;
    struct sigaction action
    {
    };
    struct sigaction before
    {
    };
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, &before); // without SA_RESTART
    const std::string script = Script(
        dir,
        "for i in 1 2 3 4 5; do kill -USR1 $PPID; sleep 0.02; done; echo done");
    const COutcome outcome = Execute(script, "");
    sigaction(SIGUSR1, &before, nullptr);
    EXPECT_TRUE(outcome.ok) << outcome.error;
    EXPECT_EQ(outcome.output, "done\n");
}

} // namespace
