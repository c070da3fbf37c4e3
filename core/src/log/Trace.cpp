// SPDX-License-Identifier: Apache-2.0

#include "kza_core/Trace.h"

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
    ProcessLog().Write({ELogLevel::Trace,
                        {component.wx_str(), component.length()},
                        {text.wx_str(), text.length()},
                        std::time(nullptr),
                        &position});
}

} // namespace KzaCore
