# SPDX-License-Identifier: Apache-2.0
#
# What the scenarios share. Each line that is to be so is a command; the first
# that fails ends the scenario.
set -eux

# The shell itself does not mind a command that ends well after "!".
not() {
  if "$@"; then
    echo "ends with 0: $*"
    exit 1
  fi
}

install() { dpkg --force-confold --install "/tmp/tree/$1.deb"; }

# What is there of the packages' names and of the agent's.
leftovers() {
  find / -xdev \( -path /proc -o -path /tmp -o -path /var/lib/dpkg \
    -o -path /usr/share/doc \) -prune -o \
    \( -name '*kz_agent*' -o -name '*kz-agent*' -o -name 'kzctl*' \
    -o -name 'kzpack*' -o -name 'kzlua*' -o -name 'kzrun*' \) -print
  find /run -name '*kz_agent*'
}

# An application that says in the log which of its starts this is.
add_application() {
  mkdir -p /srv/app
  cat >/srv/app/kz_agent.lua <<'LUA'
return { main = function()
  dom:Log("message", "the application of " .. dom:Get("app.path.work"))
  while dom:Sleep(1000000) do end
end }
LUA
  echo 'options="--install_plugins --lua_path /srv/app/?.lua"' \
    >/etc/default/kz_agent
}

allow_services() { # STATUS
  printf '#!/bin/sh\nexit %s\n' "$1" >/usr/sbin/policy-rc.d
  chmod 0755 /usr/sbin/policy-rc.d
}

watchdog() { cat /run/kz_agent.pid; }

is_up() { kzctl --appname kz_agent status; }

is_gone() { # PID
  [ ! -d "/proc/$1" ] || grep -q '^State:.Z' "/proc/$1/status"
}

log() { cat /var/opt/kz_agent/log/kz_agent.log; }

# The code of a section of docs/install.md.
code_of() { # HEADING
  awk -v heading="## $1" '/^## / { inside = $0 == heading }
    inside && /^    / { sub(/^    /, ""); print }' /tmp/tree/install.md
}

wait_until() {
  tries=0
  until "$@"; do
    tries=$((tries + 1))
    [ "$tries" -lt 300 ]
    sleep 0.1
  done
}
