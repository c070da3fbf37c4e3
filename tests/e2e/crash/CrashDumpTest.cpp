// SPDX-License-Identifier: Apache-2.0
//
// The agent dies of a fault that a Lua module brings about, and leaves a dump.

#include "support/DumpReader.h"
#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <set>
#include <string_view>

#include <sys/mount.h>
#include <sys/stat.h>

using namespace TestSupport;
namespace fs = std::filesystem;

namespace
{

constexpr char kModules[] = KZA_BINARY_DIR "/tests/modules/?.so";
constexpr std::string_view kSanitizer = KZA_SANITIZE;

// A sanitizer that finds a fault itself ends the process in its own way unless
// told to abort it.
CProcessOptions Options()
{
    CProcessOptions options;
    options.env = {{"ASAN_OPTIONS", "abort_on_error=1"},
                   {"TSAN_OPTIONS", "abort_on_error=1"}};
    return options;
}

class CrashDump : public testing::Test
{
protected:
    // Runs a tool whose main is the given Lua code.
    CProcessResult RunTool(const std::string& code,
                           const CProcessOptions& options = Options()) const
    {
        return m_host.RunTool("tool", Source(code), {"--lua_cpath", kModules},
                              options);
    }

    static std::string Source(const std::string& code)
    {
        return "local crash = require('crash')\n"
               "local function inner()\n" +
               code +
               "\nend\n"
               "return { main = function() inner() return 0 end }\n";
    }

    [[nodiscard]] std::string Diag() const { return m_host.File("work/diag"); }
    [[nodiscard]] std::string Dump() const { return Diag() + "/tool.mdmp"; }

    [[nodiscard]] std::set<std::string> Files() const
    {
        std::set<std::string> names;
        for (const auto& entry : fs::directory_iterator(Diag()))
            names.insert(entry.path().filename());
        return names;
    }

    // What tools/symbols has to say of the dump.
    [[nodiscard]] CProcessResult Report(
        const std::string& stage = KZA_STAGE_DIR) const
    {
        return TestSupport::Run(
            {KZA_SOURCE_DIR "/tools/symbols", Dump(), stage});
    }

    const CHost m_host;
};

// The note stands in the binary file as plain text.
bool Notes(const std::string& dump, const std::string& line)
{
    return ReadFile(dump).find("\n" + line + "\n") != std::string::npos;
}

std::string ThreadPart(const std::string& report, const std::string& mark)
{
    const std::size_t at = report.find(mark);
    return at == std::string::npos
               ? std::string()
               : report.substr(at, report.find("\n\n", at) - at);
}

struct CWay
{
    const char* name;
    int signal;
    const char* note;
};

constexpr CWay kWays[] = {
    {"segv", SIGSEGV, "signal: 11 (SIGSEGV)"},
    {"bus", SIGBUS, "signal: 7 (SIGBUS)"},
    {"ill", SIGILL, "signal: 4 (SIGILL)"},
    {"fpe", SIGFPE, "signal: 8 (SIGFPE)"},
    {"trap", SIGTRAP, "signal: 5 (SIGTRAP)"},
    {"abort", SIGABRT, "signal: 6 (SIGABRT)"},
    {"terminate", SIGABRT, "signal: 6 (SIGABRT)"},
    {"overflow", SIGSEGV, "signal: 11 (SIGSEGV)"},
    {"heap", SIGABRT, "signal: 6 (SIGABRT)"},
};

// The thread sanitizer deals with a double free itself.
bool IsForeseen(const std::string& way)
{
    return kSanitizer != "thread" || way != "heap";
}

} // namespace

TEST_F(CrashDump, EachFaultOfTheScriptThreadLeavesADump)
{
    for (const CWay& way : kWays)
    {
        if (!IsForeseen(way.name))
            continue;
        SCOPED_TRACE(way.name);
        const auto result =
            RunTool(std::string("crash.now('") + way.name + "')");
        EXPECT_EQ(result.signal, way.signal);
        EXPECT_TRUE(Notes(Dump(), way.note));
        EXPECT_NE(result.err.find("tool: signal " + std::to_string(way.signal) +
                                  ", dump in " + Dump() + "\n"),
                  std::string::npos)
            << result.err;
        fs::remove(Dump());
    }
}

