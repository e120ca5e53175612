# shellcheck shell=bash
# Sourced by ./test, ./demo and .ci/run: installs missing packages, and builds what has changed.
#
#   prepare_packages SET... [PROBE...]   the packages of the sets build, demo and tests, and those of further probes
#   prepare_cross ARCHITECTURE           compiler, libraries and emulator for another architecture of Debian
#   prepare_fleet                        the brokers of a cluster
#   prepare_browser FOLDER               chromium, and in FOLDER/browser the packages of tests/browser/package.json
#   prepare_build FOLDER [CMAKE-OPTION...]   builds everything, or TARGETS if that is set
#
# A probe is "kind:what:package": the package is installed if `what` is missing. No service of it is started.

PATH=$PATH:/usr/local/sbin:/usr/sbin:/sbin # ip and iptables are not in an ordinary user's PATH
PYTHON=/usr/bin/python3                    # the system's Python has the packaged modules

TARGETS=(all)

BUILD_PROBES=(
    command:g++:g++
    command:cmake:cmake
    command:ninja:ninja-build
    command:pkg-config:pkg-config
    header:json-c/json.h:libjson-c-dev
)
DEMO_PROBES=(
    "${BUILD_PROBES[@]}"
    command:unshare:util-linux
    command:ip:iproute2
    command:iptables:iptables
    command:ps:procps
    command:"$PYTHON":python3
    python:urwid:python3-urwid
)
# Optional: without these a build leaves out the bridge, or the part of the collector, that needs them.
OPTIONAL_PROBES=(
    header:libnl3/netlink/genl/genl.h:libnl-genl-3-dev
    header:sqlite3.h:libsqlite3-dev
    header:postgresql/libpq-fe.h:libpq-dev
    header:microhttpd.h:libmicrohttpd-dev
    header:zlib.h:zlib1g-dev
    header:mosquitto.h:libmosquitto-dev
    header:amqp.h:librabbitmq-dev
    header:openssl/hmac.h:libssl-dev
)
TESTS_PROBES=(
    "${DEMO_PROBES[@]}"
    "${OPTIONAL_PROBES[@]}"
    header:gtest/gtest.h:libgtest-dev
    header:gmock/gmock.h:libgmock-dev
    command:dnsmasq:dnsmasq-base
    command:udhcpc:udhcpc
    command:shellcheck:shellcheck
    command:groff:groff-base
    command:man:man-db
    command:file:file
    command:debootstrap:debootstrap
    command:mosquitto:mosquitto
    file:/usr/lib/postgresql/*/bin/initdb:postgresql
    command:mosquitto_sub:mosquitto-clients
    command:dpkg-shlibdeps:dpkg-dev
    command:node:nodejs
    command:nc:netcat-openbsd
    command:jq:jq
    python:pytest:python3-pytest
    python:xdist:python3-pytest-xdist
    python:pyte:python3-pyte
    python:jsonschema:python3-jsonschema
)

probe() { # kind what
    case $1 in
        command) command -v "$2" ;;
        header) compgen -G "/usr/include/$2" || compgen -G "/usr/include/*/$2" || compgen -G "/usr/local/include/$2" ;;
        file) compgen -G "$2" ;;
        python) "$PYTHON" -c "import $2" ;;
    esac >/dev/null 2>&1
}

# Runs a command and shows its output only if it fails.
quietly() {
    local output
    output=$("$@" 2>&1) || { printf '%s\n' "$output" "failed: $*" >&2; return 1; }
}

prepare_packages() {
    local word entry kind what package probes=() missing=()
    for word in "$@"; do
        case $word in
            build) probes+=("${BUILD_PROBES[@]}") ;;
            demo) probes+=("${DEMO_PROBES[@]}") ;;
            tests) probes+=("${TESTS_PROBES[@]}") ;;
            *) probes+=("$word") ;;
        esac
    done
    for entry in "${probes[@]}"; do
        IFS=: read -r kind what package <<<"$entry"
        probe "$kind" "$what" || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    if [ "$(id -u)" -ne 0 ]; then
        echo "missing packages; install them as root: apt-get install ${missing[*]}" >&2
        return 1
    fi
    if ! command -v apt-get >/dev/null; then
        echo "this is no Debian; install what these Debian packages have: ${missing[*]}" >&2
        return 1
    fi
    echo "installing ${missing[*]}"
    install_packages "${missing[@]}"
}

POLICY=/usr/sbin/policy-rc.d # asked before a package starts its service

