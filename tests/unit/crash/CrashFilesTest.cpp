// SPDX-License-Identifier: Apache-2.0
//
// The dump as a file among others.

#include "support/Process.h"
#include "unit/crash/CrashFixture.h"

#include <sys/stat.h>

using namespace KzaCore;
using namespace TestSupport;

namespace
{

class CrashFiles : public CCrashTest
{
};

} // namespace

TEST_F(CrashFiles, DumpIsForItsOwnerAlone)
{
    umask(0);
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    struct stat facts = {};
    ASSERT_EQ(stat(Dump().c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 07777U, 0600U);
}

TEST_F(CrashFiles, DumpBeforeIsKept)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const std::string first = std::to_string(m_child);
    EXPECT_EQ(Files(), std::set<std::string>({"t.mdmp"}));
    ExpectKilledBy(SIGILL, Crash(FaultIll));
    const std::string second = std::to_string(m_child);
    EXPECT_EQ(CDumpReader(Dump()).NoteValue("process"), second);
    EXPECT_EQ(CDumpReader(Previous()).NoteValue("process"), first);
    ExpectKilledBy(SIGFPE, Crash(FaultFpe));
    EXPECT_EQ(CDumpReader(Previous()).NoteValue("process"), second);
    EXPECT_EQ(Files(), std::set<std::string>({"t.mdmp", "t.mdmp.1"}));
}

TEST_F(CrashFiles, ProcessWithoutAFreeDescriptorLeavesADump)
{
    const int status = Crash(
        []
        {
            while (open("/dev/null", O_RDONLY | O_CLOEXEC) >= 0)
                ;
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    EXPECT_EQ(Files(), std::set<std::string>({"t.mdmp"}));
}

TEST_F(CrashFiles, DirectoryMadeAnewAfterArmingIsFound)
{
    const std::string directory = m_dir.File("diag");
    std::filesystem::create_directory(directory);
    const int status = InChild(
        [&]
        {
            InitCrashHandler(wxString::FromUTF8(directory + "/t.mdmp"),
                             wxS("tool"), false);
            std::filesystem::remove(directory);
            std::filesystem::create_directory(directory);
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    EXPECT_TRUE(FileExists(directory + "/t.mdmp"));
}

TEST_F(CrashFiles, DirectoryThatIsALinkIsRefused)
{
    const std::string target = m_dir.File("target");
    const std::string directory = m_dir.File("diag");
    std::filesystem::create_directory(target);
    std::filesystem::create_directory_symlink(target, directory);
    const int status = InChild(
        [&]
        {
            InitCrashHandler(wxString::FromUTF8(directory + "/t.mdmp"),
                             wxS("tool"), false);
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    EXPECT_TRUE(std::filesystem::is_empty(target));
    const std::string err = ReadFile(Err());
    EXPECT_NE(err.find("Crash dumps cannot be written into '" + directory +
                       "' (error 20: "),
              std::string::npos)
        << err;
    EXPECT_NE(err.find("no dump in " + directory + "/t.mdmp (error "),
              std::string::npos)
        << err;
}

TEST_F(CrashFiles, LinkMadeInThePlaceOfTheDirectoryIsRefused)
{
    const std::string target = m_dir.File("target");
    const std::string directory = m_dir.File("diag");
    std::filesystem::create_directory(target);
    std::filesystem::create_directory(directory);
    const int status = InChild(
        [&]
        {
            InitCrashHandler(wxString::FromUTF8(directory + "/t.mdmp"),
                             wxS("tool"), false);
            std::filesystem::remove(directory);
            std::filesystem::create_directory_symlink(target, directory);
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    EXPECT_TRUE(std::filesystem::is_empty(target));
}

TEST_F(CrashFiles, DirectoryOutOfReachAfterArmingIsFound)
{
    const std::string root = m_dir.File("root");
    std::filesystem::create_directory(root);
    const int status = Crash(
        [&root]
        {
            EnterMountNamespace(); // gives the right to the next step
            if (chroot(root.c_str()) != 0 || chdir("/") != 0)
                _exit(1);
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    EXPECT_TRUE(FileExists(Dump()));
}

TEST_F(CrashFiles, FullDiskLeavesNothingAndKeepsTheDumpBefore)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    const std::string first = std::to_string(m_child);
    const int status = Crash(
        []
        {
            // To the writer the same as a full disk: no more bytes.
            const rlimit small = {10000, 10000};
            setrlimit(RLIMIT_FSIZE, &small);
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    EXPECT_EQ(Files(), std::set<std::string>({"t.mdmp"}));
    EXPECT_EQ(CDumpReader(Dump()).NoteValue("process"), first);
    EXPECT_NE(ReadFile(Err()).find(": signal 11, no dump in " + Dump() +
                                   " (error 27)\n"),
              std::string::npos);
}

TEST_F(CrashFiles, StandardErrorNamesTheDump)
{
    ExpectKilledBy(SIGSEGV, Crash(FaultSegv));
    EXPECT_EQ(ReadFile(Err()),
              "tool \u00fc: signal 11, dump in " + Dump() + "\n");
}

TEST_F(CrashFiles, DirectoryThatCannotBeWrittenIsLoggedAtArming)
{
    const int status = InChild(
        []
        {
            InitCrashHandler(wxS("/proc/no-such/t.mdmp"), wxS("tool"), false);
            FaultSegv();
        });
    ExpectKilledBy(SIGSEGV, status);
    const std::string err = ReadFile(Err());
    EXPECT_NE(err.find("Crash dumps cannot be written into "
                       "'/proc/no-such' (error 2: "),
              std::string::npos)
        << err;
    EXPECT_NE(err.find("no dump in /proc/no-such/t.mdmp (error "),
              std::string::npos)
        << err;
}

TEST_F(CrashFiles, LeftoversOfDeadProcessesGoAtArming)
{
    const int status = InChild([] {});
    ASSERT_EQ(status, 0);
    const std::string dead = "t.mdmp." + std::to_string(m_child) + ".tmp";
    const std::string alive = "t.mdmp." + std::to_string(getpid()) + ".tmp";
    const std::string others[] = {alive, "t.mdmp.1", "t.mdmp.x.tmp",
                                  "t.mdmp.1x.tmp", "u.mdmp.1.tmp"};
    WriteFile(m_dir.File(dead), "x");
    for (const std::string& name : others)
        WriteFile(m_dir.File(name), "x");
    Crash([] {});
    EXPECT_EQ(Files(),
              std::set<std::string>(std::begin(others), std::end(others)));
}
