// SPDX-License-Identifier: Apache-2.0

#include "base/TerminalWidth.h"

#include <sys/ioctl.h>

namespace KzaCore
{

int TerminalWidth(int descriptor)
{
    winsize size = {};
    return ioctl(descriptor, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

} // namespace KzaCore
