// SPDX-License-Identifier: Apache-2.0

#include "startup/UnusedWords.h"

#include "startup/Options.h"

#include <wx/arrstr.h>
#include <wx/cmdline.h>
#include <wx/log.h>

#include <algorithm>
#include <map>

namespace
{

void WarnOfReplacedValues(const wxCmdLineParser& parser)
{
    std::map<wxString, wxString> last; // value of each option so far
    for (const CGivenOption& given : GivenOptions(parser))
    {
        if (!given.hasValue)
            continue;
        const auto [option, isFirst] =
            last.try_emplace(given.name, given.value);
        if (isFirst)
            continue;
        wxLogWarning("--%s '%s' does not count, only the last one does",
                     option->first, option->second);
        option->second = given.value;
    }
}

// The script gets the words behind the first "--". They are the last of the
// parser's parameters; further words "--" are not among these.
void WarnOfWordsThatTheScriptMisses(const wxCmdLineParser& parser,
                                    const wxArrayString& words)
{
    const auto split = std::find(words.begin(), words.end(), "--");
    const auto reached = static_cast<std::size_t>(std::count_if(
        split, words.end(), [](const wxString& word) { return word != "--"; }));
    wxString missed;
    for (std::size_t i = 0; i + reached < parser.GetParamCount(); ++i)
        missed += " '" + parser.GetParam(i) + "'";
    if (!missed.empty())
        wxLogWarning("Only words after '--' reach the script, not these:%s",
                     missed);
}

} // namespace

void WarnOfUnusedWords(const wxCmdLineParser& parser,
                       const wxArrayString& words)
{
    WarnOfReplacedValues(parser);
    WarnOfWordsThatTheScriptMisses(parser, words);
}
