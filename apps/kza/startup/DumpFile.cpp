// SPDX-License-Identifier: Apache-2.0

#include "startup/DumpFile.h"

#include "kza_core/Dom.h"

#include <wx/filename.h>

wxString DumpFile(const wxString& application, const KzaCore::CDom& dom)
{
    return wxFileName(dom.GetPluginWorkdirWx("diag"), application, "mdmp")
        .GetFullPath();
}
