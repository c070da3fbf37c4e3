// SPDX-License-Identifier: Apache-2.0

#include "startup/PluginPaths.h"

#include <wx/tokenzr.h>

wxString ExpandPathPlugins(const wxString& paths, const wxString& plugins)
{
    if (plugins.empty())
        return paths;

    // The tokenizer's default mode drops empty elements only between delimiters
    // that are white space. These delimiters are not, so empty elements stay.
    wxString result;
    wxStringTokenizer pathTokens(paths, ";");
    while (pathTokens.HasMoreTokens())
    {
        const wxString path = pathTokens.GetNextToken();
        wxStringTokenizer pluginTokens(plugins, ",");
        while (pluginTokens.HasMoreTokens())
        {
            wxString copy = path;
            copy.Replace("@", pluginTokens.GetNextToken());
            if (!result.empty())
                result += ";";
            result += copy;
        }
    }
    return result;
}
