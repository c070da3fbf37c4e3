// SPDX-License-Identifier: Apache-2.0
//
// Descriptors 0, 1 and 2, which a process may be started without.
//
// Threads: the main thread, while there is no other.

#pragma once

/// Makes descriptors 0, 1 and 2 exist: each one that is closed leads to
/// /dev/null afterwards, in this process and in its children.
///
/// To be called before any descriptor is opened. The system assigns the lowest
/// free number. If a lock, a log or a pipe got one of the three, every print
/// would write to it, and the daemon would close it when it leaves the
/// terminal.
void OpenStandardDescriptors();
