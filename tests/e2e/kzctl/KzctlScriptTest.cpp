// SPDX-License-Identifier: Apache-2.0
//
// The shell script that starts kzctl, and the directory that it makes for that.

#include "support/Host.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

// kzctl whose temporary files lie in the given directory.
CProcessOptions TemporaryFilesIn(const std::string& directory)
{
    CProcessOptions options;
    options.env = {{"TMPDIR", directory}};
    return options;
}

TEST(KzctlScript, LeavesNothingBehind)
{
    const CTempDir dir;
    const std::string kzctl = KZA_STAGE_DIR "/kzctl";
    const std::string work = dir.File("work");
    EXPECT_EQ(TestSupport::Run(
                  {kzctl, "--workdir", work, "--appname", "nowhere", "status"},
                  TemporaryFilesIn(dir.Path()))
                  .status,
              3);
    EXPECT_TRUE(fs::is_empty(dir.Path()));

    WriteFile(work + "/log/nowhere.log", "");
    CProcess follow(
        {kzctl, "--workdir", work, "--appname", "nowhere", "log", "-f"},
        TemporaryFilesIn(dir.Path()));
    const auto entries = [&dir]
    {
        return std::distance(fs::directory_iterator(dir.Path()),
                             fs::directory_iterator());
    };
    ASSERT_TRUE(WaitUntil([&] { return entries() == 2; }));
    // The script passes it on once the tool is there to take it.
    EXPECT_TRUE(WaitUntil(
        [&]
        {
            follow.Signal(SIGTERM);
            return follow.HasEnded();
        }));
    EXPECT_EQ(entries(), 1) << "the work directory alone";
}

TEST(KzctlScript, NeedsNoRoomForTemporaryFiles)
{
    const CProcessResult help = TestSupport::Run(
        {KZA_STAGE_DIR "/kzctl", "help"}, TemporaryFilesIn("/nowhere"));
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.err, "");
}

} // namespace
