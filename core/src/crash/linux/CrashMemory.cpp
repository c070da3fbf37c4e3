// SPDX-License-Identifier: Apache-2.0
//
// Reading memory by a system call, which returns an error where a plain access
// would fault.

#include "crash/linux/CrashMemory.h"

#include <algorithm>
#include <cstring>

#include <sys/uio.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

constexpr std::uint64_t kPageSize = 4096;

pid_t g_source = 0;

ssize_t ReadOnce(std::uint64_t address, void* buffer, std::size_t size)
{
    const iovec to = {buffer, size};
    const iovec from = {
        reinterpret_cast<void*>(static_cast<std::uintptr_t>(address)), size};
    return process_vm_readv(g_source, &to, 1, &from, 1, 0);
}

} // namespace

void OpenCrashMemory(pid_t process)
{
    char probe = 0;
    g_source = process;
    if (ReadOnce(reinterpret_cast<std::uintptr_t>(&g_source), &probe, 1) != 1)
        g_source = getpid();
}

std::size_t ReadCrashMemory(std::uint64_t address,
                            void* buffer,
                            std::size_t size)
{
    auto* to = static_cast<char*>(buffer);
    std::size_t done = 0;
    while (done < size)
    {
        const ssize_t count = ReadOnce(address + done, to + done, size - done);
        if (count <= 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

void ReadCrashMemoryOrZeros(std::uint64_t address,
                            void* buffer,
                            std::size_t size)
{
    auto* to = static_cast<char*>(buffer);
    std::size_t done = 0;
    while (done < size)
    {
        done += ReadCrashMemory(address + done, to + done, size - done);
        if (done == size)
            return;
        const std::uint64_t inPage = (address + done) % kPageSize;
        const std::size_t hole =
            std::min<std::size_t>(kPageSize - inPage, size - done);
        std::memset(to + done, 0, hole);
        done += hole;
    }
}

} // namespace KzaCore
