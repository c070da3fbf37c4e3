// SPDX-License-Identifier: Apache-2.0
//
// The C library's standard output as the output stream of a chunk. It uses the
// C stream's buffer, as Lua's io.write does, so that the output of both keeps
// its order. It never closes the C stream.
//
// The first failure to write standard output is a warning in the log; later
// ones in the same process are not logged.
//
// Threads: the script thread.

#pragma once

#include <wx/stream.h>

class CStandardOutput : public wxOutputStream
{
public:
    /// Writes the C stream's buffer to the descriptor.
    void Sync() override;

protected:
    size_t OnSysWrite(const void* data, size_t size) override;

private:
    void Fail(int error);
};
