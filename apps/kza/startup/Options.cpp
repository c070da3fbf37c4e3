// SPDX-License-Identifier: Apache-2.0

#include "startup/Options.h"

#include <wx/cmdline.h>
#include <wx/version.h>

namespace
{

// The order is that of the usage text.
const wxCmdLineEntryDesc kOptions[] = {
    {wxCMD_LINE_OPTION, "a", "appname",
     "the name of this application (default is based on the name of the "
     "executable file).",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_SWITCH, "b", "background",
     "run as a Windows service or Unix daemon process.", wxCMD_LINE_VAL_NONE,
     0},
    {wxCMD_LINE_OPTION, "c", "lua_cpath",
     "add the supplied value at the front of the search path for Lua C "
     "libraries.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_OPTION, "d", "domain_var",
     "sets domain variable; name=value format.", wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_OPTION, "e", "extdir",
     "extension folder. All *.kze files from this folder are added to the Lua "
     "search path.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_SWITCH, "i", "install_plugins",
     "install all *.kzp files found in the same folder as the executable.",
     wxCMD_LINE_VAL_NONE, 0},
    {wxCMD_LINE_OPTION, "l", "lua_path",
     "add the supplied value at the front of the search path for Lua "
     "libraries.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_OPTION, "p", "plugins",
     "comma delimited list of plugins to enable.", wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_OPTION, "t", "trace",
     "enable tracing for the specified set of module names, separated by "
     "commas.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_OPTION, "w", "workdir",
     "working directory where this instance's data files are stored.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_OPTION, "u", "unittest",
     "runs the Lua script (possibly wildcarded) under LuaUnit.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_SWITCH, "U", "test", "", wxCMD_LINE_VAL_NONE, 0},
    {wxCMD_LINE_OPTION, "z", "zippath",
     "list of ZIP archives of Lua code (possibly wildcarded), separated by "
     "semi-colons.",
     wxCMD_LINE_VAL_STRING, 0},
    {wxCMD_LINE_PARAM, nullptr, nullptr, "-- script-param [script-param ...]",
     wxCMD_LINE_VAL_STRING,
     wxCMD_LINE_PARAM_OPTIONAL | wxCMD_LINE_PARAM_MULTIPLE},
    wxCMD_LINE_DESC_END};

bool IsOption(const wxCmdLineEntryDesc& entry)
{
    return entry.kind == wxCMD_LINE_OPTION;
}

} // namespace

void DeclareOptions(wxCmdLineParser& parser)
{
    parser.SetDesc(kOptions);
}

#if wxCHECK_VERSION(3, 1, 0)

std::vector<CGivenOption> GivenOptions(const wxCmdLineParser& parser)
{
    std::vector<CGivenOption> given;
    for (const wxCmdLineArg& word : parser.GetArguments())
        for (const wxCmdLineEntryDesc& entry : kOptions)
            if (word.GetKind() == entry.kind &&
                word.GetKind() != wxCMD_LINE_PARAM &&
                word.GetLongName() == entry.longName)
                given.push_back(
                    {entry.longName, IsOption(entry),
                     IsOption(entry) ? word.GetStrVal() : wxString()});
    return given;
}

#else

std::vector<CGivenOption> GivenOptions(const wxCmdLineParser& parser)
{
    std::vector<CGivenOption> given;
    for (const wxCmdLineEntryDesc& entry : kOptions)
    {
        wxString value;
        if (entry.longName != nullptr &&
            (IsOption(entry) ? parser.Found(entry.longName, &value)
                             : parser.Found(entry.longName)))
            given.push_back({entry.longName, IsOption(entry), value});
    }
    return given;
}

#endif
