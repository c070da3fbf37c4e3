// SPDX-License-Identifier: Apache-2.0
//
// What tools/include_stairs finds in small trees, and that this tree has none
// of it.

#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <string>

using namespace TestSupport;

namespace
{

CProcessResult Look(const std::string& tree)
{
    return Run({KZA_SOURCE_DIR "/tools/include_stairs", tree});
}

std::string Include(const std::string& name)
{
    return "#include \"" + name + "\"\n";
}

// A tree in which every include goes down, as the rows of this test begin.
class CSources
{
public:
    CSources()
    {
        Write("core/include/kza_core/Export.h", "");
        Write("core/include/kza_core/Log.h", Include("kza_core/Export.h"));
        Write("core/src/log/Log.cpp",
              Include("kza_core/Log.h") + Include("log/Line.h"));
        Write("core/src/log/Line.h", Include("base/Bytes.h"));
        Write("core/src/log/linux/Line.cpp", Include("log/Line.h"));
        Write("core/src/base/Bytes.h", "#include <string>\n");
        Write("apps/one/Main.cpp",
              Include("kza_core/Log.h") + Include("steps/Step.h"));
        Write("apps/one/steps/Step.h", "");
    }

    void Write(const std::string& path, const std::string& content) const
    {
        WriteFile(m_dir.File(path), content);
    }

    [[nodiscard]] CProcessResult LookAt() const { return Look(m_dir.Path()); }

private:
    CTempDir m_dir;
};

bool Has(const CProcessResult& result, const std::string& text)
{
    return result.out.find(text) != std::string::npos;
}

TEST(IncludeStairs, ThisTreeGoesDownOnly)
{
    const CProcessResult result = Look(KZA_SOURCE_DIR);
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_EQ(result.out, "");
}

TEST(IncludeStairs, SmallTreeThatGoesDownPasses)
{
    const CProcessResult result = CSources().LookAt();
    EXPECT_EQ(result.status, 0) << result.out << result.err;
    EXPECT_EQ(result.out, "");
}

TEST(IncludeStairs, IncludeThatGoesUpIsNamed)
{
    const struct
    {
        const char* from;
        const char* to;
        const char* name; // of `to`, as the include has it
    } cases[] = {
        {"core/src/base/Low.cpp", "core/src/log/High.h", "log/High.h"},
        {"core/src/process/linux/Low.cpp", "core/src/archive/High.h",
         "archive/High.h"},
        {"core/src/log/Low.h", "core/src/crash/High.h", "crash/High.h"},
        {"core/src/lua/Low.h", "apps/one/High.h", "apps/one/High.h"},
        {"core/src/domain/Low.h", "core/include/kza_core/Log.h",
         "kza_core/Log.h"},
        {"core/include/kza_core/Export.h", "core/src/domain/High.h",
         "domain/High.h"},
    };
    for (const auto& one : cases)
    {
        SCOPED_TRACE(one.from);
        const CSources tree;
        if (std::string(one.to).find("High") != std::string::npos)
            tree.Write(one.to, "");
        tree.Write(one.from, "\n" + Include(one.name));
        const CProcessResult result = tree.LookAt();
        EXPECT_EQ(result.status, 1) << result.err;
        EXPECT_TRUE(Has(result, std::string(one.from) + ":2: ") &&
                    Has(result, one.to))
            << result.out;
    }
}

TEST(IncludeStairs, AngleBracketsHideNothing)
{
    const CSources tree;
    tree.Write("core/src/base/Low.h", "#include <kza_core/Log.h>\n");
    const CProcessResult result = tree.LookAt();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(Has(result, "core/src/base/Low.h:1: "
                            "includes core/include/kza_core/Log.h"))
        << result.out;
}

TEST(IncludeStairs, FilesThatIncludeEachOtherAreNamed)
{
    const CSources tree;
    tree.Write("core/src/log/Sink.h", "");
    tree.Write("core/src/log/Sink.cpp",
               Include("log/Sink.h") + Include("log/Line.h"));
    tree.Write("core/src/log/linux/Line.cpp",
               Include("log/Line.h") + Include("log/Sink.h"));
    const CProcessResult result = tree.LookAt();
    EXPECT_EQ(result.status, 1) << result.err;
    EXPECT_EQ(result.out,
              "files that include each other:\n"
              "  core/src/log/linux/Line.cpp:2: includes core/src/log/Sink.h\n"
              "  core/src/log/Sink.cpp:2: includes core/src/log/Line.h\n");
}

TEST(IncludeStairs, CycleThroughSeveralFilesOfAnApplicationIsNamed)
{
    const CSources tree;
    tree.Write("apps/one/steps/Step.h", Include("steps/Next.h"));
    tree.Write("apps/one/steps/Next.h", Include("Last.h"));
    tree.Write("apps/one/Last.h", Include("steps/Step.h"));
    const CProcessResult result = tree.LookAt();
    EXPECT_EQ(result.status, 1) << result.err;
    for (const char* const file :
         {"apps/one/steps/Step.h:1", "apps/one/steps/Next.h:1",
          "apps/one/Last.h:1"})
        EXPECT_TRUE(Has(result, file)) << result.out;
}

TEST(IncludeStairs, PathThatStartsAtNoRootIsNamed)
{
    const CSources tree;
    tree.Write("core/src/log/Near.h", Include("Line.h"));
    const CProcessResult result = tree.LookAt();
    EXPECT_EQ(result.status, 1) << result.err;
    EXPECT_TRUE(Has(result, "core/src/log/Near.h:1: Line.h")) << result.out;
}

TEST(IncludeStairs, HeaderMayBeMadeOfATemplate)
{
    const CSources tree;
    tree.Write("core/include/kza_core/Made.h.in", "");
    tree.Write("core/src/log/Near.h", Include("kza_core/Made.h"));
    const CProcessResult result = tree.LookAt();
    EXPECT_EQ(result.status, 0) << result.out << result.err;
}

TEST(IncludeStairs, FolderWithoutAPlaceIsNamed)
{
    const CSources tree;
    tree.Write("core/src/attic/Old.h", "");
    const CProcessResult result = tree.LookAt();
    EXPECT_EQ(result.status, 1) << result.err;
    EXPECT_TRUE(Has(result, "core/src/attic/Old.h")) << result.out;
}

TEST(IncludeStairs, TreeWithoutSourcesIsAMistake)
{
    const CTempDir empty;
    EXPECT_EQ(Look(empty.Path()).status, 2);
}

} // namespace
