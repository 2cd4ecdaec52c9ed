# SPDX-License-Identifier: Apache-2.0

# The Debian packages, made by "cpack" or the target "package": the component "device" is
# systemeventlogger, the component "tool" systemeventctl.

set(SEL_MAINTAINER "systemeventlogger maintainers <maintainers@systemeventlogger.example.org>")

# sel_install_debian(<component> <package> <folder>): what only the package has.
function(sel_install_debian component package folder)
    configure_file(debian/${package}.changelog.in debian/${package}/changelog.Debian @ONLY)
    set(output "${CMAKE_CURRENT_BINARY_DIR}/debian/${package}/changelog.Debian")
    add_custom_command(OUTPUT "${output}.gz"
        COMMAND ${SEL_GZIP} --best --no-name --force --keep "${output}"
        DEPENDS "${output}" VERBATIM)
    add_custom_target(sel_changelog_${component} ALL DEPENDS "${output}.gz")
    install(FILES "${output}.gz" DESTINATION ${folder} COMPONENT ${component} EXCLUDE_FROM_ALL)
endfunction()
sel_install_debian(device systemeventlogger ${SEL_DOC_DIRECTORY})
sel_install_debian(tool systemeventctl ${SEL_TOOL_DOC_DIRECTORY})

foreach(script postinst prerm postrm)
    configure_file(debian/${script}.in debian/${script} @ONLY
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
            GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    list(APPEND CPACK_DEBIAN_DEVICE_PACKAGE_CONTROL_EXTRA
        "${CMAKE_CURRENT_BINARY_DIR}/debian/${script}")
endforeach()

install(FILES debian/lintian-overrides
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME systemeventlogger
    COMPONENT device EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL device tool)
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${SEL_MAINTAINER}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each has its own
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DEVICE_PACKAGE_NAME systemeventlogger)
set(CPACK_DEBIAN_DEVICE_DESCRIPTION
"event memory of an embedded Linux device
Hears every status change that the services of a device announce on the
system bus, stores each as a record in small rotating files, sends it on
as a syslog-style datagram, and reads ranges of records back as JSON in a
chosen language. What an event means is said by an XML catalogue, which
the maker of the device supplies.")
# The unit repairs the log by the tool before every start; both are of one version.
set(device_depends
    "systemeventctl (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})"
    "default-dbus-system-bus | dbus-system-bus"
    "systemd | systemd-standalone-sysusers | systemd-sysusers"
    "systemd | systemd-standalone-tmpfiles | systemd-tmpfiles")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME systemeventctl)
set(CPACK_DEBIAN_TOOL_DESCRIPTION
"event log of an embedded Linux device in people's hands
Shows, counts, reports, verifies and salvages the log files that
systemeventlogger writes, on the device or in a folder copied from it,
without the daemon; and checks the XML catalogues that say what an event
means. On a device it also shows status changes as they are announced,
announces them, and changes the daemon's settings.
.
These last things are done over the system bus, by the library of
libdbus-1-3, which is loaded only when it is needed: on a PC where log
files are looked at, nothing of the bus has to be installed.")
# Loaded at run time, so nothing else sees that it is used.
set(CPACK_DEBIAN_TOOL_PACKAGE_RECOMMENDS "libdbus-1-3")
# What pages the output where $PAGER names nothing else.
set(CPACK_DEBIAN_TOOL_PACKAGE_SUGGESTS "less")
set(tool_depends "")

if(NOT CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
    # The tool that finds the libraries' packages sees only the building machine's.
    if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
    elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
    endif()
    if(SEL_QT_MAJOR EQUAL 6)
        set(core "libqt6core6 (>= 6.4.0)")
        list(APPEND device_depends "libqt6dbus6 (>= 6.4.0)" "libqt6network6 (>= 6.4.0)")
    else()
        set(core "libqt5core5a (>= 5.15.2)")
        list(APPEND device_depends "libqt5dbus5 (>= 5.15.2)" "libqt5network5 (>= 5.15.2)")
    endif()
    foreach(depends device_depends tool_depends)
        list(APPEND ${depends}
            "libc6 (>= 2.34)" "libgcc-s1 (>= 3.5)" "libstdc++6 (>= 12)" "${core}")
    endforeach()
endif()
list(JOIN device_depends ", " CPACK_DEBIAN_DEVICE_PACKAGE_DEPENDS)
list(JOIN tool_depends ", " CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS)

include(CPack)
