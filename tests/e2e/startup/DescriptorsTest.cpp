// SPDX-License-Identifier: Apache-2.0
//
// The agent started with some of the three standard descriptors closed.

#include "e2e/service/WaitingService.h"

#include "support/Host.h"
#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <unistd.h>

using namespace TestSupport;

namespace
{

// Lists where the agent's descriptors 0 to 2 lead, one a line, in the file
// after "--"; fails when a child cannot use its own.
constexpr char kShowDescriptors[] = R"lua(
local tool = {}
function tool.main()
  assert(os.execute("for n in 0 1 2; do readlink /proc/$PPID/fd/$n; done > '"
    .. arg[1] .. "'"))
  assert(os.execute("cat && echo output && echo error >&2"))
  local child = assert(io.popen("cat"))
  assert(child:read("*a") == "")
  assert(child:close())
  assert(io.write("written\n"))
end
return tool
)lua";

using Descriptors = std::vector<int>;

CProcessOptions WithClosed(const Descriptors& closed)
{
    CProcessOptions options;
    options.inChild = [closed]
    {
        for (const int fd : closed)
            close(fd);
    };
    return options;
}

TEST(Descriptors, AClosedOneLeadsToTheNullDevice)
{
    const CHost host(false);
    const std::string list = host.File("list");
    for (const Descriptors& closed :
         {Descriptors{0}, Descriptors{1}, Descriptors{2}, Descriptors{0, 2},
          Descriptors{0, 1, 2}})
    {
        SCOPED_TRACE(testing::PrintToString(closed));
        EXPECT_EQ(host.RunTool("closed", kShowDescriptors, {"--", list},
                               WithClosed(closed))
                      .status,
                  0);
        const std::vector<std::string> targets = ReadLines(list);
        ASSERT_EQ(targets.size(), 3U);
        for (const int fd : closed)
            EXPECT_EQ(targets[static_cast<std::size_t>(fd)], "/dev/null");
    }
}

TEST(Descriptors, ThoseThatAreOpenStay)
{
    const CHost host(false);
    const CProcessResult result = host.RunTool(
        "open", kShowDescriptors, {"--", host.File("list")}, WithClosed({0}));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "output\nwritten\n");
    EXPECT_EQ(result.err, "error\n");
}

// True when a lock on the file would have to wait for another process.
bool IsLocked(const std::string& path)
{
    struct flock lock
    {
    };
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    const int fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
    const bool asked = fcntl(fd, F_OFD_GETLK, &lock) == 0;
    close(fd);
    return asked && lock.l_type != F_UNLCK;
}

// The daemon replaces descriptors 0 to 2 before it writes its pid file.
TEST(Descriptors, TheClaimOnThePidFileLastsUntilItIsWritten)
{
    const CService service;
    service.SetModule(kWaitingMain);
    for (const Descriptors& closed :
         {Descriptors{0}, Descriptors{1}, Descriptors{0, 1, 2}})
    {
        SCOPED_TRACE(testing::PrintToString(closed));
        const std::string goOn = service.Host().File(
            "go-on-" + std::to_string(closed[0] + closed.size()));
        CServiceOptions options;
        options.withFaults = true;
        options.process = WithClosed(closed);
        options.process.env = {{"KZA_HOLD", "rename"}, {"KZA_HOLD_FILE", goOn}};
        EXPECT_EQ(service.Start(options).status, 0);
        ASSERT_TRUE(WaitUntil([&] { return FileExists(goOn + ".held"); }));
        EXPECT_TRUE(IsLocked(service.PidFile() + ".lock"));
        WriteFile(goOn, "");
        ASSERT_TRUE(WaitUntil([&] { return service.PidFromFile() > 0; }));
        ASSERT_TRUE(service.WaitUntilDetached());
        EXPECT_TRUE(service.Stop());
    }
}

} // namespace
