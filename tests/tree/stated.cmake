# SPDX-License-Identifier: Apache-2.0
#
# Fails where a document below TREE does not state a constant of the sources as it is.

cmake_policy(VERSION 3.22)

set(wrong 0)
file(GLOB_RECURSE files "${TREE}/src/*.h" "${TREE}/src/*.cpp")
set(sources "")
foreach(file IN LISTS files)
    file(READ "${file}" text)
    string(APPEND sources "${text}")
endforeach()

# The number that a constant is defined as, or begins with; nothing unless there is just one.
function(value_of constant result)
    string(REGEX MATCHALL "[^A-Za-z0-9_:.]${constant} = [0-9]+" definitions "${sources}")
    list(LENGTH definitions count)
    if(count EQUAL 1)
        string(REGEX MATCH "[0-9]+$" value "${definitions}")
    else()
        set(value "")
    endif()
    set(${result} "${value}" PARENT_SCOPE)
endfunction()

# As documents write numbers: 1,048,576.
function(with_commas number result)
    while(number MATCHES "^([0-9]+)([0-9][0-9][0-9])(.*)$")
        set(number "${CMAKE_MATCH_1},${CMAKE_MATCH_2}${CMAKE_MATCH_3}")
    endwhile()
    set(${result} "${number}" PARENT_SCOPE)
endfunction()

# stated(<constant> <document> <statement>...): in the statements <n> stands for the
# constant, <KiB> for so many KiB, <n+1> and <n-1> for its neighbours. Their blanks may be
# line ends in the document.
function(stated constant document)
    value_of(${constant} value)
    if(value STREQUAL "")
        message("the sources do not define ${constant} once, as a number")
        set(wrong 1 PARENT_SCOPE)
        return()
    endif()
    math(EXPR kib "${value} / 1024")
    math(EXPR rest "${value} % 1024")
    if(rest)
        set(kib "no whole number of")
    endif()
    math(EXPR next "${value} + 1")
    math(EXPR previous "${value} - 1")
    file(READ "${TREE}/${document}" text)
    string(REGEX REPLACE "[ \n]+" " " text "${text}")
    foreach(statement IN LISTS ARGN)
        foreach(form IN ITEMS n=${value} KiB=${kib} n+1=${next} n-1=${previous})
            string(REGEX MATCH "^(.*)=(.*)$" form "${form}")
            with_commas(${CMAKE_MATCH_2} number)
            string(REPLACE "<${CMAKE_MATCH_1}>" "${number}" statement "${statement}")
        endforeach()
        string(FIND "${text}" "${statement}" position)
        if(position LESS 0)
            message("${document} does not say of ${constant}: ${statement}")
            set(wrong 1 PARENT_SCOPE)
        endif()
    endforeach()
endfunction()

stated(defaultBundleSize ARCHITECTURE.md "larger than <n> bytes" "| bundle | <n> bytes and one record |")
stated(defaultBundleSize docs/log-format.md "as soon as they are more than <n> bytes")
stated(defaultBundleSize docs/dbus.md "when they are more than <n> bytes")
stated(defaultBundleSize docs/installing.md "at most <n> bytes, at most")
stated(defaultBundleSize docs/reliability.md "(<n> bytes and the record that exceeds them)")
stated(defaultBundleSize dist/man/systemeventlogger.8.in "once they exceed <n> bytes")

stated(defaultFlushInterval ARCHITECTURE.md "comes <n> seconds after the first record")
stated(defaultFlushInterval README.md "at the latest <n> seconds after it came"
    "at most <n> seconds' worth")
stated(defaultFlushInterval docs/log-format.md "at the latest <n> seconds after the first record")
stated(defaultFlushInterval docs/dbus.md "at the latest after <n> seconds")
stated(defaultFlushInterval docs/fleet.md "a delay of up to <n> seconds")
stated(defaultFlushInterval docs/installing.md "reaches its file after <n> seconds or a little more"
    "at most <n> seconds old")
stated(defaultFlushInterval docs/building.md "the flush timer's real <n> seconds")
stated(defaultFlushInterval docs/reliability.md "the record that exceeds them) or <n> seconds"
    "Records reach the disk after <n> s whatever the clock does")
