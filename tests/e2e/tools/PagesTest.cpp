// SPDX-License-Identifier: Apache-2.0
//
// What tools/pages finds in small trees of documentation, and that this tree
// has none of it.

#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <string>

using namespace TestSupport;

namespace
{

CProcessResult Look(const std::string& tree)
{
    return Run({KZA_SOURCE_DIR "/tools/pages", tree});
}

// A tree whose pages are in order, as the tests begin.
class CPages
{
public:
    CPages()
    {
        Write("README.md", "# Tree\n\n[pages](docs/README.md)\n");
        Write("docs/README.md",
              "# Pages\n\n[one](one.md), [more](more/README.md)\n");
        Write("docs/one.md", "# One\n\n## Its `second` part, too\n\n"
                             "`Here.h`, `src/Here.h`, `<map.h>`\n");
        Write("src/Here.h", "");
        Write("docs/more/README.md",
              "# More\n\n[a part of one](../one.md#its-second-part-too)\n");
    }

    void Write(const std::string& path, const std::string& content) const
    {
        WriteFile(m_dir.File(path), content);
    }

    [[nodiscard]] CProcessResult LookAt() const { return Look(m_dir.Path()); }

private:
    CTempDir m_dir;
};

std::string Text(int lines)
{
    std::string text;
    for (int i = 0; i < lines; ++i)
        text += "A line.\n";
    return text;
}

TEST(Pages, PagesOfThisTreeAreInOrder)
{
    const CProcessResult result = Look(KZA_SOURCE_DIR);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_EQ(result.out, "");
}

TEST(Pages, OrderlyTreePasses)
{
    const CProcessResult result = CPages().LookAt();
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_EQ(result.out, "");
}

TEST(Pages, FaultIsNamedWithItsPlace)
{
    const std::string wide(121, 'x');
    const struct
    {
        const char* page;
        std::string content;
        const char* fault;
    } cases[] = {
        {"a.md", "[gone](none.md)\n", "a.md:1: none.md leads to no file\n"},
        {"a.md", "\n[gone](docs/one.md#none)\n",
         "a.md:2: docs/one.md#none leads to no heading\n"},
        {"a.md", "# A\n[gone](#b)\n", "a.md:2: #b leads to no heading\n"},
        {"a.md", "# A\n# A\n[gone](#a-2)\n",
         "a.md:3: #a-2 leads to no heading\n"},
        {"a.md", "\n`re.h`\n", "a.md:2: `re.h` is no file of the tree\n"},
        {"a.md", "`b/Here.h`\n", "a.md:1: `b/Here.h` is no file of the tree\n"},
        {"a.md", "two " + wide + "\n",
         "a.md:1: has 125 characters, more than 120\n"},
        {"a.md", "# A\n" + Text(149) + "## B\n",
         "a.md:151: the table of contents of this long page lacks #b\n"},
        {"docs/two.md", "# Two\n",
         "docs/two.md: is not linked from docs/README.md\n"},
        {"docs/more/two.md", "# Two\n",
         "docs/more/two.md: is not linked from docs/more/README.md\n"},
        {"docs/other/README.md", "# Two\n",
         "docs/other/README.md: is not linked from docs/README.md\n"},
    };
    for (const auto& one : cases)
    {
        SCOPED_TRACE(one.fault);
        const CPages tree;
        tree.Write(one.page, one.content);
        const CProcessResult result = tree.LookAt();
        EXPECT_EQ(result.status, 1) << result.err;
        EXPECT_EQ(result.out, one.fault);
    }
}

TEST(Pages, WhatIsInOrderIsNotNamed)
{
    const std::string wide(121, 'x');
    const std::string contents[] = {
        "[far](https://example.org/none.md#none), [folder](docs)\n",
        "`[code](none.md)`\n\n    [code](none.md)\n",
        "```\n# [code](none.md)\n```\n",
        "# A\n# A\n[second](#a-1)\n",
        "| " + wide + " | two |\n",
        "- [" + wide + " x](docs)\n",
        "```\n" + wide + " two\n```\n",
        "# A\n[B](#b)\n" + Text(200) + "## B\n### C\n",
        // 120 characters, which take more bytes.
        "\xc3\xa4 " + wide.substr(3) + "\n",
    };
    for (const std::string& content : contents)
    {
        SCOPED_TRACE(content);
        const CPages tree;
        tree.Write("a.md", content);
        const CProcessResult result = tree.LookAt();
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, "");
    }
}

TEST(Pages, TreeWithoutPagesIsAMistake)
{
    const CTempDir empty;
    EXPECT_EQ(Look(empty.Path()).status, 2);
}

} // namespace
