-- SPDX-License-Identifier: Apache-2.0
--
-- Prints the reference for authors; the word after "--" is the source tree.

return { main = function() io.write(require("reference")(arg[1])) end }
