# SPDX-License-Identifier: MIT

# Cross-builds for an ARM64 board. On Debian the foreign libraries lie beside the own ones and
# nothing more is needed; a board SDK's root is given with -DCMAKE_SYSROOT=FOLDER.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_INSTALL_LIBDIR lib/aarch64-linux-gnu CACHE PATH "Object code libraries")
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L "${CMAKE_SYSROOT}/")
if(CMAKE_SYSROOT)
  set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
  set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
  # The root's own moc is for the board.
  if(NOT TARGET Qt5::moc)
    add_executable(Qt5::moc IMPORTED)
    set_target_properties(Qt5::moc PROPERTIES IMPORTED_LOCATION /usr/lib/qt5/bin/moc)
  endif()
endif()
