// SPDX-License-Identifier: Apache-2.0

#include "startup/Fips.h"

#include "ApplTrace.h"

#include "kza_core/Dom.h"
#include "kza_core/OpenSSLCompat.h"

#include <wx/filename.h>
#include <wx/log.h>
#include <wx/utils.h>

namespace
{

bool IsRequested(const wxString& mode)
{
    return !mode.empty() && mode.CmpNoCase("0") != 0;
}

// The directory above the libraries, which contains OpenSSL's files.
wxString RootOf(const KzaCore::CDom& dom)
{
    return wxFileName(dom.GetWxString(KzaCore::DomKey::kPathLib)).GetPath();
}

void NameEngines(const wxString& root)
{
    wxFileName engines = wxFileName::DirName(root);
    engines.AppendDir("engines");
    const bool setEnginesVariable =
        wxSetEnv("OPENSSL_ENGINES", engines.GetPath());
    wxASSERT(setEnginesVariable);
    wxUnusedVar(setEnginesVariable);
    wxLogVerbose("OPENSSL_ENGINES = %s", engines.GetPath());
}

} // namespace

bool EnterFipsMode(const KzaCore::CDom& dom, const wxString& untrusted)
{
    using namespace KzaCore;

    if (!IsRequested(dom.GetWxString(DomKey::kFipsMode)))
    {
        APPL_TRACE("FIPS mode is OFF");
        return true;
    }

    wxString root = RootOf(dom);
    if (root == untrusted)
        root.clear();
    else
        NameEngines(root);

    const unsigned long error =
        OpenSSLCompat::EnterFips(std::string(root.fn_str()));
    if (error == 0)
    {
        APPL_TRACE("FIPS mode is ON");
        return true;
    }
    wxLogWarning("Tried to enter FIPS mode but failed: %s",
                 wxString(OpenSSLCompat::ErrorText(error)));
    if (error == OpenSSLCompat::kFipsNotSupported)
        return true;
    wxLogError("Failed to enter FIPS mode. Exiting.");
    return false;
}
