// SPDX-License-Identifier: Apache-2.0

#include "base/WholeTransfer.h"

#include <cerrno>

#include <unistd.h>

namespace KzaCore
{

namespace
{

// Repeats a call that transfers a part. It is given how many bytes are done,
// and answers as read(2) and write(2) do.
//
// \param atEnd  errno after a call that transferred nothing.
template <typename TCall>
std::size_t Repeat(std::size_t size, int atEnd, TCall call)
{
    std::size_t done = 0;
    while (done < size)
    {
        const ssize_t part = call(done);
        if (part < 0 && errno == EINTR)
            continue;
        if (part == 0)
            errno = atEnd;
        if (part <= 0)
            break;
        done += static_cast<std::size_t>(part);
    }
    return done;
}

} // namespace

std::size_t ReadWhole(int file, void* buffer, std::size_t size)
{
    return Repeat(
        size, 0,
        [=](std::size_t done)
        { return read(file, static_cast<char*>(buffer) + done, size - done); });
}

std::size_t ReadWholeAt(int file,
                        std::uint64_t offset,
                        void* buffer,
                        std::size_t size)
{
    return Repeat(size, 0,
                  [=](std::size_t done)
                  {
                      return pread(file, static_cast<char*>(buffer) + done,
                                   size - done,
                                   static_cast<off_t>(offset + done));
                  });
}

std::size_t WriteWhole(int file, const void* bytes, std::size_t size)
{
    return Repeat(size, EIO,
                  [=](std::size_t done) {
                      return write(file, static_cast<const char*>(bytes) + done,
                                   size - done);
                  });
}

std::size_t WriteWholeAt(int file,
                         std::uint64_t offset,
                         const void* bytes,
                         std::size_t size)
{
    return Repeat(size, EIO,
                  [=](std::size_t done)
                  {
                      return pwrite(
                          file, static_cast<const char*>(bytes) + done,
                          size - done, static_cast<off_t>(offset + done));
                  });
}

} // namespace KzaCore
