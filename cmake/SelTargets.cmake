# SPDX-License-Identifier: Apache-2.0

# Every own target links this one: warnings, sanitizers and the switches that
# keep Qt's implicit conversions out.
add_library(sel_flags INTERFACE)
target_compile_options(sel_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor
    -Woverloaded-virtual -Wcast-align -Wformat=2)
target_compile_definitions(sel_flags INTERFACE
    QT_NO_CAST_FROM_ASCII QT_NO_CAST_TO_ASCII QT_NO_URL_CAST_FROM_STRING
    QT_NO_CAST_FROM_BYTEARRAY QT_NO_KEYWORDS QT_NO_FOREACH
    # Where time_t has 32 bits by default, records past 2038 need these.
    _FILE_OFFSET_BITS=64 _TIME_BITS=64)
if(SEL_SANITIZE)
    target_compile_options(sel_flags INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(sel_flags INTERFACE -fsanitize=address,undefined)
endif()

# For what is counted, the product; tests would only take longer. Absolute paths, since a
# test may run in any folder; atomic, since there are threads.
set(SEL_COVERAGE_OPTIONS "")
if(SEL_COVERAGE)
    set(SEL_COVERAGE_OPTIONS --coverage -fprofile-abs-path -fprofile-update=atomic)
    target_link_options(sel_flags INTERFACE --coverage)
endif()

# Generated sources are nobody's to tidy: the nearest configuration file wins,
# and one that checks next to nothing is accepted where an empty one is not.
file(WRITE "${CMAKE_BINARY_DIR}/.clang-tidy" "Checks: '-*,misc-definitions-in-headers'\n")

# sel_add_library(<name> SOURCES <files> LINKS <public dependencies>)
function(sel_add_library name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "SOURCES;LINKS")
    add_library(${name} STATIC ${arg_SOURCES})
    target_include_directories(${name} PUBLIC "${PROJECT_SOURCE_DIR}/src")
    target_link_libraries(${name} PUBLIC ${arg_LINKS} PRIVATE sel_flags)
    target_compile_options(${name} PRIVATE ${SEL_COVERAGE_OPTIONS})
endfunction()
