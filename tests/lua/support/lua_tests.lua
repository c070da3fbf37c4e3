-- SPDX-License-Identifier: Apache-2.0
--
-- The application that the tests in Lua run under: it does nothing, so that
-- the agent goes on to the test script.

return {}
