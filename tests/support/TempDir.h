// SPDX-License-Identifier: Apache-2.0
//
// A directory of a test's own, and small helpers for files.

#pragma once

#include <string>
#include <vector>

namespace TestSupport
{

/// An empty directory, removed with all it holds when the object goes. It lies
/// in one that only its owner can write, as an installation does.
class CTempDir
{
public:
    CTempDir();
    ~CTempDir();

    CTempDir(const CTempDir&) = delete;
    CTempDir& operator=(const CTempDir&) = delete;

    /// Absolute, without links in it and without a trailing separator.
    [[nodiscard]] const std::string& Path() const { return m_path; }

    /// The path of a name in it.
    [[nodiscard]] std::string File(const std::string& name) const
    {
        return m_path + "/" + name;
    }

private:
    std::string m_holder;
    std::string m_path;
};

/// The whole file, empty when it cannot be read.
std::string ReadFile(const std::string& path);

using Lines = std::vector<std::string>;

/// The file's lines without their ends.
Lines ReadLines(const std::string& path);

/// Replaces or makes the file, with the directories above it; throws when it
/// cannot.
void WriteFile(const std::string& path, const std::string& content);

bool FileExists(const std::string& path);

} // namespace TestSupport
