// SPDX-License-Identifier: Apache-2.0
//
// A project for kzrun, in a directory of a test's own.

#pragma once

#include "support/Process.h"
#include "support/TempDir.h"

#include <string>
#include <vector>

namespace TestSupport
{

class CProject
{
public:
    /// A project called "demo" whose application has this source.
    explicit CProject(const std::string& module)
    {
        Write("src/demo.lua", module);
    }

    [[nodiscard]] std::string Dir() const { return m_dir.File("demo"); }

    void Write(const std::string& name, const std::string& text) const
    {
        WriteFile(m_dir.File("demo/" + name), text);
    }

    /// The words that start kzrun with the project and these.
    [[nodiscard]] std::vector<std::string> Words(
        const std::vector<std::string>& words = {}) const
    {
        std::vector<std::string> all = {KZA_STAGE_DIR "/kzrun", Dir()};
        all.insert(all.end(), words.begin(), words.end());
        return all;
    }

private:
    CTempDir m_dir;
};

/// Waits until the program has written a text to standard output.
inline bool WaitForOut(const CProcess& process, const std::string& text)
{
    return WaitUntil([&]
                     { return process.Out().find(text) != std::string::npos; });
}

/// Likewise to standard error.
inline bool WaitForErr(const CProcess& process, const std::string& text)
{
    return WaitUntil([&]
                     { return process.Err().find(text) != std::string::npos; });
}

} // namespace TestSupport
