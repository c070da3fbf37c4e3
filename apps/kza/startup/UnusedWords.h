// SPDX-License-Identifier: Apache-2.0
//
// Words of the command line that have no effect.

#pragma once

class wxArrayString;
class wxCmdLineParser;

/// Warns of each value of an option that a later one replaces, and of words
/// that reach neither the agent nor the script.
///
/// \param parser  Has parsed the words.
/// \param words   The whole command line, the program included.
void WarnOfUnusedWords(const wxCmdLineParser& parser,
                       const wxArrayString& words);
