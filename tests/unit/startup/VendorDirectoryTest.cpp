// SPDX-License-Identifier: Apache-2.0

#include "startup/VendorDirectory.h"

#include <gtest/gtest.h>
#include <wx/filename.h>

namespace
{

struct CCase
{
    const char* executable;
    const char* expected;
};

constexpr CCase kCases[] = {
    {"/opt/Orvalis/agent/bin/kz_agent", "/opt/Orvalis/agent"},
    {"/opt/Orvalis/bin/kz_agent", "/opt/Orvalis"},
    {"/opt/myOrvalisAgent/a/bin/kz_agent", "/opt/myOrvalisAgent/a"},
    // The maker's name counts above the executable's directory only.
    {"/opt/Orvalis/kz_agent", "/opt/Orvalis"},
    {"/opt/agent/Orvalis/kz_agent", "/opt/agent/Orvalis"},
    {"/opt/orvalis/bin/kz_agent", "/opt/orvalis/bin"},
    {"/usr/lib/agent/kz_agent", "/usr/lib/agent"},
    {"/Orvalis/kz_agent", "/Orvalis"},
    {"/bin/kz_agent", "/bin"},
    {"/kz_agent", "/"},
};

TEST(VendorDirectory, IsTheParentWhenItsPathNamesTheMaker)
{
    for (const CCase& c : kCases)
    {
        SCOPED_TRACE(c.executable);
        EXPECT_EQ(VendorDirectory(wxFileName(c.executable)), c.expected);
    }
}

} // namespace
