// SPDX-License-Identifier: Apache-2.0
//
// The C library's standard output as the output stream of a chunk. It shares
// the C stream's buffer with Lua's io.write, so that the two keep their order,
// and never closes it.
//
// A standard output that cannot be written is a warning in the log, once per
// process and not once per line.
//
// Threads: the script thread.

#pragma once

#include <wx/stream.h>

class CStandardOutput : public wxOutputStream
{
public:
    /// Hands what the C stream holds back to the descriptor.
    void Sync() override;

protected:
    size_t OnSysWrite(const void* data, size_t size) override;

private:
    void Fail(int error);
};
