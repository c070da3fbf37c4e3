// SPDX-License-Identifier: Apache-2.0

#include "script/StandardOutput.h"

#include "base/Error.h"

#include <wx/log.h>

#include <cerrno>
#include <cstdio>

void CStandardOutput::Sync()
{
    if (fflush(stdout) != 0)
        Fail(errno);
}

size_t CStandardOutput::OnSysWrite(const void* data, size_t size)
{
    const size_t written = fwrite(data, 1, size, stdout);
    if (written < size)
        Fail(errno);
    return written;
}

void CStandardOutput::Fail(int error)
{
    m_lasterror = wxSTREAM_WRITE_ERROR;
    static bool s_said = false;
    if (!s_said)
        wxLogWarning("Standard output cannot be written: %s",
                     KzaCore::TextOfBytes(KzaCore::SystemErrorText(error)));
    s_said = true;
}
