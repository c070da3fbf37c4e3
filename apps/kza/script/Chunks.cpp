// SPDX-License-Identifier: Apache-2.0
//
// Running Lua: every chunk of the program goes through here, on the script
// thread.

#include "AgentApp.h"
#include "ApplTrace.h"
#include "StandardError.h"

#include "kza_core/LuaInterpreter.h"

#include <lua.hpp>
#include <wx/ffile.h>
#include <wx/sstream.h>
#include <wx/wfstream.h>

int CAgentApp::RunChunk(wxInputStream& in,
                        wxOutputStream& out,
                        const wxString& name)
{
    APPL_TRACE(L"Running chunk '" + name + L"'");
    int status = m_lua->RunScript(in, 0, 1, name, &out);
    if (status == 0)
    {
        status = static_cast<int>(lua_tointegerx(m_lua->L(), -1, nullptr));
        lua_pop(m_lua->L(), 1);
    }
    APPL_TRACE(wxString(L"Chunk produced a return value of ") << status);
    return status;
}

int CAgentApp::RunToStandardOutput(const wxString& code, const wxString& name)
{
    wxFFile file(stdout);
    int status = 0;
    {
        wxFFileOutputStream out(file);
        wxStringInputStream in(code);
        status = RunChunk(in, out, name);
        out.Sync();
    }
    file.Detach(); // standard output stays open

    if (status != 0)
        WriteToStandardError(m_lua->GetErrorInfo() + "\n");
    return status;
}

int CAgentApp::RunCodeSnippet(const wxString& code)
{
    return RunToStandardOutput(code, GetAppName());
}
