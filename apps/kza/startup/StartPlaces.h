// SPDX-License-Identifier: Apache-2.0
//
// The places that a start stands on: the installation and the working
// directory with what the agent keeps in it.
//
// Threads: the main thread, during start-up.

#pragma once

#include "kza_core/Owner.h"

#include <wx/string.h>

struct CStartPlaces
{
    wxString executable;  ///< empty, as the next, when nothing is taken from
    wxString bin;         ///< there: its directory
    wxString work;        ///< the working directory
    wxString application; ///< whose log is looked at
};

/// What of the places others can change. Makes nothing.
[[nodiscard]] KzaCore::TChangeable JudgeStartPlaces(const CStartPlaces& places);
