# SPDX-License-Identifier: Apache-2.0
#
# Runs SCRIPT, which reads the revision of a tree, on trees made in FOLDER, and fails
# where it says anything but what is true of them.

cmake_policy(VERSION 3.22)

# git(<argument>...): must succeed; what it prints is in `printed`.
function(git)
    execute_process(COMMAND git -c user.name=a -c user.email=a@example.org -c commit.gpgsign=false
        -c protocol.file.allow=always -c advice.detachedHead=false ${ARGN}
        WORKING_DIRECTORY "${FOLDER}" OUTPUT_VARIABLE printed OUTPUT_STRIP_TRAILING_WHITESPACE
        COMMAND_ERROR_IS_FATAL ANY)
    set(printed "${printed}" PARENT_SCOPE)
endfunction()

# checkout(<name> <commits>): a repository with so many commits, the last one in `printed`.
function(checkout name commits)
    git(init -q "${name}")
    foreach(commit RANGE 1 ${commits})
        git(-C "${name}" commit -q --allow-empty -m "${name} ${commit}")
    endforeach()
    git(-C "${name}" rev-parse HEAD)
    set(printed "${printed}" PARENT_SCOPE)
endfunction()

# expect(<sentence> <tree> <revision> <commit> <warning> <option>...): runs the script on a
# tree; an empty warning means that there is none.
function(expect sentence tree revision githash warning)
    file(REMOVE "${FOLDER}/version.h")
    list(TRANSFORM ARGN PREPEND -D OUTPUT_VARIABLE options)
    execute_process(COMMAND "${CMAKE_COMMAND}" "-DSOURCE_DIR=${FOLDER}/${tree}"
        "-DOUTPUT=${FOLDER}/version.h" -DSEL_REVISION= -DSEL_GITHASH= ${options} -P "${SCRIPT}"
        ERROR_VARIABLE said RESULT_VARIABLE status)
    string(REGEX REPLACE "[ \n]+" " " said "${said}")
    set(header "")
    if(EXISTS "${FOLDER}/version.h")
        file(READ "${FOLDER}/version.h" header)
    endif()
    set(right "#pragma once\n#define SEL_REVISION \"${revision}\"\n#define SEL_GITHASH \"${githash}\"\n")
    string(FIND "${said}" "${warning}" at)
    if(NOT status EQUAL 0 OR NOT header STREQUAL right OR at EQUAL -1
            OR (warning STREQUAL "" AND NOT said STREQUAL ""))
        message("not so: ${sentence}\nstatus ${status}, said \"${said}\", wrote\n${header}")
        set(wrong 1 PARENT_SCOPE)
    endif()
endfunction()

unset(ENV{GIT_DIR})
unset(ENV{GIT_WORK_TREE})
set(ENV{GIT_CONFIG_GLOBAL} /dev/null)
set(ENV{GIT_CONFIG_NOSYSTEM} 1)
set(ENV{GIT_CEILING_DIRECTORIES} "${FOLDER}") # whatever it lies in does not count
set(wrong 0)
string(REPEAT 0 40 noughts)
set(noCheckout "no git checkout: set SEL_REVISION and SEL_GITHASH; the build calls itself revision 0")
set(shallow "cannot be counted: set SEL_REVISION; the build calls itself revision 0")

file(REMOVE_RECURSE "${FOLDER}")
file(MAKE_DIRECTORY "${FOLDER}/archive")
checkout(outer 1)
set(outer "${printed}")
checkout(plain 3)
set(plain "${printed}")
git(-C plain rev-parse HEAD~1)
set(before "${printed}")
git(-C plain worktree add -q --detach ../worktree HEAD~1)
git(clone -q --depth 1 "file://${FOLDER}/plain" shallow)
git(clone -q plain outer/clone)
git(init -q unborn)
file(MAKE_DIRECTORY "${FOLDER}/outer/archive" "${FOLDER}/plain/part")
file(CREATE_LINK "${FOLDER}/plain" "${FOLDER}/link" SYMBOLIC)
file(CREATE_LINK "${FOLDER}/archive" "${FOLDER}/plain/linkout" SYMBOLIC)

expect("a checkout tells its own commits" plain 3 ${plain} "")
expect("the way to it may be a symbolic link" link 3 ${plain} "")
expect("a worktree is a checkout" worktree 2 ${before} "")
expect("a checkout inside another one is its own" outer/clone 3 ${plain} "")
expect("an archive has neither number" archive 0 ${noughts} "${noCheckout}")
expect("an archive inside another checkout has neither" outer/archive 0 ${noughts} "${noCheckout}")
expect("a folder of a checkout is none" plain/part 0 ${noughts} "${noCheckout}")
expect("a link out of a checkout leads to an archive" plain/linkout 0 ${noughts} "${noCheckout}")
expect("a checkout without a commit has neither" unborn 0 ${noughts} "${noCheckout}")
expect("a shallow clone knows its commit but not its revision" shallow 0 ${plain} "${shallow}")
expect("told its revision, a shallow clone lacks nothing" shallow 7 ${plain} "" SEL_REVISION=7)
expect("told its commit, it still lacks the revision" shallow 0 ${outer} "${shallow}"
    SEL_GITHASH=${outer})
expect("an archive takes what it is told" outer/archive 7 ${plain} "" SEL_REVISION=7
    SEL_GITHASH=${plain})
expect("a revision alone leaves the archive without a commit" outer/archive 7 ${noughts}
    "${noCheckout}" SEL_REVISION=7)
set(ENV{GIT_DIR} "${FOLDER}/outer/.git") # as in a hook
expect("another repository in the environment does not count" plain 3 ${plain} "")
expect("nor does it for an archive" archive 0 ${noughts} "${noCheckout}")

file(REMOVE_RECURSE "${FOLDER}")
if(wrong)
    message(FATAL_ERROR "the build calls itself what it is not")
endif()
