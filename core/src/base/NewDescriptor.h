// SPDX-License-Identifier: Apache-2.0
//
// Descriptors that programs started later do not inherit, and locks on files.
//
// Where the system has no single call for that, a program that another thread
// starts at the same moment inherits the descriptor all the same.
//
// Threads: any.

#pragma once

#include <array>

namespace KzaCore
{

/// Makes a pipe: the end to read from, then the one to write to.
///
/// \return false with errno set.
[[nodiscard]] bool OpenPipe(std::array<int, 2>& ends);

/// Makes a file of a new name and opens it, for its owner alone.
///
/// \param path  In: ends in XXXXXX. Out: the name.
///
/// \return -1 with errno set.
[[nodiscard]] int OpenTemporary(char* path);

/// Lets a descriptor stand for the file of another one; what it stood for is
/// closed.
///
/// \return false with errno set.
[[nodiscard]] bool DuplicateOnto(int from, int onto);

/// Locks a file, or unlocks it. The lock goes with the open file, so that a
/// child inherits it, where the system has such locks; elsewhere it is the
/// process's and ends with it.
///
/// \param type  F_WRLCK or F_UNLCK.
///
/// \return false with errno set when another process holds a lock, or the
///         system refuses.
bool LockOpenFile(int fd, short type);

} // namespace KzaCore
