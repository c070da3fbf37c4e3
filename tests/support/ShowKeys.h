// SPDX-License-Identifier: Apache-2.0
//
// What the domain holds once an application of the test runs.

#pragma once

#include "support/Host.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace TestSupport
{

/// The source of a tool that prints the keys named after "--", one
/// `key=value (type)` a line.
inline constexpr char kShowKeys[] = R"lua(
local tool = {}
function tool.main()
  for _, key in ipairs(arg) do
    local value = dom:Get(key)
    print(key .. "=" .. tostring(value) .. " (" .. type(value) .. ")")
  end
end
return tool
)lua";

/// Runs that tool under the name "showkeys" and returns what it prints.
inline std::string Show(const CHost& host,
                        std::vector<std::string> options,
                        const std::vector<std::string>& keys,
                        const CProcessOptions& process = {})
{
    options.emplace_back("--");
    options.insert(options.end(), keys.begin(), keys.end());
    const CProcessResult result =
        host.RunTool("showkeys", kShowKeys, options, process);
    EXPECT_EQ(result.status, 0) << result.err;
    return result.out;
}

} // namespace TestSupport
