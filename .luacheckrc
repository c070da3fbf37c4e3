-- SPDX-License-Identifier: Apache-2.0
--
-- Settings of luacheck for code that runs in the agent; copy it to the root of
-- your own project.

std = "lua52"
max_line_length = 80

-- What the agent gives to every script. `kzaAppModule` is the application's
-- module once it has been loaded.
read_globals = { "dom", "dom0", "kzaAppModule" }

-- A test is a global whose name begins with "test" or "Test"; a test may put
-- something else in the place of what the tested code uses.
files["**/*_test.lua"] = {
    globals = { "dom", "print", "io.open" },
    self = false,
    ignore = { "11[123]/[Tt]est.*", "131/[Tt]est.*" },
}

-- Annotations for editors, which nothing runs. One of them is one line.
files["**/meta/*.lua"] = {
    max_comment_line_length = false,
    globals = { "dom", "dom0", "arg", "kzaAppModule" },
    ignore = { "212", "241/Dom" },
}

-- The driver keeps tests from ending the process.
files["**/kza/unit.lua"] = { globals = { "os.exit" } }

exclude_files = { "build", ".ccache" }
