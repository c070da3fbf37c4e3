// SPDX-License-Identifier: Apache-2.0

#include "startup/RunningProgram.h"

wxString RunningProgram()
{
    return {};
}
