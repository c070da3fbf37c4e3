#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
#
# run_script.sh AGENT SCRIPT [word...]: runs a Lua test script under the agent,
# with a directory of its own that is gone afterwards. The words are LuaUnit's.

agent=$1
script=$2
shift 2

here=$(dirname "$0")
KZA_TEST_DIR=$(mktemp -d) || exit 1
KZA_SOURCE_DIR=$(cd "$here/../.." && pwd)
export KZA_TEST_DIR KZA_SOURCE_DIR
export LC_ALL=C.UTF-8 TZ=UTC
trap 'rm -rf "$KZA_TEST_DIR"' EXIT

"$agent" --appname lua_tests --workdir "$KZA_TEST_DIR/work" \
    --lua_path "$here/support/?.lua" --unittest "$script" -- "$@"
