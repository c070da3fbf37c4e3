// SPDX-License-Identifier: Apache-2.0
//
// Daemon: leave the terminal, with one agent of a name at most.
//
// Three processes take part, each with one thread: the launcher, which the
// service script waits for; the session leader; and the watchdog, which
// survives. The launcher takes the claim on the pid file and hands it down, so
// that no other start can come between the look at the pid file and the new
// content in it.

#pragma once

class wxString;

/// Turns the calling process into a daemon with that working directory and
/// writes its pid file. The launcher and the session leader end here with
/// status 0, and the launcher with 1 when a live process owns the pid file.
///
/// \return true in the watchdog; false in the launcher or the session leader
///         when it cannot fork, which is logged.
[[nodiscard]] bool Daemonize(const wxString& pidFile,
                             const wxString& workingDirectory);
