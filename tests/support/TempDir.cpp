// SPDX-License-Identifier: Apache-2.0

#include "support/TempDir.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fs = std::filesystem;

namespace TestSupport
{

CTempDir::CTempDir()
{
    std::string name = fs::canonical(fs::temp_directory_path()) / "kza-XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no temporary directory");
    m_holder = name;
    m_path = name + "/d";
    fs::create_directory(m_path);
    fs::permissions(m_path, fs::perms::owner_all);
    // Tests that run the agent as another user pass through it.
    fs::permissions(m_holder, fs::perms(0711));
}

CTempDir::~CTempDir()
{
    std::error_code ignored;
    fs::remove_all(m_holder, ignored);
}

std::string ReadFile(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    // A file of /proc whose process goes away meanwhile is at its end.
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

std::vector<std::string> ReadLines(const std::string& path)
{
    std::vector<std::string> lines;
    std::ifstream in(path, std::ios::binary);
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

void WriteFile(const std::string& path, const std::string& content)
{
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
    out.close();
    if (!out)
        throw std::runtime_error("cannot write " + path);
}

bool FileExists(const std::string& path)
{
    std::error_code ignored;
    return fs::exists(fs::symlink_status(path, ignored));
}

} // namespace TestSupport
