// SPDX-License-Identifier: Apache-2.0
//
// The part of noticing a pending signal that each system does in its own way.
//
// Threads: any.

#pragma once

/// Opens a descriptor that polls readable while the signal, blocked in every
/// thread, is pending for the process. It is not to be read from: that would
/// take the signal from the thread that waits for it.
///
/// \return the descriptor, closed on exec and owned by the caller; -1 where
///         the system has no such descriptor or gives none.
[[nodiscard]] int OpenPendingSignal(int signal);