TEST_F(CrashDump, EachFaultOfTheMainThreadLeavesADump)
{
    for (const CWay& way : kWays)
    {
        if (!IsForeseen(way.name))
            continue;
        SCOPED_TRACE(way.name);
        const auto result =
            RunTool(std::string("crash.on_main('") + way.name + "')");
        EXPECT_EQ(result.signal, way.signal);
        EXPECT_TRUE(Notes(Dump(), way.note));
        fs::remove(Dump());
    }
}

TEST_F(CrashDump, FaultsOfAForeignThreadLeaveADumpButForAnOverflow)
{
    for (const CWay& way : kWays)
    {
        if (!IsForeseen(way.name))
            continue;
        SCOPED_TRACE(way.name);
        const auto result =
            RunTool(std::string("crash.on_thread('") + way.name + "')");
        EXPECT_EQ(result.signal, way.signal);
        // The thread has no stack for the handler once its own has overflowed;
        // the address sanitizer gives it one.
        const bool hasDump =
            std::string_view(way.name) != "overflow" ||
            kSanitizer.find("address") != std::string_view::npos;
        EXPECT_EQ(Notes(Dump(), way.note), hasDump);
        fs::remove(Dump());
    }
}

TEST_F(CrashDump, DumpIsNamedAfterTheApplicationAndPrivate)
{
    const auto result = RunTool("crash.now('segv')");
    EXPECT_EQ(result.signal, SIGSEGV);
    EXPECT_EQ(Files(), std::set<std::string>({"tool.mdmp"}));
    struct stat facts = {};
    ASSERT_EQ(stat(Dump().c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777U, 0600U);
    ASSERT_EQ(stat(Diag().c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777U, 0700U);
    EXPECT_TRUE(Notes(Dump(), "version: 12.0.0.2932"));
}

TEST_F(CrashDump, ExecutableAndLibraryHaveTheAgentsVersion)
{
    namespace Minidump = KzaCore::Minidump;
    RunTool("crash.now('segv')");
    const CDumpReader dump(Dump());
    std::set<std::string> ours;
    for (const auto& module :
         dump.List<Minidump::CModule>(Minidump::EStream::ModuleList))
        if (module.version.fileVersionHigh == 12U << 16 &&
            module.version.fileVersionLow == 2932U)
            ours.insert(fs::path(dump.String(module.nameRva)).filename());
    EXPECT_EQ(ours,
              std::set<std::string>({"kz_agent", "libkza_core.so.12.0.0"}));
}

TEST_F(CrashDump, DumpOfANormalRunIsSmall)
{
    RunTool("crash.now('segv')");
    EXPECT_LT(fs::file_size(Dump()), 2U << 20);
}

TEST_F(CrashDump, EnvironmentStaysOut)
{
    CProcessOptions options = Options();
    options.env.emplace_back("KZA_SECRET", "do-not-tell-anyone");
    RunTool("crash.now('segv')", options);
    EXPECT_TRUE(Notes(Dump(), "memory: stacks"));
    EXPECT_EQ(ReadFile(Dump()).find("do-not-tell-anyone"), std::string::npos);
}

TEST_F(CrashDump, LuaCallChainIsInTheNote)
{
    RunTool("crash.now('segv')");
    const std::string module = m_host.File("lua/tool.lua");
    EXPECT_NE(ReadFile(Dump()).find("\nlua:\n"
                                    "  [C]: in function 'now'\n"
                                    "  " +
                                    module +
                                    ":3: in function 'inner'\n"
                                    "  " +
                                    module + ":5: in function <" + module +
                                    ":5>\n"),
              std::string::npos);
}

TEST_F(CrashDump, LuaCallChainBeginsInTheRunningCoroutine)
{
    const std::string module = m_host.File("lua/tool.lua");
    const std::string chain = "\nlua:\n"
                              "  [C]: in function 'now'\n"
                              "  " +
                              module + ":3: in function <" + module +
                              ":3>\n"
                              "  [C]: in ";
    RunTool("coroutine.wrap(function() crash.now('segv') end)()");
    EXPECT_NE(ReadFile(Dump()).find(chain), std::string::npos);
    RunTool("coroutine.resume(coroutine.create("
            "function() crash.now('segv') end))");
    EXPECT_NE(ReadFile(Dump()).find(chain), std::string::npos);
}

TEST_F(CrashDump, ReportNamesTheFunctionsOfTheCrashedThread)
{
    RunTool("crash.now('segv')");
    const CProcessResult result = Report();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out.rfind("application: tool\nversion: 12.0.0.2932\n", 0),
              0U)
        << result.out;
    EXPECT_NE(result.out.find("\naddress: 0x1230\n"), std::string::npos);
    const std::string thread =
        ThreadPart(result.out, " crashed: signal SIGSEGV");
    for (const char* name :
         {"  0 crash.so ", "TestSupport::FaultSegv()",
          "HardwareFaults.h:", "KzaCore::CLuaInterpreter::RunScript(",
          "LuaInterpreter.cpp:", "CAgentApp::RunChunk(", "Chunks.cpp:",
          "CScriptThread::OnRun()", "KzaCore::CRunnable::Entry()"})
        EXPECT_NE(thread.find(name), std::string::npos) << name << "\n"
                                                        << thread;
    EXPECT_NE(result.out.find("CAgentApp::OnRun()"), std::string::npos)
        << result.out;
    for (const char* module : {"kz_agent\n", "libkza_core.so.12.0.0\n",
                               "libc.so.6\n", "linux-gate.so\n", "crash.so\n"})
        EXPECT_NE(result.out.find(module), std::string::npos) << module;
    EXPECT_EQ(result.out.find("No debug files"), std::string::npos);
}

TEST_F(CrashDump, ReportSaysWhenDebugFilesAreMissing)
{
    RunTool("crash.now('segv')");
    const CTempDir empty;
    const CProcessResult result = Report(empty.Path());
    EXPECT_EQ(result.status, 0) << result.err;
    const bool isSaid =
        result.out.find("\nNo debug files of the build that crashed for "
                        "kz_agent, libkza_core.so.12.0.0 in " +
                        empty.Path() + "/debug\n") != std::string::npos;
    // Only the release build keeps its names in files of their own.
    EXPECT_EQ(isSaid, fs::exists(KZA_STAGE_DIR "/debug")) << result.out;
}

TEST_F(CrashDump, ReportOfWhatIsNoDumpFails)
{
    WriteFile(Dump(), "MDMP and nothing more");
    const CProcessResult result = Report();
    EXPECT_EQ(result.status, 1);
    EXPECT_NE(result.err.find("is no dump that lldb opens"), std::string::npos)
        << result.err;
    EXPECT_EQ(TestSupport::Run({KZA_SOURCE_DIR "/tools/symbols"}).status, 2);
}

TEST_F(CrashDump, OverflowShowsTheFunctionThatOverflowed)
{
    RunTool("crash.now('overflow')");
    const std::string thread =
        ThreadPart(Report().out, " crashed: signal SIGSEGV");
    EXPECT_NE(thread.find("TestSupport::FaultStackOverflow(int)"),
              std::string::npos)
        << thread.substr(0, 2000);
}

TEST_F(CrashDump, EveryOneOfFiftyThreadsIsThere)
{
    RunTool("crash.threads(50) crash.now('segv')");
    const CProcessResult result = Report();
    EXPECT_EQ(result.status, 0);
    int threads = 0;
    for (std::size_t at = result.out.find("\nThread "); at != std::string::npos;
         at = result.out.find("\nThread ", at + 1))
        threads++;
    // Besides them: main thread and script thread, and what a sanitizer has.
    if (kSanitizer.empty())
        EXPECT_EQ(threads, 52);
    else
        EXPECT_GE(threads, 52);
}

TEST_F(CrashDump, TheOneBeforeIsKept)
{
    RunTool("crash.now('segv')");
    RunTool("crash.now('ill')");
    EXPECT_TRUE(Notes(Dump(), "signal: 4 (SIGILL)"));
    EXPECT_TRUE(Notes(Dump() + ".1", "signal: 11 (SIGSEGV)"));
    RunTool("crash.now('fpe')");
    EXPECT_TRUE(Notes(Dump() + ".1", "signal: 4 (SIGILL)"));
    EXPECT_EQ(Files(), std::set<std::string>({"tool.mdmp", "tool.mdmp.1"}));
}

TEST_F(CrashDump, FullDumpIsMadeOnRequest)
{
    WriteFile(m_host.File("work/kz_agent.ini"), "DumpLevel=1\n");
    // The thread sanitizer multiplies memory and time.
    const unsigned megabytes = kSanitizer == "thread" ? 50 : 500;
    RunTool("crash.fill(" + std::to_string(megabytes) + ") crash.now('segv')");
    EXPECT_TRUE(Notes(Dump(), "memory: full"));
    EXPECT_GT(fs::file_size(Dump()), megabytes << 20);
    const CProcessResult result = Report();
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_NE(result.out.find("CScriptThread::OnRun()"), std::string::npos)
        << result.out;
}

TEST_F(CrashDump, FullDiskLeavesNothingAndKeepsTheOneBefore)
{
    fs::create_directories(Diag());
    fs::permissions(Diag(), fs::perms::owner_all);
    CProcessOptions options = Options();
    options.inChild = [this]
    {
        EnterMountNamespace();
        MountTmpfs(Diag(), "20k");
        WriteFile(Dump(), "the one before");
    };
    m_host.AddModule("tool", Source("crash.now('segv')"));
    // The shell sees the agent's mounts, the test does not.
    constexpr char kShell[] =
        "\"$0\" --appname tool --lua_cpath \"$1\"; echo status $?; "
        "ls \"$2\"; cat \"$2\"/tool.mdmp";
    const CProcessResult result = TestSupport::Run(
        {"/bin/sh", "-c", kShell, m_host.Agent(), kModules, Diag()}, options);
    EXPECT_EQ(result.out, "status 139\ntool.mdmp\nthe one before")
        << result.err;
    EXPECT_NE(result.err.find("no dump in " + Dump() + " (error 28)"),
              std::string::npos)
        << result.err;
}

TEST_F(CrashDump, DirectoryThatCannotBeWrittenIsLogged)
{
    fs::create_directories(Diag());
    fs::permissions(Diag(), fs::perms::owner_all);
    CProcessOptions options = Options();
    options.inChild = [this]
    {
        EnterMountNamespace();
        MountTmpfs(Diag(), "1m");
        if (chmod(Diag().c_str(), 0700) != 0 ||
            mount(nullptr, Diag().c_str(), nullptr, MS_REMOUNT | MS_RDONLY,
                  nullptr) != 0)
            abort();
    };
    const auto result = RunTool("crash.now('segv')", options);
    EXPECT_EQ(result.signal, SIGSEGV);
    EXPECT_NE(result.err.find("no dump in " + Dump() + " (error 30)"),
              std::string::npos)
        << result.err;
    EXPECT_NE(m_host.Log("tool").find("Crash dumps cannot be written into '" +
                                      Diag() + "' (error 30: "),
              std::string::npos)
        << m_host.Log("tool");
}

TEST_F(CrashDump, HelperThatIsHeldUpDoesNotKeepTheProcess)
{
    WriteFile(m_host.File("work/kz_agent.ini"), "DumpLevel=1\n");
    m_host.AddModule("tool", Source("crash.fill(300) crash.now('segv')"));
    CProcess agent(m_host.Words({"--appname", "tool", "--lua_cpath", kModules}),
                   Options());
    const std::string tasks = "/proc/" + std::to_string(agent.Pid()) + "/task";
    pid_t helper = 0;
    const auto findHelper = [&]
    {
        std::error_code ignored;
        for (const auto& task : fs::directory_iterator(tasks, ignored))
            if (helper == 0)
                helper = PidIn(ReadFile(task.path().string() + "/children"));
        return helper != 0;
    };
    ASSERT_TRUE(WaitUntil(findHelper));
    ASSERT_EQ(kill(helper, SIGSTOP), 0);
    EXPECT_EQ(agent.Wait().signal, SIGSEGV);
    EXPECT_TRUE(WaitUntil([helper] { return !IsRunning(helper); }));
    EXPECT_EQ(Files(), std::set<std::string>());
}
