# SPDX-License-Identifier: Apache-2.0
#
# How a build for another machine runs its tests here, where
# CMAKE_CROSSCOMPILING_EMULATOR, a user-mode QEMU with its arguments, is set:
#
# - Unit tests run under the emulator.
# - Tests that start the daemon are programs of a native build of the same tree,
#   SEL_NATIVE_BUILD, and start the daemon of this build by a script.

set(SEL_NATIVE_BUILD "" CACHE PATH "Cross builds: build folder with the host's test programs")
set(sel_emulation_factor 5) # what emulation costs at most, for time-outs

list(GET CMAKE_CROSSCOMPILING_EMULATOR 0 sel_emulator)
find_program(SEL_EMULATOR "${sel_emulator}" REQUIRED)
list(JOIN CMAKE_CROSSCOMPILING_EMULATOR "' '" emulator_words)
set(sel_emulated_daemon "${CMAKE_CURRENT_BINARY_DIR}/emulated-daemon")
file(GENERATE OUTPUT "${sel_emulated_daemon}"
    CONTENT "#!/bin/sh\nexec '${emulator_words}' '$<TARGET_FILE:systemeventlogger>'\n"
    FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)

# What lets a test under the emulator start other programs.
add_library(sel_emulatedchildren MODULE "${CMAKE_CURRENT_LIST_DIR}/emulatedchildren.cpp")
set_target_properties(sel_emulatedchildren PROPERTIES AUTOMOC OFF)
target_compile_options(sel_emulatedchildren PRIVATE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion)
target_link_libraries(sel_emulatedchildren PRIVATE ${CMAKE_DL_LIBS})

function(sel_extend_timeout name)
    get_test_property(${name} TIMEOUT seconds)
    math(EXPR seconds "${seconds} * ${sel_emulation_factor}")
    set_tests_properties(${name} PROPERTIES TIMEOUT ${seconds})
endfunction()

# sel_emulate_unit_test(<name>): a test whose program is one of this build.
function(sel_emulate_unit_test name)
    sel_extend_timeout(${name})
    set_property(TEST ${name} APPEND PROPERTY ENVIRONMENT
        "SEL_EMULATOR=${SEL_EMULATOR}" "QEMU_LD_PREFIX=${CMAKE_SYSROOT}"
        "QEMU_SET_ENV=LD_PRELOAD=$<TARGET_FILE:sel_emulatedchildren>")
endfunction()

# sel_add_emulated_device_test(<name> <links>), in place of sel_add_device_test().
function(sel_add_emulated_device_test name links)
    file(STRINGS "${name}.cpp" preloading REGEX "faultydisk\\.h|LD_PRELOAD")
    file(RELATIVE_PATH folder "${PROJECT_BINARY_DIR}" "${CMAKE_CURRENT_BINARY_DIR}")
    set(device "${PROJECT_SOURCE_DIR}/scripts/private-device")
    if(NOT "sel_testdevice" IN_LIST links) # no daemon is started; what is tested is inside
        add_executable(${name} ${name}.cpp)
        target_link_libraries(${name} PRIVATE ${links})
        add_test(NAME ${name}
            COMMAND "${device}" ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${name}>)
    elseif(preloading)
        add_test(NAME ${name} COMMAND sh -c
            "echo 'nothing of the host can be preloaded into an emulated daemon'; exit 77")
    else()
        add_test(NAME ${name} COMMAND "${device}" "${SEL_NATIVE_BUILD}/${folder}/${name}")
    endif()
    set_tests_properties(${name} PROPERTIES TIMEOUT 240 SKIP_RETURN_CODE 77
        ENVIRONMENT "SEL_DAEMON=${sel_emulated_daemon};SEL_SOURCE_DIR=${PROJECT_SOURCE_DIR};LC_ALL=C.UTF-8;TZ=UTC")
    if(TARGET ${name})
        sel_emulate_unit_test(${name})
    else()
        sel_extend_timeout(${name})
    endif()
endfunction()
