# SPDX-License-Identifier: Apache-2.0

# The Debian package, made by "cpack" or the target "package".

set(SEL_MAINTAINER "systemeventlogger maintainers <maintainers@systemeventlogger.example.org>")

configure_file(debian/changelog.in debian/changelog @ONLY)
sel_install_compressed("${CMAKE_CURRENT_BINARY_DIR}/debian/changelog"
    ${SEL_DOC_DIRECTORY} changelog.Debian debian EXCLUDE_FROM_ALL)
foreach(script postinst prerm postrm)
    configure_file(debian/${script}.in debian/${script} @ONLY
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE
            GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    list(APPEND CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA
        "${CMAKE_CURRENT_BINARY_DIR}/debian/${script}")
endforeach()

install(FILES debian/lintian-overrides
    DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME systemeventlogger
    COMPONENT debian EXCLUDE_FROM_ALL)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_INSTALL_CMAKE_PROJECTS
    "${CMAKE_BINARY_DIR};systemeventlogger;device;/"
    "${CMAKE_BINARY_DIR};systemeventlogger;debian;/")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGE_NAME systemeventlogger)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${SEL_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "event memory of an embedded Linux device")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
"Hears every status change that the services of a device announce on the
system bus, stores each as a record in small rotating files, sends it on
as a syslog-style datagram, and reads ranges of records back as JSON in a
chosen language. What an event means is said by an XML catalogue, which
the maker of the device supplies.")

set(CPACK_DEBIAN_PACKAGE_DEPENDS
    "default-dbus-system-bus | dbus-system-bus"
    "systemd | systemd-standalone-sysusers | systemd-sysusers"
    "systemd | systemd-standalone-tmpfiles | systemd-tmpfiles")
if(NOT CMAKE_CROSSCOMPILING)
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
else()
    # The tool that finds the libraries' packages sees only the building machine's.
    if(CMAKE_SYSTEM_PROCESSOR STREQUAL "aarch64")
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE arm64)
    elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
        set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE armhf)
    endif()
    list(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS
        "libc6 (>= 2.34)" "libgcc-s1 (>= 3.5)" "libstdc++6 (>= 12)")
    if(SEL_QT_MAJOR EQUAL 6)
        list(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS "libqt6core6 (>= 6.4.0)"
            "libqt6dbus6 (>= 6.4.0)" "libqt6network6 (>= 6.4.0)")
    else()
        list(APPEND CPACK_DEBIAN_PACKAGE_DEPENDS "libqt5core5a (>= 5.15.2)"
            "libqt5dbus5 (>= 5.15.2)" "libqt5network5 (>= 5.15.2)")
    endif()
endif()
list(JOIN CPACK_DEBIAN_PACKAGE_DEPENDS ", " CPACK_DEBIAN_PACKAGE_DEPENDS)

include(CPack)
