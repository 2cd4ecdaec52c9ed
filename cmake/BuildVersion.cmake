# SPDX-License-Identifier: Apache-2.0
#
# Writes OUTPUT, a header with the revision number and the commit id of the
# checkout in SOURCE_DIR. Runs at every build and touches the header only when
# it changes. SEL_REVISION and SEL_GITHASH, where given, are taken as they are.

if(SEL_REVISION STREQUAL "" OR SEL_GITHASH STREQUAL "")
    execute_process(COMMAND git rev-list --count HEAD
        WORKING_DIRECTORY "${SOURCE_DIR}" OUTPUT_VARIABLE revision
        OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE failed)
    execute_process(COMMAND git rev-parse HEAD
        WORKING_DIRECTORY "${SOURCE_DIR}" OUTPUT_VARIABLE githash
        OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET)
    if(NOT failed EQUAL 0)
        message(WARNING "no git checkout: set SEL_REVISION and SEL_GITHASH; the build calls itself revision 0")
        set(revision 0)
        string(REPEAT 0 40 githash)
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
