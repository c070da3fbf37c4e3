// SPDX-License-Identifier: Apache-2.0
//
// The signals of a process that runs the application: its handler and the
// table of dispositions. Those of the watchdog are in StopRelay.h.

#pragma once

/// Handler of a process that runs the application: ends it on SIGINT and
/// SIGTERM, does nothing else.
extern "C" void KzaSignalHandler(int signal);

/// Installs the dispositions of a process that runs the application and
/// blocks SIGINT and SIGTERM in the calling thread.
void InstallSignalDispositions();

/// Makes a write beyond the limit on the size of files fail with EFBIG. By
/// default such a write kills the process, even when it only logs.
void IgnoreFileSizeSignal();
