// SPDX-License-Identifier: Apache-2.0
//
// Process entry: the framework drives the rest, see AgentApp.h.

#include <wx/init.h>

int main(int argc, char** argv)
{
    return wxEntry(argc, argv);
}
