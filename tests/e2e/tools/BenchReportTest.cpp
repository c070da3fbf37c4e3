// SPDX-License-Identifier: Apache-2.0
//
// The table and the picture that bench/report makes of benchmarks' rows.

#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using namespace TestSupport;

namespace
{

constexpr char kRows[] = "ROW\tstart\t9 ms\t8 ms\t1.1\t<=1.15\n"
                         "ROW\tcheck\t3 ns\t1 ns\t3.0\tours<=2\n"
                         "ROW\tspeed\t8 MB/s\t10 MB/s\t0.8\t>=0.7\n"
                         "ROW\tlonely\t5\t\t\t\n";

CProcessResult Report(const std::string& rows,
                      const std::vector<std::string>& words = {})
{
    std::vector<std::string> command = {KZA_SOURCE_DIR "/bench/report"};
    command.insert(command.end(), words.begin(), words.end());
    CProcessOptions options;
    options.input = rows;
    return Run(command, options);
}

TEST(BenchReport, TableSaysWhichBoundsAreKept)
{
    const CProcessResult result = Report(kRows);
    EXPECT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "question    ours     peer  ratio  bound    \n"
                          "start       9 ms     8 ms    1.1  <=1.15   ok\n"
                          "check       3 ns     1 ns    3.0  ours<=2  MISSED\n"
                          "speed     8 MB/s  10 MB/s    0.8  >=0.7    ok\n"
                          "lonely         5                           -\n");
}

TEST(BenchReport, ChartShowsEveryRowWithARatio)
{
    const CTempDir dir;
    const CProcessResult result =
        Report(kRows, {"--chart", dir.File("chart.svg")});
    EXPECT_EQ(result.status, 0) << result.err;
    const std::string chart = ReadFile(dir.File("chart.svg"));
    EXPECT_EQ(chart.find("<?xml"), 0U);
    for (const char* const label :
         {"start   9 ms / 8 ms", "check   3 ns / 1 ns", "speed   8 MB/s"})
        EXPECT_NE(chart.find(label), std::string::npos) << label << chart;
    EXPECT_EQ(chart.find("lonely"), std::string::npos);
    EXPECT_NE(chart.find("</svg>"), std::string::npos);
}

TEST(BenchReport, ChartOfNothingIsAFailureAndLeavesTheFileAlone)
{
    const CTempDir dir;
    WriteFile(dir.File("chart.svg"), "before");
    const CProcessResult result =
        Report("ROW\tlonely\t5\t\t\t\n", {"--chart", dir.File("chart.svg")});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "report: there is no ratio to draw\n");
    EXPECT_EQ(ReadFile(dir.File("chart.svg")), "before");
}

} // namespace
