// SPDX-License-Identifier: Apache-2.0
//
// Where the maker's products lie above the executable. Pure.

#pragma once

class wxFileName;
class wxString;

/// The directory above the executable's one when its path names the maker,
/// else the executable's own; without a trailing separator.
///
/// \param executable  Absolute and normalised.
wxString VendorDirectory(const wxFileName& executable);
