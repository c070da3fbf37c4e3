// SPDX-License-Identifier: Apache-2.0

#include "support/Spoiled.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <utility>

#include <unistd.h>

namespace TestSupport
{

namespace
{

constexpr uid_t kAnother = 12345;

struct stat StatusOf(const std::string& path)
{
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status;
}

bool MayGiveAway()
{
    return geteuid() == 0;
}

} // namespace

CSpoiled::CSpoiled(std::string path, mode_t more)
    : m_path(std::move(path)), m_before(StatusOf(m_path))
{
    EXPECT_EQ(chmod(m_path.c_str(), (m_before.st_mode & 07777) | more), 0);
}

CSpoiled::CSpoiled(const std::string& path)
    : CSpoiled(path, MayGiveAway() ? 0 : S_IWOTH)
{
    if (MayGiveAway())
    {
        EXPECT_EQ(chown(m_path.c_str(), kAnother, m_before.st_gid), 0);
    }
}

CSpoiled::~CSpoiled()
{
    // What gives a file away takes the set-id bits.
    EXPECT_EQ(chown(m_path.c_str(), m_before.st_uid, m_before.st_gid), 0);
    EXPECT_EQ(chmod(m_path.c_str(), m_before.st_mode & 07777), 0);
}

std::string ChangeableText(const std::string& path)
{
    const struct stat status = StatusOf(path);
    char mode[8];
    std::snprintf(mode, sizeof mode, "%04o",
                  static_cast<unsigned>(status.st_mode & 07777));
    return "'" + path + "' can be changed by others (owner " +
           std::to_string(status.st_uid) + ", mode " + mode + ")";
}

} // namespace TestSupport
