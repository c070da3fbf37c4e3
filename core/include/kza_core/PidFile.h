// SPDX-License-Identifier: Apache-2.0
//
// The pid file: a decimal process id and a newline, mode 0644.
//
// It is replaced by rename and never written or read through a symbolic link,
// so a reader sees the old content or the new one, whole.
//
// Threads: any.

#pragma once

#include "kza_core/Export.h"

class wxString;

namespace KzaCore
{

/// The process id stored in the file; 0 when the file is missing, unreadable,
/// a symbolic link, or holds anything but one positive number and a newline.
[[nodiscard]] KZA_API int ReadPidFile(const wxString& path);

/// Records the calling process's id.
///
/// \return false when it could not; the reason is logged.
KZA_API bool WritePidFile(const wxString& path);

} // namespace KzaCore