stated(defaultFlushInterval dist/man/systemeventlogger.8.in "at the latest after <n> seconds")

stated(defaultFileSize ARCHITECTURE.md "A file that has reached <n> bytes")
stated(defaultFileSize README.md "files of about <KiB> KiB are kept")
stated(defaultFileSize docs/log-format.md "Once `zib0.log` has reached <n> bytes"
    "full file exceeds <n> bytes by less than one bundle")
stated(defaultFileSize docs/fleet.md "eleven files of <KiB> KiB")
stated(defaultFileSize dist/man/zib.log.5.in "has reached <n> bytes the oldest file is deleted")

stated(defaultLogtail ARCHITECTURE.md "zib0.log .. zib<n>.log")
stated(defaultLogtail README.md "By default <n+1> files")
stated(defaultLogtail docs/log-format.md "that is <n+1> by default" "with a `logtail` of <n>, since")

stated(maxAnswerSize ARCHITECTURE.md "below <n> bytes of UTF-8")
stated(maxAnswerSize docs/dbus.md "the answer would take <n> bytes of UTF-8 or more")

stated(maxLength ARCHITECTURE.md "| rendered text | <n> UTF-16 units")
stated(maxLength docs/catalogue.md "No text grows beyond <n> UTF-16 units")
stated(spareWork ARCHITECTURE.md "and <n> characters more")
stated(spareWork docs/catalogue.md "and <n> characters more")
stated(answerWork ARCHITECTURE.md "one budget of <n>")
stated(answerWork docs/catalogue.md "take from <n> characters")
stated(liveWork ARCHITECTURE.md "The text of a datagram has <n> besides")
stated(liveWork docs/catalogue.md "in a datagram <n> more")

stated(syslogPort ARCHITECTURE.md "receiver, port <n>")
stated(syslogPort README.md "unacknowledged and unencrypted, to port <n>")
stated(syslogPort docs/datagram.md "as one UDP datagram to port <n> of the receiver")
stated(syslogPort docs/fleet.md "UDP, port <n>:")
stated(syslogPort dist/man/systemeventlogger.8.in "datagrams to port <n>")
stated(facilityDaemon docs/datagram.md "<n> (facility \"system daemons\") plus the level number")
stated(unknownLogLevel docs/datagram.md "whose level the catalogue does not define counts as <n>")
stated(liveDoubleDigits docs/datagram.md "<n> significant digits")
stated(liveDoubleDigits ARCHITECTURE.md "A double in a datagram has <n> significant digits")

stated(lengthModulus ARCHITECTURE.md "Lengths of strings and records are kept modulo <n>")
stated(lengthModulus docs/log-format.md "the bytes before this field, modulo <n>"
    "byte count n (modulo <n>)" "A record or string of <n> bytes or more")
stated(lengthModulus docs/reliability.md "An event of more than <n-1> bytes" "length modulo <n>")
stated(usualRead ARCHITECTURE.md "one window of at most <KiB> KiB of one file"
    "one window of <KiB> KiB |")
stated(usualRead docs/performance.md "one window of <KiB> KiB is in memory")
stated(convertedAtOnce ARCHITECTURE.md "to a `QString` some <KiB> KiB at a time")
stated(mostSpare ARCHITECTURE.md "but for the last <n> descriptors of the process")
stated(mostSpare docs/reliability.md "<n> descriptors are left to the bus")
stated(mostLines ARCHITECTURE.md "<n> lines of a kind in a minute")
stated(mostLines docs/reliability.md "At most <n> lines of a kind are written")
stated(mostLength ARCHITECTURE.md "cut behind <n> characters")
stated(mostLength docs/reliability.md "A message is cut behind <n> characters")
stated(kindLength ARCHITECTURE.md "its first <n> characters")
stated(kindLength docs/reliability.md "their first <n> characters")
stated(mostKinds ARCHITECTURE.md "beyond <n> kinds")
stated(mostKinds docs/reliability.md "After <n> kinds in one minute")

if(wrong)
    message(FATAL_ERROR "documents and sources state different constants")
endif()
