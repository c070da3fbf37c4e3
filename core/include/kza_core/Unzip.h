// SPDX-License-Identifier: Apache-2.0
//
// Extraction of zip archives from untrusted sources.
//
// The whole archive is checked before the first byte is written: an entry with
// an absolute path, a `..` component, a backslash or a NUL, a symbolic link, a
// device, an unknown or encrypted method makes the call answer false with
// nothing touched and one warning that names the entry; so does a lack of room
// for all of it. A file is written beside its place and renamed into it, so
// that a running program or library is never overwritten in place.
//
// Threads: any; two calls into one destination at once are the caller's risk.

#pragma once

#include "kza_core/Export.h"
#include "kza_core/OpenedFile.h"
#include "kza_core/Owner.h"

class wxFileName;
class wxString;
class wxZipEntry;

namespace KzaCore
{

class CPackageKeys;

/// Asked for every entry, in the archive's order.
///
/// \param context   As given to Unzip().
/// \param entry     The entry; valid during the call.
/// \param destPath  Path that the entry has under the destination directory.
///
/// \return true to write the entry there, false to leave it out.
using UnzipCB = bool (*)(void* context,
                         const wxZipEntry* entry,
                         const wxString* destPath);

/// Options of Unzip() and CanUnzip().
struct CUnzipOptions
{
    /// Only the names of the entries matter. Each entry is shown to the
    /// callback, whose answer is ignored, and nothing is written. An unknown
    /// method, an encrypted entry or a name that comes twice is no reason to
    /// refuse the archive; names are checked as always.
    bool namesOnly = false;

    /// What becomes of an archive that others can change: before anything else
    /// is looked at.
    EOwnerRule owners = EOwnerRule::Ignore;

    /// When not null, an archive without a signature by one of these keys is
    /// refused. The signature is checked before the archive is parsed, and the
    /// bytes that are unpacked are those that were checked.
    const CPackageKeys* keys = nullptr;

    /// The signature; null or not open when there is none.
    const COpenedFile* signature = nullptr;

    /// When not null, receives the open archive after success.
    COpenedFile* opened = nullptr;
};

/// Walks an archive and writes the entries that the callback chooses.
///
/// Directories above an entry are made when missing, and so is the destination,
/// once the archive was found good. Contents are checked against their CRC.
/// Permission bits of the archive are kept, except the set-id bits and the
/// write permission for group and others; directories that exist keep their
/// mode. Nothing is ever written or deleted outside the destination.
///
/// \param archive   The zip file.
/// \param destDir   Directory under which entries are written.
/// \param callback  Asked for each entry; not null.
/// \param context   Handed to the callback.
///
/// \return true when the whole archive was processed; false with one warning
///         in the log that says why. Entries written before a failure stay,
///         each of them whole.
KZA_API bool Unzip(const wxFileName& archive,
                   const wxFileName& destDir,
                   UnzipCB callback,
                   void* context,
                   const CUnzipOptions& options = {});

/// Makes the checks of Unzip() and touches nothing.
///
/// \param error  Set to the text of Unzip()'s warning when it would refuse the
///               archive as a whole.
KZA_API bool CanUnzip(const wxFileName& archive,
                      const wxFileName& destDir,
                      const CUnzipOptions& options,
                      wxString& error);

} // namespace KzaCore
