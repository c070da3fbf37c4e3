// SPDX-License-Identifier: Apache-2.0

#include "lua/DataFile.h"

#include "base/Descriptor.h"
#include "base/Error.h"
#include "base/SplitList.h"
#include "base/WholeTransfer.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

namespace KzaCore
{

namespace
{

// The directories of a list of templates, each with a slash at its end; the
// current directory is empty.
std::vector<std::string> Directories(const std::string& templates)
{
    std::vector<std::string> directories;
    for (const std::string_view entry :
         SplitList<std::string_view>(templates, ";"))
    {
        const std::size_t mark = entry.find('?');
        if (mark == std::string_view::npos)
            continue;
        const std::size_t slash = entry.rfind('/', mark);
        std::string directory(
            entry.substr(0, slash == std::string_view::npos ? 0 : slash + 1));
        if (std::find(directories.begin(), directories.end(), directory) ==
            directories.end())
            directories.push_back(std::move(directory));
    }
    return directories;
}

// Reads to the end of the file, which may grow or shrink meanwhile.
bool ReadToEnd(int file, std::string& bytes)
{
    constexpr std::size_t kPiece = 65536;
    bytes.clear();
    for (;;)
    {
        const std::size_t done = bytes.size();
        bytes.resize(done + kPiece);
        const std::size_t read = ReadWhole(file, &bytes[done], kPiece);
        bytes.resize(done + read);
        if (read < kPiece)
            return errno == 0;
    }
}

EDataFile ReadRegularFile(const std::string& path,
                          std::string& bytes,
                          std::string& reason)
{
    // O_NONBLOCK, because a fifo of that name might never get a writer.
    const CDescriptor file(
        open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!file.IsOpen() && (errno == ENOENT || errno == ENOTDIR))
        return EDataFile::Missing;
    struct stat info = {};
    if (file.IsOpen() && fstat(file.Get(), &info) == 0 &&
        !S_ISREG(info.st_mode))
        return EDataFile::Missing;
    if (file.IsOpen() && ReadToEnd(file.Get(), bytes))
        return EDataFile::Found;
    reason = SystemErrorText(errno);
    return EDataFile::Unreadable;
}

} // namespace

EDataFile ReadDataFile(const std::string& templates,
                       const std::string& name,
                       std::string& bytes,
                       std::string& place,
                       std::string& reason)
{
    std::string tried;
    for (const std::string& directory : Directories(templates))
    {
        place = directory + name;
        // No file has a NUL in its name; for the system the path would end
        // there.
        const EDataFile result = name.find('\0') == std::string::npos
                                     ? ReadRegularFile(place, bytes, reason)
                                     : EDataFile::Missing;
        if (result != EDataFile::Missing)
            return result;
        tried += "\n\tno file '" + place + "'";
    }
    reason = tried;
    return EDataFile::Missing;
}

} // namespace KzaCore
