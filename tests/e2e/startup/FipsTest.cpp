// SPDX-License-Identifier: Apache-2.0
//
// FIPS mode on request, with the real library and providers of the tests.

#include "support/Service.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <ostream>
#include <utility>

using namespace TestSupport;

namespace
{

namespace fs = std::filesystem;

const std::string kNotSupported =
    "WARNING kza: Tried to enter FIPS mode but failed: "
    "error:0F06D065:common libcrypto routines:FIPS_mode_set:fips mode not "
    "supported";
const std::string kRefused = "ERROR kza: Failed to enter FIPS mode. Exiting.";

// How the probe's text begins in FIPS mode.
constexpr char kFipsIsOn[] = "fips true, SHA256 from fips";

// The agent's installation in a directory of its own, so that what lies beside
// its libraries is the test's.
class CFipsHost
{
public:
    CFipsHost() { fs::copy(KZA_BINARY_DIR "/tests/ossl_probe.so", Probe()); }

    [[nodiscard]] const CHost& Host() const { return m_service.Host(); }
    [[nodiscard]] const CService& Service() const { return m_service; }

    // Places a provider of that role as fips.so.
    void Place(const std::string& role, const std::string& directory) const
    {
        const std::string to = Host().File(directory);
        fs::create_directories(to);
        fs::copy(KZA_BINARY_DIR "/tests/fips/" + role + "/fips.so",
                 to + "/fips.so");
    }

    // Runs a tool that says what OpenSSL does; `mode` is app.fipsmode.
    [[nodiscard]] CProcessResult Run(const std::string& mode,
                                     const CProcessOptions& options = {}) const
    {
        return Host().RunTool(
            "probe", kProbe,
            {"--domain_var", "app.fipsmode=" + mode, "--trace", "Appl"},
            options);
    }

    // Whether a tool that asks for FIPS mode runs in it.
    [[nodiscard]] bool HasFipsMode(const CProcessOptions& options = {}) const
    {
        return Run("1", options).out.find(kFipsIsOn) == 0;
    }

    // Expects that a tool which asks for FIPS mode ends before its script runs,
    // for this error.
    void ExpectRefused(const std::string& error,
                       const CProcessOptions& options = {}) const
    {
        const CProcessResult result = Run("1", options);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "") << "the script ran";
        const Lines expected = {
            Engines(),
            "WARNING kza: Tried to enter FIPS mode but failed: error:" + error,
            kRefused};
        EXPECT_EQ(Said(), expected);
    }

    // What the FIPS step said, traces by their text alone.
    [[nodiscard]] std::vector<std::string> Said() const
    {
        std::vector<std::string> said;
        for (const std::string& line :
             ReadLogLines(Host().File("work/log/probe.log")))
        {
            const std::string record = RecordText(line);
            if (record.find("FIPS") == std::string::npos &&
                record.find("OPENSSL") == std::string::npos)
                continue;
            const std::size_t at = record.find("EnterFipsMode ");
            said.push_back(at == std::string::npos ? record
                                                   : record.substr(at + 14));
        }
        return said;
    }

    // The record about the variable OPENSSL_ENGINES.
    [[nodiscard]] std::string Engines() const
    {
        return "INFO kza: OPENSSL_ENGINES = " + Host().Bin() + "/engines";
    }

    static constexpr char kProbe[] = R"lua(
local probe = require("ossl_probe")
local text = string.format("fips %s, SHA256 from %s, MD5 from %s, engines %s",
  probe.fips(), probe.digest("SHA256"), probe.digest("MD5"),
  os.getenv("OPENSSL_ENGINES"))
return { main = function()
  require("mainloop").wait()
  print(text)
  dom:Log("message", text)
end }
)lua";

private:
    [[nodiscard]] std::string Probe() const
    {
        fs::create_directories(Host().File("lib/lua"));
        return Host().File("lib/lua/ossl_probe.so");
    }

    CService m_service{"probe"};
};

TEST(Fips, IsOffUnlessRequested)
{
    for (const char* const mode : {"", "0"})
    {
        SCOPED_TRACE(mode);
        const CFipsHost host;
        host.Place("refuses", "ossl-modules");
        const CProcessResult result = host.Run(mode);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "fips false, SHA256 from default, MD5 from "
                              "default, engines nil\n");
        EXPECT_EQ(host.Said(), Lines{"FIPS mode is OFF"});
    }
}

