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

} // namespace

bool EnterFipsMode(const KzaCore::CDom& dom)
{
    using namespace KzaCore;

    if (!IsRequested(dom.GetWxString(DomKey::kFipsMode)))
    {
        APPL_TRACE("FIPS mode is OFF");
        return true;
    }

    // The library directory is taken as a file's name here: what belongs to
    // OpenSSL is beside that directory, not in it.
    wxFileName engines(dom.GetWxString(DomKey::kPathLib));
    const wxString root = engines.GetPath();
    engines.AppendDir("engines");
    const bool setEnginesVariable =
        wxSetEnv("OPENSSL_ENGINES", engines.GetPath());
    wxASSERT(setEnginesVariable);
    wxUnusedVar(setEnginesVariable);
    wxLogVerbose("OPENSSL_ENGINES = %s", engines.GetPath());

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
