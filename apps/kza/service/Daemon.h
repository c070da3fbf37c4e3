// SPDX-License-Identifier: Apache-2.0
//
// Turning the process into a daemon. At most one agent of a name runs.
//
// Three processes take part, each with one thread: the launcher, which the
// service script waits for; the session leader; and the watchdog, which goes
// on. The launcher takes the claim on the pid file, and its children inherit
// it, so that no other start can act between the reading of the pid file and
// the writing of its new content.

#pragma once

#include "kza_core/Owner.h"

class wxString;

/// Turns the calling process into a daemon with that working directory and
/// writes its pid file. The launcher and the session leader end here with
/// status 0, and the launcher with 1 when a live process owns the pid file, or
/// a user who is refused could.
///
/// \param owners  When others can change the pid file.
///
/// \return true in the watchdog; false in the launcher or the session leader
///         when it cannot fork, which is logged.
[[nodiscard]] bool Daemonize(const wxString& pidFile,
                             const wxString& workingDirectory,
                             KzaCore::EOwnerRule owners);
