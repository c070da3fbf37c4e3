// SPDX-License-Identifier: Apache-2.0

#include "base/ReplaceFile.h"

#include "base/NewFile.h"
#include "base/RandomNumber.h"

#include <cerrno>
#include <cstdio>

#include <unistd.h>

namespace KzaCore
{

namespace
{

// The name begins with a dot, so that a file which a killed process leaves
// behind is not taken for content of the directory. The name's length does not
// depend on that of the path's own name, so a long name cannot make it too
// long.
std::string NameBeside(const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string directory =
        path.substr(0, slash == std::string::npos ? 0 : slash + 1);
    return directory + ".kza_write." + std::to_string(RandomNumber());
}

bool WriteNew(const std::string& path, std::string_view bytes)
{
    CNewFile file;
    return file.Make(path, 0666) && file.Write(bytes) && file.Finish();
}

} // namespace

bool ReplaceFile(const std::string& path, std::string_view bytes)
{
    const std::string beside = NameBeside(path);
    if (!WriteNew(beside, bytes))
        return false;
    if (rename(beside.c_str(), path.c_str()) == 0)
        return true;
    const int reason = errno;
    unlink(beside.c_str());
    errno = reason;
    return false;
}

} // namespace KzaCore
