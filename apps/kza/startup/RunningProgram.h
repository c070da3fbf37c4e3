// SPDX-License-Identifier: Apache-2.0
//
// The program that this process runs, according to the system.
//
// Threads: any.

#pragma once

#include <wx/string.h>

/// The program's absolute path without links, independent of its name on the
/// command line. Empty where the system does not give it.
[[nodiscard]] wxString RunningProgram();
