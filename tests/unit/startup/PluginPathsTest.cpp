// SPDX-License-Identifier: Apache-2.0

#include "startup/PluginPaths.h"

#include <gtest/gtest.h>

namespace
{

struct CCase
{
    const char* name;
    const char* paths;
    const char* plugins;
    const char* expected;
};

constexpr CCase kCases[] = {
    {"no plugins leaves the input as it is", "A/@;;B;", "", "A/@;;B;"},
    {"no paths", "", "x,y", ""},
    {"nothing at all", "", "", ""},
    {"path order first", "A/@;B/@", "x,y", "A/x;A/y;B/x;B/y"},
    {"no placeholder is repeated", "base;ext/@", "x,y",
     "base;base;ext/x;ext/y"},
    {"every placeholder", "A/@@", "x", "A/xx"},
    {"empty element at the start", ";A/@", "x", "A/x"},
    {"empty element inside", "A;;B", "x", "A;;B"},
    {"trailing delimiter", "A;", "x", "A"},
    {"nothing is trimmed", "@", "x, y", "x; y"},
    {"empty plugin inside", "A@", "x,,y", "Ax;A;Ay"},
    {"plugin with a placeholder", "@", "a@b", "a@b"},
    {"non-ASCII", "\u00fc/@", "\u00e4", "\u00fc/\u00e4"},
};

TEST(PluginPaths, EveryTemplateIsExpandedByEveryPlugin)
{
    for (const CCase& c : kCases)
    {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(ExpandPathPlugins(wxString::FromUTF8(c.paths),
                                    wxString::FromUTF8(c.plugins)),
                  wxString::FromUTF8(c.expected));
    }
}

} // namespace
