// SPDX-License-Identifier: Apache-2.0
//
// The library as another program finds it: installed into a prefix of the
// test's own, its headers, its names, and a program over it.

#include "support/Process.h"
#include "support/TempDir.h"

#include "kza_core/Version.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>
#include <sstream>

using namespace TestSupport;
namespace fs = std::filesystem;

namespace
{

const std::string kExample = KZA_SOURCE_DIR "/examples/embed";

// What a program that ended with another status said.
std::string FailureOf(const CProcessResult& result)
{
    return result.status == 0 ? "" : result.out + result.err;
}

std::string Ask(std::vector<std::string> words,
                const CProcessOptions& options = {})
{
    words.insert(words.begin(), "/usr/bin/env");
    const CProcessResult result = Run(words, options);
    EXPECT_EQ(FailureOf(result), "");
    return result.out;
}

std::vector<std::string> WordsIn(const std::string& text)
{
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

class InstalledLibrary : public testing::Test
{
protected:
    void SetUp() override
    {
        for (const char* component : {"agent", "dev"})
            Ask({KZA_CMAKE, "--install", KZA_BINARY_DIR, "--component",
                 component, "--prefix", Prefix()});
    }

    [[nodiscard]] std::string Prefix() const { return m_dir.File("prefix"); }
    [[nodiscard]] std::string Work() const { return m_dir.File("work"); }
    [[nodiscard]] std::string Build() const { return m_dir.File("build"); }
    [[nodiscard]] std::string Program() const { return m_dir.File("program"); }

    // The compiler that built the library, with what its sanitizers need.
    [[nodiscard]] std::vector<std::string> Compiler() const
    {
        std::vector<std::string> words = {KZA_CXX, "-std=c++17"};
        if (*KZA_SANITIZE)
            words.push_back("-fsanitize=" KZA_SANITIZE);
        return words;
    }

    [[nodiscard]] std::string PkgConfig(
        const std::string& prefix,
        const std::vector<std::string>& options) const
    {
        CProcessOptions environment;
        environment.env = {
            {"PKG_CONFIG_PATH", m_dir.File(prefix) + "/lib/pkgconfig"}};
        std::vector<std::string> words = {"pkg-config"};
        words.insert(words.end(), options.begin(), options.end());
        words.emplace_back("kza_core");
        return Ask(words, environment);
    }

    [[nodiscard]] std::string Configure(
        const std::vector<std::string>& options) const
    {
        std::vector<std::string> words = {
            KZA_CMAKE,
            "-G",
            "Ninja",
            "-S",
            kExample,
            "-B",
            Build(),
            std::string("-DCMAKE_CXX_COMPILER=") + KZA_CXX,
            std::string("-DCMAKE_C_COMPILER=") + KZA_CC};
        if (*KZA_SANITIZE)
            words.emplace_back("-DCMAKE_CXX_FLAGS=-fsanitize=" KZA_SANITIZE);
        words.insert(words.end(), options.begin(), options.end());
        return FailureOf(TestSupport::Run(words));
    }

    // Lets the example run, which has its domain, log, thread and Lua state
    // tell of each other.
    void ExpectItRuns(const std::string& program) const
    {
        fs::create_directory(Work());
        const CProcessResult result = TestSupport::Run({program, Work()});
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.out, "Lua was told 49\n");
        const std::string log = ReadFile(Work() + "/log/embed.log");
        EXPECT_NE(log.find("] MESSAGE kza: Over version " KZA_CORE_VERSION
                           " of the library\n"),
                  std::string::npos)
            << log;
        EXPECT_NE(log.find("] MESSAGE kza: The thread is asked about 7\n"),
                  std::string::npos)
            << log;
    }

    CTempDir m_dir;
};

TEST_F(InstalledLibrary, IsFoundByCMake)
{
    ASSERT_EQ(Configure({"-DCMAKE_PREFIX_PATH=" + Prefix()}), "");
    Ask({KZA_CMAKE, "--build", Build()});
    ExpectItRuns(Build() + "/embed");
}

TEST_F(InstalledLibrary, OfAnotherVersionIsNotFoundByCMake)
{
    std::string project = ReadFile(kExample + "/CMakeLists.txt");
    project.replace(project.find("12.0"), 4, "12.1");
    WriteFile(m_dir.File("CMakeLists.txt"), project);
    const std::string said = FailureOf(
        TestSupport::Run({KZA_CMAKE, "-S", m_dir.Path(), "-B", Build(),
                          "-DCMAKE_PREFIX_PATH=" + Prefix()}));
    EXPECT_NE(said.find("version: " KZA_CORE_VERSION), std::string::npos)
        << said;
}

TEST_F(InstalledLibrary, IsFoundByPkgConfigAndCanBeMoved)
{
    fs::rename(Prefix(), m_dir.File("moved"));
    EXPECT_EQ(PkgConfig("moved", {"--modversion"}), KZA_CORE_VERSION "\n");

    std::vector<std::string> words = Compiler();
    words.push_back(kExample + "/main.cpp");
    for (const std::string& word :
         WordsIn(PkgConfig("moved", {"--cflags", "--libs"})))
        words.push_back(word);
    words.insert(words.end(), {"-o", Program()});
    Ask(words);
    ExpectItRuns(Program());
}

// The library is not built here, which would take as long as the whole tree.
TEST_F(InstalledLibrary, IsBuiltAlongFromItsSourceWithoutTheAgent)
{
    ASSERT_EQ(Configure({"-DKZA_SOURCE=" KZA_SOURCE_DIR}), "");
    const std::string inputs =
        Ask({"ninja", "-C", Build(), "-t", "inputs", "embed"});
    EXPECT_NE(inputs.find("libkza_core.so"), std::string::npos) << inputs;
    EXPECT_EQ(
        Ask({"ninja", "-C", Build(), "-t", "targets", "all"}).find("kz_agent"),
        std::string::npos);
}

TEST_F(InstalledLibrary, IsNeededByItsVersion)
{
    const std::string needed = Ask({"readelf", "-d", Prefix() + "/kz_agent"});
    EXPECT_NE(needed.find("[libkza_core.so.12.0.0]"), std::string::npos)
        << needed;
}

// The names at which a library's symbols can be looked up, as in the source.
std::set<std::string> Exported(const std::string& library)
{
    std::istringstream lines(Ask({"nm", "-DC", "--defined-only", library}));
    std::set<std::string> names;
    for (std::string line; std::getline(lines, line);)
    {
        const std::string name = line.substr(line.find(' ') + 3);
        if (name[0] != '_' || name[1] == '_')
            names.insert(name);
    }
    return names;
}

std::string PublicHeaders(const std::string& prefix)
{
    std::string text;
    for (const auto& header : fs::directory_iterator(prefix + "/include/"
                                                              "kza_core"))
        if (header.path().filename() != "Export.h")
            text += ReadFile(header.path());
    return text;
}

// What the headers mark for export: classes and functions.
std::set<std::string> Marked(const std::string& headers)
{
    const std::regex mark("(class|struct) KZA_API "
                          "(\\w+)|KZA_API[\\w\\s:&*]*?(\\w+)(\\[\\])?[(;]");
    std::set<std::string> names;
    for (std::sregex_iterator match(headers.begin(), headers.end(), mark), end;
         match != end; ++match)
        names.insert((*match)[2].matched ? (*match)[2].str()
                                         : (*match)[3].str());
    return names;
}

// The name by which a header marks an exported symbol: that of its class, or
// its own.
std::string MarkOf(const std::string& symbol)
{
    std::smatch match;
    const std::regex name(
        "(?:(?:vtable|typeinfo(?: name)?) for )?(?:KzaCore::)?"
        "(?:OpenSSLCompat::)?(\\w+)(?:\\W.*)?");
    return std::regex_match(symbol, match, name) ? match[1].str() : symbol;
}

TEST_F(InstalledLibrary, ExportsTheNamesOfItsHeadersAlone)
{
    std::set<std::string> exported;
    for (const std::string& symbol : Exported(Prefix() + "/lib/libkza_core.so"))
        exported.insert(MarkOf(symbol));
    std::set<std::string> marked = Marked(PublicHeaders(Prefix()));
    if (!*KZA_DUMP_PROCESSOR)
        marked.erase("kza_crash_note");
    EXPECT_EQ(exported, marked);
}

} // namespace
