// SPDX-License-Identifier: Apache-2.0
//
// Files and directories that others can change.

#pragma once

#include <string>

#include <sys/stat.h>

namespace TestSupport
{

/// While it lives, others can change a file or directory.
class CSpoiled
{
public:
    /// \param more  Bits that its mode gets besides.
    CSpoiled(std::string path, mode_t more);

    /// Makes it another user's, where the test may; else anyone can write it.
    explicit CSpoiled(const std::string& path);
    ~CSpoiled();

    CSpoiled(const CSpoiled&) = delete;
    CSpoiled& operator=(const CSpoiled&) = delete;

private:
    const std::string m_path;
    struct stat m_before = {};
};

/// What the agent says of a path, with owner and mode as they are now.
std::string ChangeableText(const std::string& path);

} // namespace TestSupport
