#!/usr/bin/env bash
# Builds the shipped programs with the compiler of the next Debian (GCC 14 of trixie), with warnings as errors, in a root folder
# of that Debian. The root is kept below ~/.cache/wsmd for a month; making it takes some minutes, and a network.
#
#   scripts/next_gcc.sh [BUILD]     the build folder is build-next by default
#
# Exit status: 0 built, 1 not built, 3 the root could not be made; the last line says why.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/prepare.sh

release=trixie build=${1:-build-next}
cache=${XDG_CACHE_HOME:-${HOME:-/root}/.cache}/wsmd
root=$cache/$release

without() { echo "no $release root: $*"; exit 3; }

if [ "$(id -u)" -ne 0 ]; then without "only root can make one"; fi
if [ -z "$(find "$root/.whole" -mtime -30 2>/dev/null)" ]; then
    prepare_packages command:debootstrap:debootstrap || without "debootstrap is not installed"
    rm -rf --one-file-system "$root"
    mkdir -p "$root"
    quietly debootstrap --variant=minbase --include=ca-certificates "$release" "$root" || without "debootstrap failed"
    # A proxy for packages is needed in the root as well.
    grep -ls Acquire /etc/apt/apt.conf.d/* | xargs -r cp -t "$root/etc/apt/apt.conf.d/"
    touch "$root/.whole"
fi

# shellcheck disable=SC2016 # the commands are expanded in the root
# The tree is mounted at /wsmd in the root meanwhile.
inside() { # command...
    unshare --mount --pid --fork --kill-child bash -c '
        mkdir -p "$1/wsmd"
        mount --bind . "$1/wsmd"
        mount --rbind /dev "$1/dev"
        mount -t proc proc "$1/proc"
        mount -t tmpfs tmpfs "$1/tmp"
        ! [ -e /etc/resolv.conf ] || cp -L /etc/resolv.conf "$1/etc/resolv.conf"
        exec chroot "$1" env --chdir=/wsmd PATH=/usr/sbin:/usr/bin:/sbin:/bin LANG=C HOME=/root "${@:2}"' inside "$root" "$@"
}

# shellcheck disable=SC2016
inside bash -c '. scripts/prepare.sh && prepare_packages build "${OPTIONAL_PROBES[@]}"' || without "its packages could not be installed"
# shellcheck disable=SC2016
inside bash -c '. scripts/prepare.sh && g++ --version | head -1 &&
    prepare_build "$1" -DWSMD_WERROR=ON -DWSMD_TESTS=OFF -DCMAKE_BUILD_TYPE=Release' build "$build"