TEST(Fips, InheritedVariableStaysWhileItIsOff)
{
    const CFipsHost host;
    CProcessOptions options;
    options.env = {{"OPENSSL_ENGINES", "/inherited"}};
    EXPECT_EQ(host.Run("0", options).out,
              "fips false, SHA256 from default, MD5 from default, engines "
              "/inherited\n");
}

TEST(Fips, VariableThatCannotBeSetIsAnAssertionAndNoMore)
{
    const CFipsHost host;
    host.Place("usable", "ossl-modules");
    CProcessOptions options;
    options.env = {{"LD_PRELOAD", KZA_BINARY_DIR "/tests/libfaults.so"},
                   {"KZA_FAULT", "setenv"},
                   // The sanitizer wants to be the first library.
                   {"ASAN_OPTIONS", "verify_asan_link_order=0"}};
    const CProcessResult result = host.Run("1", options);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "fips true, SHA256 from fips, MD5 from nil, engines "
                          "nil\n");
    EXPECT_NE(result.err.find("assert \"setEnginesVariable\" failed"),
              std::string::npos)
        << result.err;
    const Lines expected = {host.Engines(), "FIPS mode is ON"};
    EXPECT_EQ(host.Said(), expected);
}

TEST(Fips, AnyOtherTextRequestsIt)
{
    for (const char* const mode :
         {"1", "yes", "no", "off", "false", "00", " 0"})
    {
        SCOPED_TRACE(mode);
        const CFipsHost host;
        host.Place("usable", "ossl-modules");
        const CProcessResult result = host.Run(mode);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "fips true, SHA256 from fips, MD5 from nil, "
                              "engines " +
                                  host.Host().Bin() + "/engines\n");
        const Lines expected = {host.Engines(), "FIPS mode is ON"};
        EXPECT_EQ(host.Said(), expected);
    }
}

TEST(Fips, ConfigurationFileRequestsIt)
{
    const CFipsHost host;
    host.Place("usable", "ossl-modules");
    WriteFile(host.Host().File("work/kz_agent.ini"), "FIPSMode=1\n");
    const CProcessResult result =
        host.Host().RunTool("probe", CFipsHost::kProbe);
    EXPECT_EQ(result.out.find(kFipsIsOn), 0U);
}

TEST(Fips, MissingModuleIsAWarning)
{
    const CFipsHost host;
    CProcessOptions options;
    // A directory that does not exist, so that no provider of the host is
    // found.
    options.env = {{"OPENSSL_MODULES", host.Host().File("none")},
                   {"OPENSSL_ENGINES", "/inherited"}};
    const CProcessResult result = host.Run("1", options);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "fips false, SHA256 from default, MD5 from default, "
                          "engines " +
                              host.Host().Bin() + "/engines\n");
    const Lines expected = {host.Engines(), kNotSupported};
    EXPECT_EQ(host.Said(), expected);
}

struct CRefusal
{
    const char* name;
    const char* role; ///< null for a file that is no library
    const char* file; ///< null, or the module's configuration
    const char* content;
    const char* error;
};

void PrintTo(const CRefusal& refusal, std::ostream* out)
{
    *out << refusal.name;
}

class FipsRefusal : public testing::TestWithParam<CRefusal>
{
};

TEST_P(FipsRefusal, EndsTheRunWithZero)
{
    const CRefusal& refusal = GetParam();
    const CFipsHost host;
    if (refusal.role != nullptr)
        host.Place(refusal.role, "ossl-modules");
    else
        WriteFile(host.Host().File("ossl-modules/fips.so"), "no library\n");
    if (refusal.file != nullptr)
        WriteFile(host.Host().File(refusal.file), refusal.content);

    host.ExpectRefused(refusal.error);
}

const CRefusal kRefusals[] = {
    {"NoLibrary", nullptr, nullptr, nullptr,
     "12800067:DSO support routines::could not load the shared library"},
    {"RefusesToLoad", "refuses", nullptr, nullptr,
     "078C0105:common libcrypto routines::init fail"},
    {"SelfTest", "self_test", nullptr, nullptr,
     "1C8000D8:Provider routines::self test post failure"},
    {"NoConfiguration", "configured", nullptr, nullptr,
     "1C8000D5:Provider routines::missing config data"},
    {"Integrity", "configured", "ossl-modules/fipsmodule.cnf",
     "[fips_sect]\nmodule-mac = 00:00\n",
     "1C8000D6:Provider routines::module integrity failure"},
    {"IntegrityOfAnActivatedModule", "configured",
     "ossl-modules/fipsmodule.cnf",
     "[fips_sect]\nactivate = 1\nmodule-mac = 00:00\n",
     "1C8000D6:Provider routines::module integrity failure"},
    {"IntegrityInAWholeConfiguration", "configured", "ossl-modules/openssl.cnf",
     "openssl_conf = start\n[start]\nproviders = all\n[all]\nmy.fips = it\n"
     "[it]\nmodule-mac = 00:00\nactivate = 1\n",
     "1C8000D6:Provider routines::module integrity failure"},
    {"NoConfigurationOfAnActivatedModule", "configured", "openssl.cnf",
     "openssl_conf = start\n[start]\nproviders = all\n[all]\nfips = it\n"
     "[it]\nactivate = 1\n",
     "1C8000D5:Provider routines::missing config data"},
    {"BrokenConfiguration", "usable", "ossl-modules/fipsmodule.cnf",
     "[fips_sect\n",
     "07000064:configuration file routines::missing close square bracket"},
};

