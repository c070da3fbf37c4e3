// SPDX-License-Identifier: Apache-2.0
//
// Descriptors 0, 1 and 2, which a process may be started without.
//
// Threads: the main thread, while there is no other.

#pragma once

/// Makes descriptors 0, 1 and 2 exist: each one that is closed leads to
/// /dev/null afterwards, in this process and in its children.
///
/// To be called before anything opens a descriptor. The system gives out the
/// lowest free number: a lock, a log or a pipe that landed on one of the three
/// would be written to by every print, and dropped when the daemon leaves the
/// terminal.
void OpenStandardDescriptors();
