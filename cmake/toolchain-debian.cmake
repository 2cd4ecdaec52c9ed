# SPDX-License-Identifier: Apache-2.0
#
# Debian's cross compilers against a sysroot of Debian's packages:
#
#   -DSEL_DEBIAN_ARCHITECTURE=armhf   or arm64
#   -DCMAKE_SYSROOT=FOLDER            as scripts/test-arm makes it in .cache
#   -DCMAKE_CROSSCOMPILING_EMULATOR=  optional: what runs the tests
#
# Qt's tools (moc and others) run at build time and come from the host's Qt, which has to
# be of the sysroot's version.

set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES SEL_DEBIAN_ARCHITECTURE)
if(SEL_DEBIAN_ARCHITECTURE STREQUAL "armhf")
    set(triplet arm-linux-gnueabihf)
    set(CMAKE_SYSTEM_PROCESSOR armv7l)
    # GCC's note that an old release passed some arguments otherwise: all is built with one.
    set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
elseif(SEL_DEBIAN_ARCHITECTURE STREQUAL "arm64")
    set(triplet aarch64-linux-gnu)
    set(CMAKE_SYSTEM_PROCESSOR aarch64)
else()
    message(FATAL_ERROR "SEL_DEBIAN_ARCHITECTURE is armhf or arm64, not \"${SEL_DEBIAN_ARCHITECTURE}\"")
endif()
if(NOT IS_DIRECTORY "${CMAKE_SYSROOT}/usr/include")
    message(FATAL_ERROR "CMAKE_SYSROOT is no sysroot: \"${CMAKE_SYSROOT}\"")
endif()

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_LIBRARY_ARCHITECTURE ${triplet})
set(CMAKE_C_COMPILER ${triplet}-gcc)
set(CMAKE_CXX_COMPILER ${triplet}-g++)

set(CMAKE_FIND_ROOT_PATH "${CMAKE_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Qt 6 looks for its tools below this one. With Qt 5 they stand in the sysroot itself.
set(QT_HOST_PATH /usr)
file(GLOB QT_HOST_PATH_CMAKE_DIR "/usr/lib/*/cmake/Qt6CoreTools")
cmake_path(GET QT_HOST_PATH_CMAKE_DIR PARENT_PATH QT_HOST_PATH_CMAKE_DIR)
