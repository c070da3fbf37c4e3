// SPDX-License-Identifier: Apache-2.0
//
// The entry of the process. The framework calls the functions of AgentApp.h.

#include <wx/init.h>

int main(int argc, char** argv)
{
    return wxEntry(argc, argv);
}
