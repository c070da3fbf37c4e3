// SPDX-License-Identifier: Apache-2.0
//
// Plugin and removal packages beside the executable.
//
// Packages come from untrusted sources. A fault of one package is reported in
// its event and never stops the others or the start.
//
// Threads: one object belongs to one thread.

#pragma once

#include "packages/PackageTrust.h"

#include "kza_core/OpenedFile.h"
#include "kza_core/Unzip.h"

#include <wx/filename.h>

#include <cstdint>

namespace KzaCore
{
class CDom;
} // namespace KzaCore

enum class EPackageEvent : std::uint32_t;

class CPackages
{
public:
    /// \param dom  Has the directories of the executable and of the keys, and
    ///             receives the events and the request for a heartbeat;
    ///             outlives the object.
    explicit CPackages(KzaCore::CDom& dom);

    /// Applies the removal packages, `*.kzu`, in the order of their names. A
    /// package that was applied is deleted with its signature.
    ///
    /// \param callback  Asked for every entry; deletes the file itself.
    /// \param context   Handed to the callback.
    void Remove(KzaCore::UnzipCB callback, void* context);

    /// Deletes left-over files of the core, then installs the plugin packages,
    /// `*.kzp`, in the order of their names. The name of a package that was
    /// installed gets ".done" appended; its signature is renamed accordingly.
    ///
    /// \param callback  Asked for every entry whether it is to be written.
    /// \param context   Handed to the callback.
    void Install(KzaCore::UnzipCB callback, void* context);

    /// Answers of the callbacks for one entry: true when it is to be written.
    [[nodiscard]] static bool ExtractEntry(const wxZipEntry& entry);

    /// Deletes the file that an entry of a removal package names.
    [[nodiscard]] static bool RemoveEntry(const wxZipEntry& entry,
                                          const wxString& path);

private:
    // The files of a package that was applied, as they were opened.
    struct CApplied
    {
        KzaCore::COpenedFile package;
        KzaCore::COpenedFile signature; // not open when there was none
    };

    template <typename TApply>
    void ForEach(const char* pattern,
                 EPackageEvent good,
                 EPackageEvent bad,
                 TApply&& apply);
    bool Unpack(const wxFileName& package,
                bool namesOnly,
                KzaCore::UnzipCB callback,
                void* context,
                CApplied& applied);
    bool RemoveOne(const wxFileName& package,
                   KzaCore::UnzipCB callback,
                   void* context);
    bool InstallOne(const wxFileName& package,
                    KzaCore::UnzipCB callback,
                    void* context);

    KzaCore::CDom& m_dom;
    const wxFileName m_directory; // of the executable
    CPackageTrust m_trust;
};
