# SPDX-License-Identifier: Apache-2.0
#
# Includes run one way: fails for every #include "folder/..." below SOURCES whose
# folder is not allowed to know that header.

# Which folders a folder may include besides itself.
set(allowed_devicelib)
set(allowed_messages)
set(allowed_logformat messages)
set(allowed_catalog logformat)
set(allowed_rendering catalog logformat)
set(allowed_archive catalog logformat rendering)
set(allowed_output)
set(allowed_binlog logformat messages output)
set(allowed_reader catalog logformat rendering)
set(allowed_udp catalog output rendering)
set(allowed_intake logformat)
set(allowed_manager binlog catalog devicelib intake logformat output reader rendering udp)
set(allowed_app devicelib intake manager messages)
set(allowed_ctl archive catalog logformat rendering)

cmake_policy(VERSION 3.22)

set(wrong 0)
set(seen 0)
file(GLOB_RECURSE files RELATIVE "${SOURCES}" "${SOURCES}/*.cpp" "${SOURCES}/*.h")
foreach(file IN LISTS files)
    string(REGEX REPLACE "/.*" "" folder "${file}")
    file(STRINGS "${SOURCES}/${file}" lines REGEX "^#include \"")
    foreach(line IN LISTS lines)
        string(REGEX REPLACE "^#include \"(.*)\".*" "\\1" header "${line}")
        string(REGEX REPLACE "/.*" "" target "${header}")
        math(EXPR seen "${seen} + 1")
        if(NOT target STREQUAL folder AND NOT header STREQUAL "buildversion.h"
                AND NOT target IN_LIST allowed_${folder})
            message("${file} must not include ${header}")
            set(wrong 1)
        endif()
    endforeach()
endforeach()

if(seen EQUAL 0)
    message(FATAL_ERROR "no include found below ${SOURCES}")
endif()
if(wrong)
    message(FATAL_ERROR "includes must run one way")
endif()
