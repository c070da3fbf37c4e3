// SPDX-License-Identifier: Apache-2.0

#include "startup/RunningProgram.h"

#include <array>
#include <climits>

#include <unistd.h>

wxString RunningProgram()
{
    std::array<char, PATH_MAX> path{};
    const ssize_t length =
        readlink("/proc/self/exe", path.data(), path.size() - 1);
    return length > 0 ? wxString(path.data(), *wxConvFileName) : wxString();
}
