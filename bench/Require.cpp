// SPDX-License-Identifier: Apache-2.0
//
// What does it cost that modules come out of an archive?
//
// A new Lua state requires 1,000 modules of 2 KB each, from plain files or
// from an archive, by turns. The archive is opened by the first require, which
// counts; an archive of 100,000 entries and a row of fifty archives are opened
// before, as opening has a row of its own, beside the framework's reader.

#include "Bench.h"

#include "archive/ZipArchive.h"
#include "kza_core/Dom.h"
#include "kza_core/LuaInterpreter.h"

#include <lua.hpp>
#include <wx/init.h>
#include <wx/wfstream.h>
#include <wx/zipstrm.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

using namespace KzaCore;

namespace
{

constexpr int kModules = 1000;
constexpr int kManyEntries = 100000;
constexpr int kManyArchives = 50;
constexpr int kTurns = 30;

// A directory of the benchmark's own.
class CPlace
{
public:
    CPlace()
    {
        std::string path =
            (std::filesystem::temp_directory_path() / "kza_bench.XXXXXX")
                .string();
        if (mkdtemp(path.data()) != nullptr)
            m_path = path;
    }
    ~CPlace() { std::filesystem::remove_all(m_path); }

    CPlace(const CPlace&) = delete;
    CPlace& operator=(const CPlace&) = delete;

    [[nodiscard]] std::string File(const std::string& name) const
    {
        return m_path + "/" + name;
    }

private:
    std::string m_path;
};

// About 2 KB of ordinary Lua.
std::string ModuleSource(int number)
{
    std::ostringstream source;
    source << "local M = { number = " << number << " }\n";
    for (int i = 0; source.tellp() < 2048; ++i)
        source << "function M.step" << i << "(state, value)\n"
               << "    if value > " << i << " then\n"
               << "        state.total = (state.total or 0) + value\n"
               << "    end\n    return state, \"step " << i << "\"\nend\n";
    source << "return M\n";
    return source.str();
}

std::string ModuleFile(int number)
{
    return "bench_modules/m" + std::to_string(number) + ".lua";
}

void MakeFiles(const CPlace& place)
{
    std::filesystem::create_directory(place.File("bench_modules"));
    for (int i = 1; i <= kModules; ++i)
        std::ofstream(place.File(ModuleFile(i))) << ModuleSource(i);
}

// An archive of the modules, and of other entries up to the count.
void MakeArchive(const std::string& path, bool withModules, int entries)
{
    wxFileOutputStream file(path);
    wxZipOutputStream zip(file);
    int count = 0;
    const auto add = [&](const std::string& name, const std::string& content)
    {
        zip.PutNextEntry(name);
        zip.Write(content.data(), content.size());
        ++count;
    };
    for (int i = 1; withModules && i <= kModules; ++i)
        add(ModuleFile(i), ModuleSource(i));
    zip.SetLevel(0);
    while (count < entries)
        add("other/directory/entry" + std::to_string(count) + ".lua", "-");
}

// A new state with the modules at hand.
class CTurn
{
public:
    CTurn(CDom& dom, const std::string& path, const std::string& archives)
        : m_lua(false, L"bench", true)
    {
        dom.Set(DomKey::kLuaZipPath, archives);
        m_lua.SetPackagePaths("/nonexistent", path, "");
        dom.RegisterLoader(m_lua.L());
    }

    void Run(const char* source)
    {
        if (luaL_dostring(m_lua.L(), source))
        {
            std::printf("%s\n", lua_tostring(m_lua.L(), -1));
            std::exit(1);
        }
    }

    [[nodiscard]] double SecondsOfRequire()
    {
        return Bench::ProcessorSeconds(
            [this]
            {
                Run("for i = 1, 1000 do\n"
                    "    require('bench_modules.m' .. i)\n"
                    "end\n");
            });
    }

private:
    CLuaInterpreter m_lua;
};

// Opens every archive, so that only look-ups are left to measure.
constexpr char kOpenAll[] = "pcall(require, 'in.no.archive')";

class CBench
{
public:
    explicit CBench(const CPlace& place)
        : m_place(place),
          m_files(place.File("?.lua")),
          m_small(place.File("small.kze")),
          m_large(place.File("large.kze"))
    {
        MakeFiles(place);
        MakeArchive(m_small, true, kModules);
        MakeArchive(m_large, true, kManyEntries);
        for (int i = 1; i < kManyArchives; ++i)
        {
            const std::string path =
                place.File("other" + std::to_string(i) + ".kze");
            MakeArchive(path, false, 100);
            m_lastOfMany += path + ";";
        }
        m_lastOfMany += m_small;
    }

    CBench(const CBench&) = delete;
    CBench& operator=(const CBench&) = delete;
    ~CBench() { m_dom->Release(); }

    void BesideFiles()
    {
        Compare(
            "require of 1,000 modules, archive beside files",
            [this] { return Require("", m_small, ""); },
            [this] { return Require(m_files, "", ""); });
    }

    void ManyEntries()
    {
        Compare(
            "same, 100,000 entries beside 1,000",
            [this] { return Require("", m_large, kOpenAll); },
            [this] { return Require("", m_small, kOpenAll); });
    }

    void ManyArchives()
    {
        Compare(
            "same, last of 50 archives beside one",
            [this] { return Require("", m_lastOfMany, kOpenAll); },
            [this] { return Require("", m_small, kOpenAll); });
    }

    void Opening()
    {
        const Bench::CBest best = Bench::BestOf(
            5, [this] { OpenOurs(); }, [this] { OpenFramework(); });
        Bench::Row("opening and indexing 100,000 entries", best.ours * 1e3,
                   best.peer * 1e3, "ms", "ours<=60");
    }

private:
    double Require(const std::string& path,
                   const std::string& archives,
                   const char* before)
    {
        CTurn turn(*m_dom, path, archives);
        turn.Run(before);
        return turn.SecondsOfRequire();
    }

    template <typename TOurs, typename TPeer>
    static void Compare(const char* question, TOurs ours, TPeer peer)
    {
        double bestOurs = 1e9;
        double bestPeer = 1e9;
        for (int i = 0; i < kTurns; ++i)
        {
            bestOurs = std::min(bestOurs, ours());
            bestPeer = std::min(bestPeer, peer());
        }
        Bench::Row(question, bestOurs * 1e3, bestPeer * 1e3, "ms", "<=1.05");
    }

    void OpenOurs() const
    {
        CZipArchive archive;
        std::string error;
        const bool isOpen = archive.Open(m_large, error);
        Bench::Keep(isOpen && archive.Find(ModuleFile(kModules)) != nullptr);
    }

    void OpenFramework() const
    {
        wxFileInputStream file(m_large);
        wxZipInputStream zip(file);
        Bench::Keep(zip.GetTotalEntries());
        while (std::unique_ptr<wxZipEntry>(zip.GetNextEntry()) != nullptr)
        {
        }
    }

    const CPlace& m_place;
    const std::string m_files;
    const std::string m_small;
    const std::string m_large;
    std::string m_lastOfMany;
    CDom* const m_dom = CDom::New(nullptr, nullptr, nullptr, false);
};

} // namespace

int main()
{
    const wxInitializer framework;
    const CPlace place;
    CBench bench(place);
    bench.BesideFiles();
    bench.ManyEntries();
    bench.ManyArchives();
    bench.Opening();
    return 0;
}
