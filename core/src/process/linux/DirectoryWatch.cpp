// SPDX-License-Identifier: Apache-2.0
//
// Watching directories by inotify(7).

#include "process/DirectoryWatch.h"

#include <array>
#include <cstdint>

#include <sys/inotify.h>
#include <unistd.h>

namespace KzaCore
{

int OpenDirectoryWatch()
{
    return inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
}

bool WatchDirectory(int watch, const char* directory)
{
    constexpr std::uint32_t kChanges = IN_ATTRIB | IN_CLOSE_WRITE | IN_CREATE |
                                       IN_DELETE | IN_MODIFY | IN_MOVE |
                                       IN_ONLYDIR;
    return inotify_add_watch(watch, directory, kChanges) != -1;
}

void ForgetChanges(int watch)
{
    std::array<char, 4096> events;
    while (read(watch, events.data(), events.size()) > 0)
    {
    }
}

} // namespace KzaCore
