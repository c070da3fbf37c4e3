// SPDX-License-Identifier: Apache-2.0

#include "e2e/kzctl/Kzctl.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>

#include <unistd.h>

namespace fs = std::filesystem;

namespace TestSupport
{

CKzctl::CKzctl(const char* module, const std::string& name) : m_service(name)
{
    m_service.SetModule(module);
    for (const char* file : {"kzctl", "kza_core"})
        fs::copy(fs::path(KZA_STAGE_DIR) / file, File(file),
                 fs::copy_options::recursive |
                     fs::copy_options::overwrite_existing);
    // The service's application is its module, not the example.
    fs::remove(File("kza_core/kz_agent.kze"));
}

Words CKzctl::CommandLine(const Words& words) const
{
    Words all = {File("kzctl")};
    all.insert(all.end(), words.begin(), words.end());
    return all;
}

CProcessResult CKzctl::Run(const Words& words,
                           const CProcessOptions& options) const
{
    CServiceOptions all;
    all.process = options;
    return TestSupport::Run(CommandLine(words), m_service.Process(all));
}

std::string CKzctl::Member(const Words& words, const std::string& name) const
{
    const std::string out = Run(words).out;
    std::smatch found;
    const std::regex pattern("\"" + name + "\":(\"[^\"]*\"|[^,}]*)");
    return std::regex_search(out, found, pattern) ? found[1].str() : out;
}

void CKzctl::OpenToOthers() const
{
    const fs::path end = fs::canonical(fs::temp_directory_path());
    for (fs::path path = m_service.Host().Bin(); path != end;
         path = path.parent_path())
        fs::permissions(path, fs::perms(0055), fs::perm_options::add);
}

bool CKzctl::Start() const
{
    return m_service.StartUntil(kMainRuns,
                                {{"--domain_var", "control.socket=1"}, {}});
}

CProcessOptions AsNobody()
{
    constexpr int kNobody = 65534;
    CProcessOptions options;
    options.inChild = []
    {
        if (setgid(kNobody) != 0 || setuid(kNobody) != 0)
            _exit(126);
    };
    return options;
}

void ExpectSaid(const CProcessResult& result,
                int status,
                const std::string& out,
                const std::string& err)
{
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, out);
    EXPECT_EQ(result.err, err);
}

void ExpectComplaint(const CProcessResult& result, int status)
{
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.rfind("kzctl: ", 0), 0U) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1)
        << result.err;
    EXPECT_EQ(result.err.find("traceback"), std::string::npos) << result.err;
}

} // namespace TestSupport
