// SPDX-License-Identifier: Apache-2.0
//
// The program that this process runs, as the system knows it.
//
// Threads: any.

#pragma once

#include <wx/string.h>

/// The program's absolute path without links in it, whatever the command line
/// calls it. Empty where the system cannot tell.
[[nodiscard]] wxString RunningProgram();
