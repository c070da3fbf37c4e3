// SPDX-License-Identifier: Apache-2.0

#include "service/DumpWatch.h"

#include <utility>

#include <sys/stat.h>

CDumpWatch::CDumpWatch(wxString path) : m_path(std::move(path)), m_last(Look())
{
}

bool CDumpWatch::HasNew()
{
    const CIdentity now = Look();
    const CIdentity before = std::exchange(m_last, now);
    return now.inode != 0 &&
           (now.inode != before.inode || now.device != before.device ||
            now.modified.tv_sec != before.modified.tv_sec ||
            now.modified.tv_nsec != before.modified.tv_nsec);
}

CDumpWatch::CIdentity CDumpWatch::Look() const
{
    struct stat info = {};
    if (lstat(m_path.fn_str(), &info) != 0)
        return {};
    return {info.st_dev, info.st_ino, info.st_mtim};
}
