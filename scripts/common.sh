# SPDX-License-Identifier: MIT
# Shared by the scripts of this folder, which source it: packages, build folder, build.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# What the controller, the bench and the tests are built with and run on.
packages=(g++ cmake ninja-build qtbase5-dev libqt5serialbus5-dev libqt5serialbus5-plugins
          bubblewrap libjs-d3)

fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

# BUILD_DIR may stand in the environment or among the arguments; a relative one is taken from the
# current directory.
read_arguments() {
    local argument
    for argument in "$@"; do
        case $argument in
        BUILD_DIR=?*) BUILD_DIR=${argument#BUILD_DIR=} ;;
        *) fail "unknown argument '$argument' (BUILD_DIR=FOLDER is understood)" ;;
        esac
    done
    build=$(realpath -m "${BUILD_DIR:-$root/build}")
}

# Whether a Debian package is installed, NAME of this machine's architecture or NAME:ARCHITECTURE.
# Where a package is known for several architectures, dpkg-query answers a line for each.
is_installed() {
    local name=${1%:*} architecture=${1#"${1%:*}"}
    architecture=${architecture#:}
    dpkg-query -W -f '${Status} ${Architecture}\n' "$name" 2>/dev/null |
        grep -qE "^install ok installed (${architecture:-$(dpkg --print-architecture)|all})\$"
}

# Installs what is missing among the given Debian packages; without anything missing it is quick
# and asks for no privilege.
install_packages() {
    local missing=() package sudo=()
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    echo "Installing packages: ${missing[*]}"
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || fail "not root and no sudo: install ${missing[*]} first"
        sudo=(sudo)
    fi
    local log
    log=$(mktemp)
    if ! { "${sudo[@]}" apt-get update &&
        "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
            apt-get install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1 </dev/null; then
        tail -n 20 "$log" >&2
        rm -f "$log"
        fail "apt-get could not install ${missing[*]}"
    fi
    rm -f "$log"
}

# Configures once and builds what has changed. Further arguments go to cmake's configuration.
build_all() {
    echo "Building in $build"
    local log=$build/configure.log
    mkdir -p "$build"
    if ! cmake -S "$root" -B "$build" -G Ninja "$@" >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        fail "cmake could not configure; all of its words are in $log"
    fi
    cmake --build "$build" || fail "the build failed"
}
