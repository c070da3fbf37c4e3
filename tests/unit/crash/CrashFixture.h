// SPDX-License-Identifier: Apache-2.0
//
// Lets children die of faults and looks at what they leave behind.

#pragma once

#include "kza_core/CrashHandler.h"
#include "kza_core/Dom.h"
#include "support/DumpReader.h"
#include "support/HardwareFaults.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <wx/log.h>
#include <wx/string.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <iterator>
#include <new>
#include <set>
#include <string>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace TestSupport
{

inline constexpr char kCrashVersion[] = "12.0.0.2932";

/// A value that a test and its children share.
template <typename T>
class CShared
{
public:
    CShared()
        : m_value(new (mmap(nullptr,
                            sizeof(T),
                            PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS,
                            -1,
                            0)) T())
    {
    }
    ~CShared() { munmap(m_value, sizeof(T)); }

    CShared(const CShared&) = delete;
    CShared& operator=(const CShared&) = delete;

    T& operator*() const { return *m_value; }

private:
    T* m_value;
};

/// The threads of the calling process, those of a sanitizer included.
inline std::size_t CountThreads()
{
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

class CCrashTest : public testing::Test
{
protected:
    /// Lets a child run the work with the handler armed.
    ///
    /// \return what waitpid() tells of it.
    int Crash(const std::function<void()>& work, bool full = false)
    {
        return InChild(
            [&]
            {
                KzaCore::InitCrashHandler(wxString::FromUTF8(Dump()),
                                          wxS("tool \u00fc"), full);
                work();
            });
    }

    int InChild(const std::function<void()>& work)
    {
        StartChild(work);
        int status = -1;
        waitpid(m_child, &status, 0);
        return status;
    }

    void StartChild(const std::function<void()>& work)
    {
        fflush(nullptr);
        m_child = fork();
        if (m_child != 0)
            return;
        BecomeCrashing();
        work();
        _exit(0);
    }

    static void ExpectKilledBy(int signal, int status)
    {
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal)
            << "status " << status;
    }

    [[nodiscard]] std::string Dump() const { return m_dir.File("t.mdmp"); }
    [[nodiscard]] std::string Previous() const { return Dump() + ".1"; }
    [[nodiscard]] std::string Err() const { return m_dir.File("stderr"); }

    /// The names in the directory of the dump.
    [[nodiscard]] std::set<std::string> Files() const
    {
        std::set<std::string> names;
        for (const auto& entry :
             std::filesystem::directory_iterator(m_dir.Path()))
            names.insert(entry.path().filename());
        names.erase("stderr");
        return names;
    }

    const CTempDir m_dir;
    pid_t m_child = 0;

private:
    // Nothing on the terminal, no core file, the version as the agent sets it.
    void BecomeCrashing() const
    {
        const int err = open(Err().c_str(),
                             O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(err, STDERR_FILENO);
        const rlimit none = {0, 0};
        setrlimit(RLIMIT_CORE, &none);
        using KzaCore::CDom;
        CDom* dom = CDom::New(nullptr, nullptr, nullptr, false);
        dom->Set(KzaCore::DomKey::kVersion, kCrashVersion);
        delete wxLog::SetActiveTarget(new wxLogStderr);
    }
};

} // namespace TestSupport
