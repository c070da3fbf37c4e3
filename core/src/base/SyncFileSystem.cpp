// SPDX-License-Identifier: Apache-2.0

#include "kza_core/SyncFileSystem.h"

#include "base/Descriptor.h"
#include "base/SyncDescriptor.h"

#include <wx/filename.h>
#include <wx/log.h>

#include <fcntl.h>

namespace KzaCore
{

bool SyncFileSystem(const wxFileName& directory)
{
    const wxString path = directory.GetPath(wxPATH_GET_VOLUME);
    const CDescriptor opened(
        open(path.fn_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (opened.IsOpen() && SyncDescriptor(opened.Get()))
        return true;
    wxLogSysError("Unable to write the file system of '%s' to disk", path);
    return false;
}

} // namespace KzaCore
