// SPDX-License-Identifier: Apache-2.0
//
// Noticing that a blocked signal is pending, without taking it.
//
// Threads: any.

#pragma once

/// Opens a descriptor that polls readable while the signal, blocked in every
/// thread, is pending for the process. It is not to be read from: that would
/// take the signal from whoever waits for it.
///
/// \return the descriptor, closed on exec and owned by the caller; -1 where
///         the system has no such thing.
[[nodiscard]] int OpenPendingSignal(int signal);
