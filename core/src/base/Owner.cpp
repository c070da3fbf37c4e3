// SPDX-License-Identifier: Apache-2.0

#include "base/Owner.h"

#include <unistd.h>

#include <cstdio>

namespace KzaCore
{

bool CanOthersChange(const struct stat& status)
{
    const bool isOurs = status.st_uid == 0 || status.st_uid == geteuid();
    return !isOurs || (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
}

std::string ChangeableText(const std::string& path, const struct stat& status)
{
    char mode[8];
    snprintf(mode, sizeof mode, "%04o",
             static_cast<unsigned>(status.st_mode & 07777));
    return "'" + path + "' can be changed by others (owner " +
           std::to_string(status.st_uid) + ", mode " + mode + ")";
}

} // namespace KzaCore
