#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
#
# How long from exec to the first line that an application's main prints?
#
# The application is the example, which first prints a line here and then
# waits. The control socket is off, as without a setting; one row shows what it
# costs. Peers: a floor program with the agent's libraries that starts framework,
# OpenSSL, SQLite and a Lua state and prints a line from Lua; nginx with Lua,
# python3 and tarantool, each with a script of one line. Agent and floor program
# run by turns, so that each finds in the caches what the other left; the other
# peers by turns after them. The shortest time of each counts.
set -u

readonly runs=80
readonly peers=$KZA_BUILD_DIR/bench/peers
tools=$KZA_BUILD_DIR/bench/tools
source_dir=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT

# As a login finds it on a host that sets no locale.
clean() { env -i PATH="$PATH" HOME="${HOME-/}" LC_CTYPE=C.UTF-8 "$@"; }

# An installation of its own, whose example prints at once.
make_host()
{
    mkdir -p "$work/host" "$work/app" &&
        cp -r "$KZA_STAGE_DIR"/{kz_agent,lib,lua,kza_core} "$work/host" &&
        cp -r "$source_dir"/examples/. "$work/app" &&
        cat >>"$work/app/first.lua" <<'LUA' &&
return function()
    print("first line")
    io.stdout:flush()
    dom:Sleep(500)
end
LUA
        sed -i 's/^return agent$/agent.main = require("first")\nreturn agent/' \
            "$work/app/kz_agent.lua" &&
        (cd "$work/app" &&
            find . -name '*.lua' -printf '%P\0' |
            xargs -0 cmake -E tar cf "$work/host/kza_core/kz_agent.kze" \
                --format=zip --)
}

make_nginx()
{
    mkdir -p "$work/nginx/logs"
    local module temp=""
    for module in client_body proxy fastcgi uwsgi scgi; do
        temp+="${module}_temp_path $work/nginx/$module;"
    done
    cat >"$work/nginx/nginx.conf" <<CONF
load_module $peers/usr/lib/nginx/modules/ndk_http_module.so;
load_module $peers/usr/lib/nginx/modules/ngx_http_lua_module.so;
daemon off; master_process off;
pid $work/nginx/pid; error_log $work/nginx/error.log;
events {}
http {
    access_log off; $temp
    lua_package_path "$peers/usr/share/lua/5.1/?.lua;;";
    init_worker_by_lua_block { io.stdout:write("nginx\n") io.stdout:flush() }
}
CONF
}

row() # question, ours, peer, bound
{
    awk -v q="$1" -v a="$2" -v b="$3" -v c="$4" 'BEGIN {
        printf "ROW\t%s\t%.2f ms\t%.2f ms\t%.3f\t%s\n", q, a, b, a / b, c }'
}

# Runs the commands by turns; the shortest time of each, a line each.
shortest() # command line of StartTimer...
{
    clean "$libraries" "$tools/StartTimer" $runs "$@" | cut -d ' ' -f 1
}

make_host || exit 1
agent=("$work/host/kz_agent" --workdir "$work/work")
libraries=UNUSED=
names=(python3)
commands=(-- /usr/bin/python3 -c 'print("python", flush=True)')
if [[ -e $peers/done ]]; then
    make_nginx
    libraries="LD_LIBRARY_PATH=$peers/libraries"
    names+=("nginx with Lua" tarantool)
    commands+=(-- "$peers/usr/sbin/nginx" -p "$work/nginx"
        -c "$work/nginx/nginx.conf"
        -- "$peers/usr/bin/tarantool" -e 'print("tarantool") io.stdout:flush()')
else
    echo "nginx and tarantool could not be had"
fi

# The first run makes the working directory, which later ones find.
clean "$tools/StartTimer" 1 -- "${agent[@]}" >/dev/null || exit 1
mapfile -t pair < <(libraries=UNUSED= shortest -- "${agent[@]}" -- "$tools/Floor" \
    -- "${agent[@]}" --domain_var control.socket=1)
mapfile -t times < <(shortest "${commands[@]}")
((${#pair[@]} == 3 && ${#times[@]} == ${#names[@]})) || exit 1
row "cold start, floor program" "${pair[0]}" "${pair[1]}" "<=1.15"
row "cold start with the control socket, without" "${pair[2]}" "${pair[0]}" ""
for i in "${!names[@]}"; do
    row "cold start, ${names[i]}" "${pair[0]}" "${times[i]}" "<=1"
done

echo "Where the agent's time goes, milliseconds from exec to each record:"
clean timeout -s KILL 10 "$tools/StartTimer" steps -- "${agent[@]}" \
    --domain_var log.console=true |
    sed -E 's/\t[0-9-]+ [0-9:]+ \[[0-9]+:[0-9]+\] /\t/' | cut -c 1-100 |
    sed "/method 'main'/{n;q}"
echo "What the floor program's steps take, in milliseconds:"
{ clean "$tools/Floor" steps >/dev/null; } 2>&1
