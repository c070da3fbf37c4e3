// SPDX-License-Identifier: Apache-2.0
//
// Detecting that a worker has left a crash dump.
//
// Threads: the watchdog's.

#pragma once

#include <wx/string.h>

#include <ctime>

#include <sys/types.h>

class CDumpWatch
{
public:
    /// \param path  The path that a crash writes its dump to.
    explicit CDumpWatch(wxString path);

    /// True when there is another dump than at the last call, or at the
    /// construction before the first call.
    [[nodiscard]] bool HasNew();

    [[nodiscard]] const wxString& Path() const { return m_path; }

private:
    // The properties by which two files under the same name are told apart.
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
