# SPDX-License-Identifier: Apache-2.0
#
# Fails for every source, script and build file below TREE without a licence line.

cmake_policy(VERSION 3.22)

set(missing 0)
set(seen 0)
file(GLOB_RECURSE files "${TREE}/src/*" "${TREE}/tests/*" "${TREE}/demo/*" "${TREE}/cmake/*"
    "${TREE}/scripts/*" "${TREE}/bench/*" "${TREE}/contrib/*" "${TREE}/dist/*.in"
    "${TREE}/dist/completion/*" "${TREE}/dist/*CMakeLists.txt" "${TREE}/dist/*.cmake")
list(FILTER files EXCLUDE REGEX "changelog\\.in$") # their format has no place for one
file(GLOB fuzzers LIST_DIRECTORIES false "${TREE}/fuzz/*") # the corpora are nobody's text
list(APPEND files ${fuzzers} "${TREE}/CMakeLists.txt" "${TREE}/.ci/run")
foreach(file IN LISTS files)
    file(READ "${file}" head LIMIT 400)
    math(EXPR seen "${seen} + 1")
    if(NOT head MATCHES "SPDX-License-Identifier: Apache-2.0")
        message("${file} has no licence line")
        set(missing 1)
    endif()
endforeach()
if(missing OR seen LESS 50)
    message(FATAL_ERROR "licence lines are missing among ${seen} files")
endif()
