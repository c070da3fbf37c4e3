// SPDX-License-Identifier: Apache-2.0

#include "packages/PackageName.h"

#include <gtest/gtest.h>
#include <wx/filename.h>

namespace
{

TEST(PackageName, ThePluginIsTheSecondField)
{
    const struct
    {
        const char* file;
        const char* plugin;
    } cases[] = {
        {"Plugin-Widget-sol11-12.0.0-101.x86_64.kzp", "Widget"},
        {"Plugin-Widget.kzp", "Widget"},
        {"Widget.kzp", "Widget"},
        {"Widget.tar.kzp", "Widget.tar"},
        {"Plugin--sol11.kzp", ""},
        {"-Widget-x.kzp", "Widget"},
        {"Plugin-.kzp", ""},
        {"Plugin-Widget.tar.kzp", "Widget.tar"},
        {"Plugin-Widget-sol11-12.0.0-101.x86_64.kzu", "Widget"},
    };
    for (const auto& test : cases)
    {
        EXPECT_EQ(getPluginName(wxFileName(test.file)), test.plugin)
            << test.file;
        const wxString path =
            wxString("/any-dir/with.dots-12.0.0-1.x/") + test.file;
        EXPECT_EQ(getPluginName(wxFileName(path)), test.plugin) << path;
    }
}

TEST(PackageName, TheVersionIsTheFieldBeforeTheBuild)
{
    const struct
    {
        const char* file;
        bool matches;
    } cases[] = {
        {"Plugin-Widget-sol11-12.0.0-101.x86_64.kzp", true},
        {"Plugin-Widget-sol11-11.0.0-50.x86_64.kzp", false},
        {"Plugin-Widget-12.0.0-101.kzp", false},
        {"Plugin-Widget-12.0.0.kzp", false},
        {"Widget.kzp", true},
        {"Widget-1.x86_64.kzp", true},
        {"Plugin--1.x86_64.kzp", true},

        {"Plugin-Widget-12.0.1-101.x86_64.kzp", false},
        {"Plugin-Widget-12.0.00-101.x86_64.kzp", false},
        {"Plugin-Widget-012.0.0-101.x86_64.kzp", false},
        {"Plugin-Widget-12.0.0.2932-101.x86_64.kzp", false},
        {"Plugin-Widget-12.0-101.x86_64.kzp", false},
        {"Plugin-12.0.0-101.x86_64.kzp", true},
        {"-12.0.0-1.x.kzp", true},
        {"Widget.tar.kzp", true},
        {"Plugin-Widget-11.kzp", true},
        {"Plugin-Widget-no-dot-at-all.kzp", true},
        {"a-b-c.x.kzp", false},
        {"a-b-12.0.0-.x.kzp", true},
        {"a-b-12.0.0--.x.kzp", true},
    };
    for (const auto& test : cases)
    {
        EXPECT_EQ(PackageVersionMatches(wxFileName(test.file)), test.matches)
            << test.file;
        const wxString path =
            wxString("/any-dir/with.dots-11.0.0-1.x/") + test.file;
        EXPECT_EQ(PackageVersionMatches(wxFileName(path)), test.matches)
            << path;
    }
}

} // namespace
