// SPDX-License-Identifier: Apache-2.0
//
// How many records a second does the disk log take?
//
// Peers: a bare format and write(2) a line into a file opened for appending;
// and the framework's target for standard error, which is a file here too, on
// the framework's own path.

#include "Bench.h"

#include "kza_core/Dom.h"
#include "kza_core/Log2Disk.h"
#include "kza_core/Trace.h"

#include <wx/log.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

using namespace KzaCore;

namespace
{

constexpr int kTurns = 7;
constexpr int kLines = 100'000;

std::string MakeDirectory()
{
    std::string name = "/tmp/kza-bench-XXXXXX";
    if (mkdtemp(name.data()) == nullptr)
        std::exit(1);
    return name;
}

void WriteBareLine(int file, int number)
{
    char text[256];
    const int length = std::snprintf(
        text, sizeof text,
        "%s [%d:%d] TRACE %s: %s:%d %s Running chunk 'number %d'\n",
        "2026-11-21 02:04:00", 12345, 12345, "Appl", "Chunks.cpp", 42,
        "RunChunk", number);
    if (write(file, text, static_cast<std::size_t>(length)) != length)
        std::exit(1);
}

template <typename F>
auto Lines(F&& writeOne)
{
    return [writeOne]
    {
        for (int i = 0; i < kLines; ++i)
            writeOne(i);
    };
}

void Report(const char* question, const Bench::CBest& best, const char* bound)
{
    Bench::Row(question, kLines / best.ours / 1e6, kLines / best.peer / 1e6,
               "million/s", bound);
}

const wxString s_component("Appl");

constexpr char kText[] = "Running chunk 'number 123456'";

void TraceReadyText(int /*number*/)
{
    static const wxString text(kText);
    if (LogTraceIsEnabled(s_component))
        LogTrace(s_component, "Chunks.cpp", 42, "RunChunk", text);
}

void FormatAndTrace(int number)
{
    if (LogTraceIsEnabled(s_component))
        LogTrace(s_component, "Chunks.cpp", 42, "RunChunk",
                 wxString::Format("Running chunk 'number %d'", number));
}

void CompareWithBareLines(const std::string& directory)
{
    const int file = open((directory + "/bare").c_str(),
                          O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    const auto peer = [file, lines = Lines([file](int number)
                                           { WriteBareLine(file, number); })]
    {
        if (ftruncate(file, 0) != 0)
            std::exit(1);
        lines();
    };
    Report("trace line, bare format and write",
           Bench::BestOf(kTurns, Lines(TraceReadyText), peer), ">=0.7");
    Report("wxString::Format and trace line, the same",
           Bench::BestOf(kTurns, Lines(FormatAndTrace), peer), "");
    close(file);
}

// Runs work with the framework's target for standard error, a file here.
template <typename F>
auto OnStandardError(F&& work)
{
    return [work]
    {
        wxLog* const before = wxLog::SetActiveTarget(new wxLogStderr);
        work();
        delete wxLog::SetActiveTarget(before);
    };
}

void CompareWithFramework(const std::string& directory)
{
    const int terminal = dup(STDERR_FILENO);
    if (std::freopen((directory + "/stderr").c_str(), "a", stderr) == nullptr)
        std::exit(1);
    const auto trace = Lines([](int) { wxLogTrace("Appl", kText); });
    const auto record =
        Lines([](int number) { wxLogVerbose("Heartbeat number %d", number); });
    const auto traces =
        Bench::BestOf(kTurns, Lines(TraceReadyText), OnStandardError(trace));
    const auto records = Bench::BestOf(kTurns, record, OnStandardError(record));
    dup2(terminal, STDERR_FILENO);
    close(terminal);
    Report("trace line, wxLogTrace to wxLogStderr", traces, ">=4");
    Report("wxLogVerbose, to wxLogStderr", records, "");
}

} // namespace

int main()
{
    wxLog::SetActiveTarget(new CLog2Disk);
    wxLog::SetTimestamp("%Y-%m-%d %H:%M:%S");
    wxLog::SetLogLevel(wxLOG_Max);
    wxLog::SetVerbose(true);
    wxLog::AddTraceMask("Appl");

    const std::string directory = MakeDirectory();
    CDom* const dom = CDom::New(nullptr, nullptr, nullptr, false);
    dom->Set(DomKey::kPathWork, directory);
    dom->Set(DomKey::kName, "bench");
    dom->Set(DomKey::kTrace, "Appl,Cmd,Srvc");
    CompareWithBareLines(directory);
    CompareWithFramework(directory);
    dom->Release();
    std::filesystem::remove_all(directory);
    return 0;
}
