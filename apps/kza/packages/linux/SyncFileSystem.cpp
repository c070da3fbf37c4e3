// SPDX-License-Identifier: Apache-2.0

#include "packages/SyncFileSystem.h"

#include "base/Descriptor.h"

#include <wx/filename.h>
#include <wx/log.h>

#include <fcntl.h>
#include <unistd.h>

bool SyncFileSystem(const wxFileName& directory)
{
    const wxString path = directory.GetPath(wxPATH_GET_VOLUME);
    const KzaCore::CDescriptor opened(
        open(path.fn_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.IsOpen() && syncfs(opened.Get()) == 0)
        return true;
    wxLogSysError("Unable to write the file system of '%s' to disk", path);
    return false;
}