INSTANTIATE_TEST_SUITE_P(Fips,
                         FipsRefusal,
                         testing::ValuesIn(kRefusals),
                         [](const auto& test)
                         { return std::string(test.param.name); });

// Where an operator may place the module and its configuration.
struct CPlace
{
    const char* module;
    const char* file;
    const char* content;
};

constexpr char kModuleFile[] = "[fips_sect]\n"
                               "activate = 1\n"
                               "module-mac = CA:FE\n";
constexpr char kWholeFile[] = "openssl_conf = start\n"
                              "[start]\nproviders = all\n"
                              "[all]\nfips = it\ndefault = other\n"
                              "[it]\nmodule-mac = CA:FE\n"
                              "[other]\nactivate = 1\n";

TEST(Fips, ModuleAndConfigurationAreFoundBesideTheLibraries)
{
    const CPlace places[] = {
        {"ossl-modules", "ossl-modules/fipsmodule.cnf", kModuleFile},
        {"ossl-modules", "fipsmodule.cnf", kModuleFile},
        {"ossl-modules", "ossl-modules/openssl.cnf", kWholeFile},
        {"ossl-modules", "openssl.cnf", kWholeFile},
        {"engines", "engines/fipsmodule.cnf", kModuleFile},
    };
    for (const CPlace& place : places)
    {
        SCOPED_TRACE(place.file);
        const CFipsHost host;
        host.Place("configured", place.module);
        WriteFile(host.Host().File(place.file), place.content);
        EXPECT_TRUE(host.HasFipsMode());
        EXPECT_EQ(host.Said().back(), "FIPS mode is ON");
    }
}

// OpenSSL's variables, with names within the test's installation.
CProcessOptions Environment(const CFipsHost& host,
                            const std::string& modules,
                            const char* configuration = nullptr)
{
    CProcessOptions options;
    options.env = {{"OPENSSL_MODULES", host.Host().File(modules)}};
    if (configuration != nullptr)
        options.env.emplace_back("OPENSSL_CONF",
                                 host.Host().File(configuration));
    return options;
}

TEST(Fips, EnvironmentGoesBeforeWhatLiesBesideTheLibraries)
{
    const CFipsHost host;
    host.Place("refuses", "ossl-modules");
    host.Place("configured", "elsewhere");
    WriteFile(host.Host().File("elsewhere/my.cnf"), kWholeFile);
    EXPECT_TRUE(
        host.HasFipsMode(Environment(host, "elsewhere", "elsewhere/my.cnf")));
}

TEST(Fips, DirectoryOfTheEnvironmentWithoutAModuleIsPassedOver)
{
    for (const char* const place : {"ossl-modules", "engines"})
    {
        SCOPED_TRACE(place);
        const CFipsHost host;
        host.Place("configured", place);
        WriteFile(host.Host().File(std::string(place) + "/fipsmodule.cnf"),
                  kModuleFile);
        EXPECT_TRUE(host.HasFipsMode(Environment(host, "none")));
    }
}

TEST(Fips, ConfigurationBesideTheModuleOfTheEnvironmentIsRead)
{
    for (const auto& [file, content] :
         {std::pair("elsewhere/fipsmodule.cnf", kModuleFile),
          std::pair("elsewhere/openssl.cnf", kWholeFile),
          std::pair("fipsmodule.cnf", kModuleFile)})
    {
        SCOPED_TRACE(file);
        const CFipsHost host;
        host.Place("configured", "elsewhere");
        WriteFile(host.Host().File(file), content);
        EXPECT_TRUE(host.HasFipsMode(Environment(host, "elsewhere")));
    }
}

