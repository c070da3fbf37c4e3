// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Execute.h"

#include "base/Bytes.h"
#include "base/Error.h"
#include "process/Program.h"

#include <wx/string.h>
#include <wx/tokenzr.h>

#include <cerrno>
#include <string>
#include <vector>

#include <sys/wait.h>

namespace KzaCore
{

namespace
{

std::vector<std::string> Words(const wxString& program,
                               const wxString& arguments)
{
    std::vector<std::string> words{std::string(program.fn_str())};
    wxStringTokenizer tokens(arguments, " \t", wxTOKEN_STRTOK);
    while (tokens.HasMoreTokens())
        words.emplace_back(tokens.GetNextToken().fn_str());
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
