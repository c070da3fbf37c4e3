// SPDX-License-Identifier: Apache-2.0

#include "Sandbox.h"

#include "kza_core/Unzip.h"

#include <wx/filename.h>
#include <wx/init.h>
#include <wx/log.h>
#include <wx/zipstrm.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>

namespace fs = std::filesystem;
using TestSupport::FileExists;
using TestSupport::ReadFile;
using TestSupport::WriteFile;

namespace Fuzz
{

namespace
{

// Counts the records of the log: each refusal is one record.
class CCountingLog : public wxLog
{
public:
    int m_count = 0;

protected:
    void DoLogRecord(wxLogLevel /*level*/,
                     const wxString& /*text*/,
                     const wxLogRecordInfo& /*info*/) override
    {
        ++m_count;
    }
};

CCountingLog* g_log = nullptr;

// Those that Reset() makes.
constexpr int kNames = 5;

void Require(bool isTrue, const char* what)
{
    if (isTrue)
        return;
    std::fprintf(stderr, "violated: %s\n", what);
    std::abort();
}

bool AnswerCB(void* context, const wxZipEntry* entry, const wxString* path)
{
    const auto& dest = *static_cast<const wxString*>(context);
    Require(path->StartsWith(dest + "/"), "every path is in the destination");
    Require(!path->Contains("/../"), "no path leads upwards");
    return entry->GetSize() % 5 != 4; // some are left out
}

} // namespace

CSandbox::CSandbox()
{
    wxInitialize();
    g_log = new CCountingLog;
    delete wxLog::SetActiveTarget(g_log);
    WriteFile(m_secret, "secret");
    fs::create_directory(m_dir.File("outside"));
    Reset();
}

void CSandbox::Reset() const
{
    fs::remove_all(m_dest);
    mkdir(m_dest.c_str(), 0700);
    mkdir((m_dest + "/in").c_str(), 0700);
    symlink("../outside", (m_dest + "/out").c_str());
    symlink("in", (m_dest + "/link").c_str());
    symlink("../secret", (m_dest + "/file").c_str());
    symlink("nowhere", (m_dest + "/dangling").c_str());
}

void CSandbox::Unzip(const std::string& archive)
{
    WriteFile(m_archive, archive);
    const bool areNamesGood = UnzipOnce(true);
    const auto names = fs::recursive_directory_iterator(m_dest);
    Require(std::distance(begin(names), end(names)) == kNames,
            "names alone write nothing");
    const bool isUnpacked = UnzipOnce(false);
    Require(areNamesGood || !isUnpacked, "no bad name is unpacked");
    Reset();
}

bool CSandbox::UnzipOnce(bool namesOnly) const
{
    KzaCore::CUnzipOptions options;
    options.namesOnly = namesOnly;
    g_log->m_count = 0;
    wxString dest = wxString::FromUTF8(m_dest.c_str());
    const wxFileName archive(wxString::FromUTF8(m_archive.c_str()));
    const wxFileName destDir(dest, wxEmptyString);
    const bool isUnpacked =
        KzaCore::Unzip(archive, destDir, AnswerCB, &dest, options);
    Check(isUnpacked);
    return isUnpacked;
}

void CSandbox::Check(bool isUnpacked) const
{
    Require(g_log->m_count == (isUnpacked ? 0 : 1), "a refusal is said once");
    Require(ReadFile(m_secret) == "secret", "what is outside is untouched");
    Require(fs::is_empty(m_dir.File("outside")), "nothing is made outside");
    int names = 0;
    for (const auto& item : fs::directory_iterator(m_dir.Path()))
        names += item.exists() ? 1 : 0;
    Require(names == 4, "nothing is made beside the destination");
    for (const auto& item : fs::recursive_directory_iterator(m_dest))
        Require(item.path().filename().string().rfind(".kza_unzip", 0) != 0,
                "no half file is left");
}

} // namespace Fuzz