# Installing a broker or a database would start it; the tests start their own.
install_packages() { # package...
    local ours='' status=0
    export DEBIAN_FRONTEND=noninteractive
    if [ ! -e "$POLICY" ]; then
        printf '#!/bin/sh\nexit 101\n' >"$POLICY" && chmod +x "$POLICY" && ours=1
    fi
    # The package lists of a newly installed machine are empty or old.
    apt-get install -y -q --no-install-recommends "$@" >/dev/null 2>&1 ||
        { quietly apt-get update -q && quietly apt-get install -y -q --no-install-recommends "$@"; } || status=1
    [ -z "$ours" ] || rm -f "$POLICY"
    return "$status"
}

prepare_cross() {
    local triplet=$1-linux-gnu qemu=$1 package missing=() netlink=''
    [ "$1" != armhf ] || triplet=arm-linux-gnueabihf qemu=arm
    [ "$1" = s390x ] || netlink=libnl-genl-3-dev:$1 # of the bridge, which is for access points
    for package in "libstdc++6:$1" "libjson-c-dev:$1" "libgtest-dev:$1" "libgmock-dev:$1" $netlink; do
        dpkg-query -W "$package" >/dev/null 2>&1 || missing+=("command:-:$package")
    done
    if [ ${#missing[@]} -gt 0 ] && [ "$(id -u)" -eq 0 ] && ! dpkg --print-foreign-architectures | grep -qx "$1"; then
        dpkg --add-architecture "$1" # its packages are in no list yet
        apt-get update -q >/dev/null 2>&1 || true
    fi
    prepare_packages "command:$triplet-g++:g++-$triplet" "command:qemu-$qemu:qemu-user" "${missing[@]}"
}

prepare_fleet() {
    prepare_packages tests command:rabbitmqctl:rabbitmq-server python:pika:python3-pika
}

prepare_browser() { # folder
    local lock=tests/browser/package-lock.json folder=$1/browser
    prepare_packages tests command:chromium:chromium command:npm:npm
    cmp -s "$lock" "$folder/installed" && return
    mkdir -p "$folder"
    cp tests/browser/{package.json,package-lock.json,.npmrc} "$folder/"
    quietly npm ci --prefix "$folder" && cp "$lock" "$folder/installed"
}

# Why a build folder cannot be used, in one sentence; empty if it can.
build_folder_trouble() { # folder
    local home
    if [ -e "$1" ] && ! { [ -w "$1" ] && { [ ! -e "$1/CMakeCache.txt" ] || [ -w "$1/CMakeCache.txt" ]; }; }; then
        echo "$PWD/$1 belongs to another user ($(stat -c %U "$1")): remove it as that user, or build in a copy of the tree"
        return
    fi
    [ -f "$1/CMakeCache.txt" ] || return 0
    home=$(sed -n 's/^CMAKE_HOME_DIRECTORY:INTERNAL=//p' "$1/CMakeCache.txt")
    [ "$(realpath -m "$home")" = "$(realpath .)" ] ||
        echo "$PWD/$1 was built for $home, from where this tree has been moved or copied: remove $1"
}

# CMake's output is shown only if it fails. The progress of the build stays on one line of a terminal; elsewhere it is a line
# every twenty seconds.
prepare_build() {
    local folder=$1 trouble
    shift
    trouble=$(build_folder_trouble "$folder")
    [ -z "$trouble" ] || { echo "$trouble" >&2; return 1; }
    quietly cmake -S . -B "$folder" -G Ninja "$@" || return 1
    if [ -t 1 ]; then
        NINJA_STATUS='building %f of %t ' ninja -C "$folder" "${TARGETS[@]}"
    else
        ninja_lines "$folder"
    fi
}

# The build without a terminal: prints a line if it takes long, and all output if it fails.
ninja_lines() { # folder
    local - log line last=-20 status=0
    set -o pipefail
    log=$(mktemp)
    NINJA_STATUS='[%f/%t] ' ninja -C "$1" "${TARGETS[@]}" 2>&1 | while IFS= read -r line; do
        printf '%s\n' "$line" >>"$log"
        [[ $line =~ ^\[([0-9]+)/([0-9]+)\] ]] || continue
        if [ $((SECONDS - last)) -ge 20 ]; then
            # Who reads this may have seen enough (| head); the build goes on.
            (trap '' PIPE && echo "building $1: ${BASH_REMATCH[1]} of ${BASH_REMATCH[2]}") 2>/dev/null || true
            last=$SECONDS
        fi
    done || status=1
    [ "$status" -eq 0 ] || cat "$log" >&2
    rm -f "$log"
    return "$status"
}
