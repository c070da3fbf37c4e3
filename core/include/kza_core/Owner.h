// SPDX-License-Identifier: Apache-2.0
//
// Whether others can change what the process trusts: code, packages, archives,
// configuration, its working directory.
//
// Root and the process's own user may own such a thing; nobody else, a group
// included, may be able to write it or the directory that holds it. A sticky
// directory counts as one that others can write. The directories above are not
// looked at. A link is judged by what it leads to, and by the directories that
// hold the two.
//
// Paths are as the system takes them; texts are UTF-8 where paths are.
//
// Threads: any.

#pragma once

#include "kza_core/Export.h"

#include <sys/stat.h>

#include <string>
#include <vector>

namespace KzaCore
{

class COpenedFile;

/// What becomes of a thing that others can change.
enum class EOwnerRule
{
    Ignore, ///< it is used
    Warn,   ///< it is used, with a warning in the log
    Refuse  ///< it is not used, with an error in the log
};

/// What others can change, each as ChangeableText() says it.
using TChangeable = std::vector<std::string>;

/// True when a user other than root and the process's own can write a file or
/// directory, or may give that right.
///
/// \param status  Of the open descriptor: a path may lead elsewhere by now.
[[nodiscard]] KZA_API bool CanOthersChange(const struct stat& status);

/// "'PATH' can be changed by others (owner UID, mode MODE)".
[[nodiscard]] KZA_API std::string ChangeableText(const std::string& path,
                                                 const struct stat& status);

/// Opens a file as COpenedFile::Open() does. What is opened is what was judged,
/// in the directory that was judged, whatever others put there meanwhile.
///
/// \param changeable  Added to, each text once.
///
/// \return false with errno set; `changeable` then has what was found so far.
[[nodiscard]] KZA_API bool OpenAndJudge(const std::string& path,
                                        COpenedFile& file,
                                        TChangeable& changeable);

/// Judges what a path leads to, file or directory, without opening it: to close
/// a file again would release the locks that the process has on it. Where
/// nothing is, the directory that would hold it counts.
///
/// \param changeable  Added to, each text once.
KZA_API void JudgePath(const std::string& path, TChangeable& changeable);

/// Judges a directory and names below it, whose own directories are among the
/// names. As JudgePath() for each, and cheaper.
KZA_API void JudgeDirectory(const std::string& path,
                            const std::vector<std::string>& names,
                            TChangeable& changeable);

/// Says in the log what others can change, each text once in the life of the
/// process.
///
/// \return false when what was judged is not to be used.
KZA_API bool Tolerate(const TChangeable& changeable, EOwnerRule rule);

} // namespace KzaCore
