# shellcheck shell=bash
# SPDX-License-Identifier: Apache-2.0
#
# Throw-away roots of Debian releases, for the scripts that source this file.
# All of it needs root.

# Where this machine has its packages from.
mirror() {
  # shellcheck disable=SC2016 # apt-get knows this name
  apt-get indextargets --format '$(SITE)' 'Created-By: Packages' | head -n 1
}

# Fills a directory with a release, once.
make_root() { # DIRECTORY SUITE PACKAGE,...
  [ -e "$1.done" ] && return
  rm -rf "$1"
  mkdir -p "$1"
  echo "Making a root of $2"
  debootstrap --variant=minbase --include="$3" "$2" "$1" "$(mirror)" \
    >"$1.log" 2>&1 || {
    echo "debootstrap failed, see $1.log" >&2
    return 1
  }
  touch "$1.done"
}

# Runs a command as the first process of namespaces of its own, in a root over
# the given one: what it changes is in the directory, and no process is left
# when it ends. TREE is seen as /tmp/tree, read-only.
enter_root() { # BASE DIRECTORY TREE WORD...
  mkdir -p "$2/upper" "$2/work" "$2/root"
  # shellcheck disable=SC2016 # the words are for the inner shell
  exec unshare --mount --pid --fork --uts --ipc --cgroup --kill-child=KILL -- \
    sh -eu -c '
    root=$2/root
    mount -t overlay -o "lowerdir=$1,upperdir=$2/upper,workdir=$2/work" \
      overlay "$root"
    mount -t proc proc "$root/proc"
    mount -t sysfs -o ro sysfs "$root/sys"
    mount -t tmpfs -o mode=755 tmpfs "$root/run"
    mount -t tmpfs tmpfs "$root/tmp"
    mount -t tmpfs tmpfs "$root/dev"
    for node in null zero full random urandom tty; do
      cp --archive "/dev/$node" "$root/dev/"
    done
    ln -s /proc/self/fd "$root/dev/fd"
    mkdir "$root/dev/shm" "$root/dev/pts" "$root/tmp/tree"
    chmod 1777 "$root/dev/shm" "$root/tmp"
    mount -t devpts -o newinstance,ptmxmode=0666 devpts "$root/dev/pts"
    ln -s pts/ptmx "$root/dev/ptmx"
    # systemd needs one hierarchy of control groups, of whichever version.
    if [ -d /sys/fs/cgroup/systemd ]; then
      mount -t tmpfs tmpfs "$root/sys/fs/cgroup"
      mkdir "$root/sys/fs/cgroup/systemd"
      mount -t cgroup -o none,name=systemd cgroup \
        "$root/sys/fs/cgroup/systemd"
    else
      mount -t cgroup2 cgroup2 "$root/sys/fs/cgroup"
    fi
    mount --bind "$3" "$root/tmp/tree"
    mount -o remount,bind,ro "$root/tmp/tree"
    # A service with mounts of its own would see a mere chroot from outside.
    cd "$root"
    mkdir run/outside
    pivot_root . run/outside
    umount -l /run/outside
    rmdir /run/outside
    shift 3
    exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
      LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive container=test "$@"' \
    sh "$@"
}
