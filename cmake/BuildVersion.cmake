# SPDX-License-Identifier: Apache-2.0
#
# Writes OUTPUT, a header with the revision number and the commit id of the
# checkout whose top is SOURCE_DIR. Runs at every build and touches the header only
# when it changes. SEL_REVISION and SEL_GITHASH, where given, are taken as they are.

cmake_policy(VERSION 3.22)

# git(<variable> <argument>...): what git prints in SOURCE_DIR, empty where it fails.
function(git variable)
    execute_process(COMMAND git ${ARGN}
        WORKING_DIRECTORY "${SOURCE_DIR}" OUTPUT_VARIABLE text
        OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE status)
    if(NOT status EQUAL 0)
        set(text "")
    endif()
    set(${variable} "${text}" PARENT_SCOPE)
endfunction()

if(SEL_REVISION STREQUAL "" OR SEL_GITHASH STREQUAL "")
    # Only a checkout of this very tree counts: neither one around an archive, nor one
    # that the environment names, as it does in a hook of git.
    unset(ENV{GIT_DIR})
    unset(ENV{GIT_WORK_TREE})
    file(REAL_PATH "${SOURCE_DIR}" tree)
    git(top rev-parse --show-toplevel)
    git(githash rev-parse HEAD)
    git(shallow rev-parse --is-shallow-repository)
    set(revision 0)
    if(NOT top STREQUAL tree OR githash STREQUAL "")
        message(WARNING "no git checkout: set SEL_REVISION and SEL_GITHASH; the build calls itself revision 0")
        string(REPEAT 0 40 githash)
    elseif(NOT shallow)
        git(revision rev-list --count HEAD)
    elseif(SEL_REVISION STREQUAL "")
        message(WARNING "the commits of a shallow git checkout cannot be counted: set SEL_REVISION; the build calls itself revision 0")
    endif()
endif()
if(NOT SEL_REVISION STREQUAL "")
    set(revision "${SEL_REVISION}")
endif()
if(NOT SEL_GITHASH STREQUAL "")
    set(githash "${SEL_GITHASH}")
endif()
if(NOT revision MATCHES "^[0-9]+$")
    message(FATAL_ERROR "SEL_REVISION is not a decimal number: ${revision}")
endif()
string(LENGTH "${githash}" length)
if(NOT githash MATCHES "^[0-9a-f]+$" OR NOT length EQUAL 40)
    message(FATAL_ERROR "SEL_GITHASH is not a commit id of 40 hexadecimal digits: ${githash}")
endif()

set(content "#pragma once\n#define SEL_REVISION \"${revision}\"\n#define SEL_GITHASH \"${githash}\"\n")
if(EXISTS "${OUTPUT}")
    file(READ "${OUTPUT}" present)
endif()
if(NOT content STREQUAL "${present}")
    file(WRITE "${OUTPUT}" "${content}")
endif()
