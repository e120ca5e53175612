# shellcheck shell=bash
# Sourced by ./test and ./demo: what is missing is installed, and what has changed is built. Quiet unless it fails.
#
#   prepare_packages [PROBE...]   the packages below, and those that the further probes name
#   prepare_cross ARCHITECTURE    compiler, libraries and emulator for another architecture of Debian
#   prepare_build FOLDER [CMAKE-OPTION...]   everything, or TARGETS when that is set
#
# A probe is "kind:what:package": the package is installed when `what` is not there.

PATH=$PATH:/usr/local/sbin:/usr/sbin:/sbin # where an ordinary user does not look for ip and iptables
PYTHON=/usr/bin/python3                    # the system's, which has the packaged modules

TARGETS=(all)

PROBES=(
    command:g++:g++
    command:cmake:cmake
    command:ninja:ninja-build
    command:pkg-config:pkg-config
    header:json-c/json.h:libjson-c-dev
    header:gtest/gtest.h:libgtest-dev
    header:gmock/gmock.h:libgmock-dev
    command:unshare:util-linux
    command:ip:iproute2
    command:iptables:iptables
    command:dnsmasq:dnsmasq-base
    command:udhcpc:udhcpc
    command:ps:procps
    command:shellcheck:shellcheck
    command:groff:groff-base
    command:debootstrap:debootstrap
    command:dpkg-shlibdeps:dpkg-dev
    command:"$PYTHON":python3
    python:pytest:python3-pytest
    python:xdist:python3-pytest-xdist
    python:urwid:python3-urwid
    python:pyte:python3-pyte
)

probe() { # kind what
    case $1 in
        command) command -v "$2" ;;
        header) compgen -G "/usr/include/$2" || compgen -G "/usr/local/include/$2" ;;
        python) "$PYTHON" -c "import $2" ;;
    esac >/dev/null 2>&1
}

# Runs a command and shows what it printed only when it fails.
quietly() {
    local output
    output=$("$@" 2>&1) || { printf '%s\n' "$output" "failed: $*" >&2; return 1; }
}

prepare_packages() {
    local entry kind what package missing=()
    for entry in "${PROBES[@]}" "$@"; do
        IFS=: read -r kind what package <<<"$entry"
        probe "$kind" "$what" || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    if [ "$(id -u)" -ne 0 ]; then
        echo "missing: ${missing[*]}" >&2
        echo "install them as root: apt-get install ${missing[*]}" >&2
        return 1
    fi
    echo "installing ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get install -y -q --no-install-recommends "${missing[@]}" >/dev/null 2>&1 && return
    # The package lists of a fresh machine are empty or old.
    quietly apt-get update -q && quietly apt-get install -y -q --no-install-recommends "${missing[@]}"
}

prepare_cross() {
    local triplet=$1-linux-gnu qemu=$1 package missing=()
    [ "$1" != armhf ] || triplet=arm-linux-gnueabihf qemu=arm
    for package in "libstdc++6:$1" "libjson-c-dev:$1" "libgtest-dev:$1" "libgmock-dev:$1"; do
        dpkg-query -W "$package" >/dev/null 2>&1 || missing+=("command:-:$package")
    done
    if [ ${#missing[@]} -gt 0 ] && [ "$(id -u)" -eq 0 ] && ! dpkg --print-foreign-architectures | grep -qx "$1"; then
        dpkg --add-architecture "$1" # its packages are in no list yet
        apt-get update -q >/dev/null 2>&1 || true
    fi
    prepare_packages "command:$triplet-g++:g++-$triplet" "command:qemu-$qemu:qemu-user" "${missing[@]}"
}

prepare_build() {
    local folder=$1
    shift
    [ -f "$folder/build.ninja" ] || echo "building $folder (the first time takes minutes)"
    quietly cmake -S . -B "$folder" -G Ninja "$@" && quietly cmake --build "$folder" --target "${TARGETS[@]}"
}
