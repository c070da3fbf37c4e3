// SPDX-License-Identifier: Apache-2.0
//
// The directory of the vendor's products. Pure.

#pragma once

class wxFileName;
class wxString;

/// The directory above the executable's directory when its path names the
/// vendor, else the executable's directory; without a trailing separator.
///
/// \param executable  Absolute and normalised.
wxString VendorDirectory(const wxFileName& executable);
