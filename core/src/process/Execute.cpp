// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Execute.h"

#include "base/Bytes.h"
#include "base/Error.h"
#include "base/SplitList.h"
#include "process/Program.h"

#include <wx/string.h>

#include <cerrno>
#include <string>
#include <vector>

#include <sys/wait.h>

namespace KzaCore
{

namespace
{

// The argument vector of the program, beginning with its path.
std::vector<std::string> Words(const wxString& program,
                               const wxString& arguments)
{
    std::vector<std::string> words{std::string(program.fn_str())};
    for (const std::wstring_view word :
         SplitList<std::wstring_view>(CharactersOf(arguments), L" \t"))
        words.emplace_back(wxString(word.data(), word.size()).fn_str());
    return words;
}

} // namespace

bool Execute(const wxString& program,
             const wxString& arguments,
             wxString& output,
             unsigned long& result,
             wxString& error)
{
    std::string bytes;
    const int status = RunProgram(Words(program, arguments), bytes);
    output = TextOfBytes(bytes);
    result = 0;
    error.clear();
    if (status == -1)
        error = TextOfBytes(SystemErrorText(errno));
    else if (WIFSIGNALED(status))
        error.Printf("killed by signal %d", WTERMSIG(status));
    else if (WEXITSTATUS(status) != 0)
    {
        result = static_cast<unsigned long>(WEXITSTATUS(status));
        error.Printf("exit status %lu", result);
    }
    return error.empty();
}

} // namespace KzaCore
