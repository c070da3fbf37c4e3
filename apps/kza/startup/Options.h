// SPDX-License-Identifier: Apache-2.0
//
// The options of the command line, as the framework's parser takes them.

#pragma once

class wxCmdLineParser;

/// Adds the agent's options to a parser that has the framework's own.
void DeclareOptions(wxCmdLineParser& parser);
