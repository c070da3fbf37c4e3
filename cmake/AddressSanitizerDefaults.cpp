// SPDX-License-Identifier: Apache-2.0
//
// When the address sanitizer looks for leaks: before the static objects go.
//
// A process of the agent ends through exit() while the framework's modules are
// still there. The list that knows them is a static object of the framework's
// library, so a look after its destruction finds them leaked, or not, as what
// else lies in memory has it.

#include <cstdlib>

#include <sanitizer/lsan_interface.h>

namespace
{

// Handlers run in the reverse order of their registration, and the libraries
// have registered theirs by now. A second look is never taken.
const int s_registered = atexit(__lsan_do_leak_check);

} // namespace
