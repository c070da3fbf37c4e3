// SPDX-License-Identifier: Apache-2.0
//
// Notices that a worker has left a crash dump.
//
// Threads: the watchdog's.

#pragma once

#include <wx/string.h>

#include <ctime>

#include <sys/types.h>

class CDumpWatch
{
public:
    /// \param path  Where a crash leaves its dump.
    explicit CDumpWatch(wxString path);

    /// True when there is another dump than at the last look, which was that
    /// of the constructor or of this function.
    [[nodiscard]] bool HasNew();

    [[nodiscard]] const wxString& Path() const { return m_path; }

private:
    // What tells one file from another under the same name.
    struct CIdentity
    {
        dev_t device = 0;
        ino_t inode = 0;
        timespec modified{};
    };

    [[nodiscard]] CIdentity Look() const;

    const wxString m_path;
    CIdentity m_last;
};
