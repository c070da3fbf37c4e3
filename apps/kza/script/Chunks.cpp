// SPDX-License-Identifier: Apache-2.0
//
// Running chunks of Lua, on the script thread. The program runs each chunk by
// these functions.

#include "AgentApp.h"
#include "ApplTrace.h"
#include "StandardError.h"
#include "script/LuaReport.h"
#include "script/StandardOutput.h"

#include "kza_core/LuaInterpreter.h"

#include <lua.hpp>
#include <wx/sstream.h>

int CAgentApp::RunChunk(wxInputStream& in,
                        wxOutputStream& out,
                        const wxString& name)
{
    APPL_TRACE(L"Running chunk '" + name + L"'");
    int status = m_lua->RunScript(in, 0, 1, name, &out);
    m_oddResult.clear();
    if (status == 0)
    {
        m_oddResult = DescribeOddResult(*m_lua);
        status = static_cast<int>(lua_tointegerx(m_lua->L(), -1, nullptr));
        lua_pop(m_lua->L(), 1);
    }
    APPL_TRACE(wxString(L"Chunk produced a return value of ") << status);
    return status;
}

int CAgentApp::RunCodeSnippet(const wxString& code)
{
    CStandardOutput out;
    wxStringInputStream in(code);
    const int status = RunChunk(in, out, GetAppName());
    if (status != 0)
        ReportFailure();
    return status;
}

// When the chunk has merely returned another status than 0, Lua has no error
// report, and only a line break is written.
void CAgentApp::ReportFailure() const
{
    const wxString report = m_lua->GetErrorInfo();
    if (report.empty())
        WriteToStandardError("\n");
    else
        ReportLuaFailure(report);
}
