// SPDX-License-Identifier: Apache-2.0
//
// How an exception that nothing caught is described.

#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>

using namespace TestSupport;

namespace
{

// The traces of the hook, without the place in the source.
std::vector<std::string> Traced(const CService& service)
{
    std::vector<std::string> traced;
    for (const std::string& record : service.Records())
    {
        const std::size_t at = record.find("OnUnhandledException OnUnh");
        if (at != std::string::npos)
            traced.push_back(record.substr(at + 21));
    }
    return traced;
}

// The watchdog throws as it waits for its worker.
CServiceOptions Throwing(const char* type, const char* trace)
{
    CServiceOptions options;
    options.withFaults = true;
    options.process.env = {{"KZA_WAIT_THROW", type}};
    options.arguments = {"--trace", trace};
    return options;
}

TEST(UnhandledException, EveryTypeIsDescribed)
{
    const struct
    {
        const char* type;
        const char* description;
    } table[] = {
        {"runtime_error", "std::exception of type \"St13runtime_error\", "
                          "what() = \"what it was\""},
        {"text", "char * exception 'a text'"},
        {"wide text", "wchar_t * exception 'a wide text'"},
        {"int", "int exception -1"},
        {"unsigned int", "unsigned int exception 4294967295"},
        {"long", "long exception -2"},
        {"unsigned long", "unsigned long exception 18446744073709551615"},
        {"long long", "long long exception -3"},
        {"unsigned long long",
         "unsigned long long exception 18446744073709551614"},
        {"double", "<unknown exception>"},
    };
    for (const auto& row : table)
    {
        SCOPED_TRACE(row.type);
        const CService service("throws");
        service.SetModule("return {}");
        ASSERT_TRUE(
            service.StartUntil("terminating app.", Throwing(row.type, "Appl")));
        const std::vector<std::string> expected = {
            "OnUnhandledException()",
            "OnUnhandledException() - caught unhandled " +
                std::string(row.description) + ", terminating app."};
        EXPECT_EQ(Traced(service), expected);
    }
}

TEST(UnhandledException, ComesAfterTheExitReportAndEndsWith255)
{
    const CService service;
    service.SetModule("return {}");
    ASSERT_TRUE(
        service.StartUntil("terminating app.", Throwing("int", "Appl")));
    const std::string log = service.Log();
    EXPECT_LT(log.find("exiting. Run time was"),
              log.find("OnUnhandledException()"));
    EXPECT_EQ(CService::StatusOf(service.PidFromFile()), 255);
}

TEST(UnhandledException, IsSilentWithoutTheTrace)
{
    const CService service("throws");
    service.SetModule("return {}");
    ASSERT_EQ(service.Start(Throwing("int", "Other")).status, 0);
    ASSERT_TRUE(WaitUntil([&] { return service.PidFromFile() != 0; }));
    const pid_t watchdog = service.PidFromFile();
    EXPECT_EQ(CService::StatusOf(watchdog), 255);
    // The worker that is left says that it stops; the watchdog said nothing
    // after it had started it.
    const std::string byWatchdog = "[" + std::to_string(watchdog) + ":";
    EXPECT_LE(CountOf(service.Log(), byWatchdog),
              CountOf(service.Log(), " started\n"))
        << service.Log();
}

} // namespace
