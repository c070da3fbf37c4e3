// SPDX-License-Identifier: Apache-2.0
//
// Running a program to its end.
//
// Threads: any; the calling thread waits. The child gets an empty signal mask,
// default dispositions and no descriptor but 0 to 2.

#pragma once

#include "kza_core/Export.h"

class wxString;

namespace KzaCore
{

/// Starts a program directly, without a shell, and waits for it.
///
/// \param program    Path of the executable.
/// \param arguments  Words separated by blanks; quotes are not understood.
/// \param output     Out: its standard output and error, in the order written.
/// \param result     Out: its exit status; 0 when a signal ended it.
/// \param error      Out: why the call failed ("exit status 7", "killed by
///                   signal 9", the system's text); empty on success.
///
/// \return true when the program ran and ended with status 0.
KZA_API bool Execute(const wxString& program,
                     const wxString& arguments,
                     wxString& output,
                     unsigned long& result,
                     wxString& error);

} // namespace KzaCore
