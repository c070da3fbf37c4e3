// SPDX-License-Identifier: Apache-2.0
//
// Data files beside Lua modules in directories, where authors have them before
// they pack an archive.
//
// Threads: any.

#pragma once

#include <string>

namespace KzaCore
{

enum class EDataFile
{
    Found,
    Missing,
    Unreadable ///< the file exists, but cannot be read
};

/// Reads the first regular file of a name in the directories of a list of
/// module templates: for each the directory in front of its first `?`. A
/// template without one is skipped.
///
/// \param templates  Separated by ";".
/// \param bytes      Out: the content, when found.
/// \param place      Out: the file, when unreadable.
/// \param reason     Out: the system's text when unreadable; when missing a
///                   line for each place, formatted as by Lua's searchers.
EDataFile ReadDataFile(const std::string& templates,
                       const std::string& name,
                       std::string& bytes,
                       std::string& place,
                       std::string& reason);

} // namespace KzaCore
