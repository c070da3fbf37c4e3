// SPDX-License-Identifier: Apache-2.0

#include "base/TerminalWidth.h"

namespace KzaCore
{

int TerminalWidth(int)
{
    return 0;
}

} // namespace KzaCore
