// SPDX-License-Identifier: Apache-2.0
//
// The system's descriptor for pending signals, where it has one.
//
// Threads: any.

#pragma once

/// Opens a descriptor that polls readable while the signal, blocked in every
/// thread, is pending for the process. Callers must not read from it: that
/// would take the signal from the thread that waits for it.
///
/// \return the descriptor, closed on exec and owned by the caller; -1 where
///         the system has no such descriptor or gives none.
[[nodiscard]] int OpenPendingSignal(int signal);
