// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Trace.h"

#include "base/Bytes.h"
#include "log/DiskLog.h"

#include <ctime>

namespace KzaCore
{

void LogTrace(const wxString& component,
              const char* file,
              int line,
              const char* function,
              const wxString& text)
{
    const LogPosition position = {file, line, function};
    ProcessLog().Write({ELogLevel::Trace, CharactersOf(component),
                        CharactersOf(text), std::time(nullptr), &position});
}

} // namespace KzaCore
