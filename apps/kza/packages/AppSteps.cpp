// SPDX-License-Identifier: Apache-2.0

#include "AgentApp.h"
#include "packages/ExtensionVersion.h"

bool CAgentApp::ExtensionVersionIsOK(const wxString& extensionPath)
{
    return ExtensionVersionMatches(extensionPath);
}
