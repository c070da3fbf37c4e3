// SPDX-License-Identifier: Apache-2.0

#include "base/CopyFile.h"

#include "base/NewFile.h"
#include "base/WholeTransfer.h"
#include "kza_core/OpenedFile.h"

#include <cerrno>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace KzaCore
{

namespace
{

constexpr std::size_t kPiece = 256 * 1024;
constexpr mode_t kMode = 0644;

bool CopyBytes(int from, int to)
{
    std::vector<char> piece(kPiece);
    std::size_t count = 0;
    do
    {
        count = ReadWhole(from, piece.data(), piece.size());
        if (count < piece.size() && errno != 0)
            return false;
        if (WriteWhole(to, piece.data(), count) != count)
            return false;
    } while (count == piece.size());
    return true;
}

} // namespace

bool CopyFile(const std::string& from, const std::string& to)
{
    COpenedFile source;
    if (!source.Open(from))
        return false;
    if (!source.IsRegular())
    {
        errno = EINVAL;
        return false;
    }
    CNewFile copy;
    // fchmod() sets the mode independently of the umask.
    return copy.Make(to, kMode) && CopyBytes(source.Get(), copy.Get()) &&
           fchmod(copy.Get(), kMode) == 0 && fsync(copy.Get()) == 0 &&
           copy.Finish();
}

} // namespace KzaCore
