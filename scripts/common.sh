# SPDX-License-Identifier: MIT
# Shared by the scripts of this folder, which source it: packages, build folder, build.

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# What the controller, the bench and the tests are built with and run on, beside Qt.
packages=(g++ cmake ninja-build bubblewrap proot libedit-dev libjs-d3)
qt5_packages=(qtbase5-dev libqt5serialbus5-dev libqt5serialbus5-plugins)
qt6_packages=(qt6-base-dev qt6-serialbus-dev)

# Where standard input is closed, as in CI, a program's first file would come in its place; the jobs of a kernel's
# make then wait for each other in a loop.
[ -e /dev/fd/0 ] || exec </dev/null

fail() {
    echo "${0##*/}: $*" >&2
    exit 1
}

# BUILD_DIR and QT may stand in the environment or among the arguments; a relative folder is taken from
# the current directory.
read_arguments() {
    local argument
    for argument in "$@"; do
        case $argument in
        BUILD_DIR=?*) BUILD_DIR=${argument#BUILD_DIR=} ;;
        QT=[56]) QT=${argument#QT=} ;;
        *) fail "unknown argument '$argument' (BUILD_DIR=FOLDER and QT=5 or QT=6 are understood)" ;;
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

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        command -v sudo >/dev/null || fail "not root and no sudo: run '$*' first"
        sudo "$@"
    fi
}

# quiet_apt ARGUMENT...: apt-get, whose words only show when it fails. Another apt that is at work is
# waited for, up to five minutes.
quiet_apt() {
    local log tries
    log=$(mktemp)
    for tries in {1..60}; do
        if as_root env DEBIAN_FRONTEND=noninteractive apt-get "$@" >"$log" 2>&1 </dev/null; then
            rm -f "$log"
            return
        fi
        grep -q 'Could not get lock' "$log" || break
        [ "$tries" -gt 1 ] || echo "Waiting for another apt to end"
        sleep 5
    done
    tail -n 20 "$log" >&2
    rm -f "$log"
    fail "apt-get failed: $*"
}

# Settles QT where nobody has said it: the version that is installed, else 5, which is the board's, unless
# this Debian has its SerialBus no more.
choose_qt() {
    if [ -n "${QT:-}" ]; then
        return
    elif is_installed libqt5serialbus5-dev; then
        QT=5
    elif is_installed qt6-serialbus-dev; then
        QT=6
    else
        quiet_apt update
        QT=6
        ! apt-cache show libqt5serialbus5-dev >/dev/null 2>&1 || QT=5
    fi
}

# Installs what is missing among the given Debian packages; without anything missing it is quick
# and asks for no privilege.
install_packages() {
    local missing=() package
    for package in "$@"; do
        is_installed "$package" || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    echo "Installing packages: ${missing[*]}"
    quiet_apt update
    quiet_apt install -y --no-install-recommends "${missing[@]}"
}

# What a build needs, and the given packages.
install_build_packages() {
    choose_qt
    local of_this_qt="qt${QT}_packages[@]"
    install_packages "${packages[@]}" "${!of_this_qt}" "$@"
}

# Configures once and builds what has changed, of build_target if a script sets that. Further arguments go to cmake's
# configuration.
build_target=
build_all() {
    echo "Building in $build"
    local log=$build/configure.log
    mkdir -p "$build"
    if ! cmake -S "$root" -B "$build" -G Ninja -DPVM_QT="$QT" "$@" >"$log" 2>&1; then
        tail -n 20 "$log" >&2
        fail "cmake could not configure; all of its words are in $log"
    fi
    cmake --build "$build" ${build_target:+--target "$build_target"} || fail "the build failed"
}
