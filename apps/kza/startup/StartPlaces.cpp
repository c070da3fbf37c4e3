// SPDX-License-Identifier: Apache-2.0

#include "startup/StartPlaces.h"

#include "Version.h"

#include <string>

namespace
{

std::string FileName(const wxString& path)
{
    return std::string(path.AfterLast('/').fn_str());
}

// As the executable asks for it.
std::string Library()
{
    return "lib/libkza_core.so." + std::to_string(Version::kMajor) + "." +
           std::to_string(Version::kMinor) + "." +
           std::to_string(Version::kPatch);
}

std::string LogFile(wxString application)
{
    application.Replace("/", "_");
    return "log/" + std::string(application.fn_str()) + ".log";
}

} // namespace

KzaCore::TChangeable JudgeStartPlaces(const CStartPlaces& places)
{
    KzaCore::TChangeable changeable;
    if (!places.bin.empty())
        KzaCore::JudgeDirectory(
            std::string(places.bin.fn_str()),
            {FileName(places.executable), "lib", Library(), "lua", "kza_core"},
            changeable);
    // Plugins' own directories are judged when they are asked for.
    KzaCore::JudgeDirectory(
        std::string(places.work.fn_str()),
        {"log", LogFile(places.application), "diag", "run", "events.db"},
        changeable);
    return changeable;
}