TEST(Fips, FaultOfTheModuleThatTheEnvironmentActivatesIsNamed)
{
    const CFipsHost host;
    host.Place("configured", "elsewhere");
    WriteFile(host.Host().File("my.cnf"),
              "openssl_conf = start\n[start]\nproviders = all\n"
              "[all]\nfips = it\n[it]\nactivate = 1\nmodule-mac = 00:00\n");
    host.ExpectRefused("1C8000D6:Provider routines::module integrity failure",
                       Environment(host, "elsewhere", "my.cnf"));
}

TEST(Fips, FaultyConfigurationOfTheEnvironmentIsNamed)
{
    const CFipsHost host;
    host.Place("usable", "ossl-modules");
    WriteFile(host.Host().File("my.cnf"), "[start\n");
    host.ExpectRefused(
        "07000064:configuration file routines::missing close square bracket",
        Environment(host, "none", "my.cnf"));
}

TEST(Fips, OtherFaultsInTheEnvironmentsConfigurationDoNotCount)
{
    const CFipsHost host;
    host.Place("configured", "ossl-modules");
    WriteFile(host.Host().File("my.cnf"),
              "openssl_conf = start\n[start]\nunknown = x\nproviders = all\n"
              "[all]\nfips = it\n[it]\nactivate = 1\nmodule-mac = CA:FE\n");
    EXPECT_TRUE(host.HasFipsMode(Environment(host, "none", "my.cnf")));
}

TEST(Fips, NoConfigurationIsReadWhileItIsOff)
{
    const CFipsHost host;
    // With the base provider alone there are no algorithms.
    WriteFile(host.Host().File("my.cnf"),
              "openssl_conf = start\n[start]\nproviders = all\n"
              "[all]\nbase = it\n[it]\nactivate = 1\n");
    EXPECT_EQ(host.Run("0", Environment(host, "none", "my.cnf")).out,
              "fips false, SHA256 from default, MD5 from default, engines "
              "nil\n");
}

TEST(Fips, OddCharactersInThePathAreNoSyntax)
{
    const CTempDir dir;
    const CFipsHost host;
    const std::string odd = dir.File("a b#$x'\"\\ü");
    fs::create_directories(odd);
    fs::copy(host.Host().Bin(), odd + "/root", fs::copy_options::recursive);
    fs::create_directories(odd + "/root/ossl-modules");
    fs::copy(KZA_BINARY_DIR "/tests/fips/configured/fips.so",
             odd + "/root/ossl-modules/fips.so");
    WriteFile(odd + "/root/ossl-modules/fipsmodule.cnf", kModuleFile);
    WriteFile(odd + "/root/lua/probe.lua", CFipsHost::kProbe);
    const CProcessResult result =
        TestSupport::Run({odd + "/root/kz_agent", "--appname", "probe",
                          "--domain_var", "app.fipsmode=1"});
    EXPECT_EQ(result.out.find(kFipsIsOn), 0U) << result.out << result.err;
}

TEST(Fips, WorkersInheritIt)
{
    const CFipsHost host;
    const CService& service = host.Service();
    host.Place("configured", "ossl-modules");
    WriteFile(host.Host().File("ossl-modules/fipsmodule.cnf"), kModuleFile);
    service.SetModule(CFipsHost::kProbe);
    CServiceOptions options;
    options.arguments = {"--domain_var", "app.fipsmode=1"};
    ASSERT_TRUE(service.StartUntil(kFipsIsOn, options));
    kill(service.Worker(), SIGKILL);
    EXPECT_TRUE(service.WaitForLog(kFipsIsOn, 2));
    EXPECT_TRUE(service.Stop());
}

TEST(Fips, RefusalStartsNoDaemonAndReportsTheRunTime)
{
    const CService service;
    service.SetModule("return {}");
    fs::create_directories(service.Host().File("ossl-modules"));
    WriteFile(service.Host().File("ossl-modules/fips.so"), "no library\n");
    CServiceOptions options;
    options.arguments = {"--domain_var", "app.fipsmode=1"};
    EXPECT_EQ(service.Start(options).status, 0);
    EXPECT_TRUE(fs::is_empty(service.RunDir()));
    EXPECT_TRUE(service.Processes().empty());
    Lines said = service.Records();
    EXPECT_EQ(said.at(said.size() - 2), kRefused);
    EXPECT_EQ(said.back().find(
                  "INFO kza: KZA 12.0.0.2932 exiting. Run time was 0d 00:00:0"),
              0U);
}

} // namespace
