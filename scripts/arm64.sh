# SPDX-License-Identifier: MIT
#
# Shared by what cross-builds, which sources it after common.sh.

# Installs what an ARM64 build needs beside the machine's own packages, the emulator included.
install_arm64_packages() {
    if ! dpkg --print-foreign-architectures | grep -qx arm64; then
        echo "Adding the foreign architecture arm64"
        as_root dpkg --add-architecture arm64
    fi
    install_packages crossbuild-essential-arm64 qtbase5-dev libqt5serialbus5-dev \
        qtbase5-dev:arm64 libqt5serialbus5-dev:arm64 libedit-dev libedit-dev:arm64 qemu-user-static
}
