// SPDX-License-Identifier: Apache-2.0

#include "startup/VendorDirectory.h"

#include <wx/filename.h>

wxString VendorDirectory(const wxFileName& executable)
{
    if (executable.GetDirCount() >= 2)
    {
        wxFileName above = executable;
        above.RemoveLastDir();
        if (above.GetPath().Contains("Orvalis"))
            return above.GetPath();
    }
    return executable.GetPath();
}
