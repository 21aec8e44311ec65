# The packages themselves: names, dependencies, scripts.
set(TESSARIN_PACKAGE_agent tessarin-user-agent)
set(TESSARIN_PACKAGE_agent_debug tessarin-user-agent-dbgsym)
set(TESSARIN_PACKAGE_host tessarin-service-host)
set(TESSARIN_PACKAGE_host_debug tessarin-service-host-dbgsym)
# Of the system's services, where both formats look for units.
set(TESSARIN_UNIT_FOLDER lib/systemd/system)
execute_process(COMMAND date --utc --rfc-email --date ${TESSARIN_VERSION_DATE} OUTPUT_VARIABLE TESSARIN_VERSION_DATE_RFC
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
# The one place that says so: packages, changelogs and copyright have it from here.
set(TESSARIN_MAINTAINER "Tessarin <packages@tessarin.com>" CACHE STRING "Who answers for the packages")
string(SUBSTRING ${TESSARIN_VERSION_DATE} 0 4 TESSARIN_COPYRIGHT_YEAR)

# What a program finds by itself comes from its libraries; here is what it starts, loads or talks to.
set(agent_debs "at-spi2-core, dbus-user-session | dbus-x11, default-dbus-system-bus | dbus-system-bus, qt6-wayland, xdg-utils")
set(agent_rpms "at-spi2-core, dbus, (qt6-qtwayland or qt6-wayland), util-linux, xdg-utils")

set(CPACK_PACKAGE_NAME tessarin)
set(CPACK_PACKAGE_VENDOR Tessarin)
set(CPACK_PACKAGE_VERSION ${TESSARIN_VERSION})
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /)
set(CPACK_COMPONENTS_ALL agent agent_debug host host_debug)
set(CPACK_COMPONENTS_GROUPING ONE_PER_GROUP)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_THREADS 1)
# The times of all files are the one that the build was given.
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_SOURCE_DIR}/same_time.cmake)

set(summary_agent "agent of the Tessarin file protection in a user's session")
set(text_agent "Watches the address fields of web browsers for the service of Tessarin,
shows in its status menu whether the permissions that the product needs are
granted, and opens a window that says what was found in a file.")
set(summary_host "development stand-in for the service of Tessarin")
set(text_host "Hosts the services that the agents of Tessarin talk to, with a scanner that
finds data in files by patterns. For developing and trying out; not part of
the product.")
foreach(component agent host)
    set(summary_${component}_debug "debug symbols for ${TESSARIN_PACKAGE_${component}}")
    set(text_${component}_debug "What a debugger needs to name functions and lines of the programs in
${TESSARIN_PACKAGE_${component}}.")
endforeach()

# deb
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${TESSARIN_MAINTAINER}")
set(CPACK_DEBIAN_COMPRESSION_TYPE gzip)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_AGENT_PACKAGE_DEPENDS "${agent_debs}")
set(CPACK_DEBIAN_AGENT_PACKAGE_RECOMMENDS "desktop-file-utils, polkitd | policykit-1")
set(CPACK_DEBIAN_HOST_PACKAGE_DEPENDS "tessarin-user-agent (= ${TESSARIN_VERSION}-1)")
set(CPACK_DEBIAN_AGENT_DEBUG_PACKAGE_DEPENDS "tessarin-user-agent (= ${TESSARIN_VERSION}-1)")
set(CPACK_DEBIAN_HOST_DEBUG_PACKAGE_DEPENDS "tessarin-service-host (= ${TESSARIN_VERSION}-1)")

# rpm: nothing of the machine and the time of the build.
set(CPACK_RPM_COMPONENT_INSTALL ON)
set(CPACK_RPM_FILE_NAME RPM-DEFAULT)
set(CPACK_RPM_PACKAGE_RELEASE 1)
set(CPACK_RPM_PACKAGE_LICENSE "LicenseRef-proprietary")
set(CPACK_RPM_COMPRESSION_TYPE gzip)
set(CPACK_RPM_SPEC_MORE_DEFINE "%define _buildhost reproducible
%define use_source_date_epoch_as_buildtime 1
%define clamp_mtime_to_source_date_epoch 1
%define _build_id_links none
%define packager ${TESSARIN_MAINTAINER}
%define __os_install_post %{nil}")
set(CPACK_RPM_CHANGELOG_FILE ${CMAKE_CURRENT_BINARY_DIR}/rpm.changelog)
execute_process(COMMAND env LC_ALL=C date --utc --date ${TESSARIN_VERSION_DATE} "+%a %b %d %Y" OUTPUT_VARIABLE rpm_date
                OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
file(CONFIGURE OUTPUT ${CPACK_RPM_CHANGELOG_FILE}
     CONTENT "* ${rpm_date} ${TESSARIN_MAINTAINER} - ${TESSARIN_VERSION}-1\n- Version ${TESSARIN_VERSION}\n")
set(CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION
    /etc/xdg /etc/xdg/autostart /lib/systemd /lib/systemd/system /opt /usr/lib/debug /usr/lib/debug/.build-id
    /usr/lib/systemd /usr/lib/systemd/user /usr/share/applications /usr/share/dbus-1 /usr/share/dbus-1/system.d /usr/share/icons
    /usr/share/lintian /usr/share/lintian/overrides /usr/share/man /usr/share/man/man1 /usr/share/man/man8 /usr/share/metainfo
    /usr/share/polkit-1 /usr/share/polkit-1/actions /usr/share/icons/hicolor /lib /var /var/log
    /usr/share/bash-completion /usr/share/bash-completion/completions)
foreach(size scalable 16x16 22x22 24x24 32x32 48x48 64x64 96x96 128x128 256x256 512x512)
    list(APPEND CPACK_RPM_EXCLUDE_FROM_AUTO_FILELIST_ADDITION /usr/share/icons/hicolor/${size} /usr/share/icons/hicolor/${size}/apps)
endforeach()
set(CPACK_RPM_AGENT_PACKAGE_REQUIRES "${agent_rpms}")
set(CPACK_RPM_HOST_PACKAGE_REQUIRES "tessarin-user-agent = ${TESSARIN_VERSION}-1")
set(CPACK_RPM_AGENT_DEBUG_PACKAGE_REQUIRES "tessarin-user-agent = ${TESSARIN_VERSION}-1")
set(CPACK_RPM_HOST_DEBUG_PACKAGE_REQUIRES "tessarin-service-host = ${TESSARIN_VERSION}-1")
set(CPACK_RPM_AGENT_USER_FILELIST "%config(noreplace) /etc/chromium.d/tessarin-accessibility"
    "%config(noreplace) /etc/xdg/autostart/com.tessarin.UserAgent.desktop")
set(CPACK_RPM_HOST_USER_FILELIST "%config(noreplace) /etc/tessarin/classifiers.json")

foreach(component agent agent_debug host host_debug)
    string(TOUPPER ${component} COMPONENT)
    set(CPACK_COMPONENT_${COMPONENT}_DESCRIPTION "${summary_${component}}\n${text_${component}}")
    set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${TESSARIN_PACKAGE_${component}})
    set(CPACK_RPM_${COMPONENT}_PACKAGE_NAME ${TESSARIN_PACKAGE_${component}})
    set(CPACK_RPM_${COMPONENT}_PACKAGE_SUMMARY "${summary_${component}}")
    set(CPACK_RPM_${COMPONENT}_PACKAGE_DESCRIPTION "${text_${component}}")
    set(scripts ${CMAKE_CURRENT_SOURCE_DIR}/scripts/${component})
    if(component MATCHES debug)
        set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_SECTION debug)
        set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_SHLIBDEPS OFF)
        set(CPACK_RPM_${COMPONENT}_PACKAGE_GROUP Development/Debug)
        set(CPACK_RPM_${COMPONENT}_PACKAGE_AUTOREQPROV no)
    else()
        set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_SECTION utils)
        set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_SHLIBDEPS ON)
        set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_CONTROL_EXTRA
            ${scripts}/conffiles ${scripts}/postinst ${scripts}/prerm ${scripts}/postrm)
        set(CPACK_RPM_${COMPONENT}_POST_INSTALL_SCRIPT_FILE ${scripts}/postinst)
        set(CPACK_RPM_${COMPONENT}_PRE_UNINSTALL_SCRIPT_FILE ${scripts}/prerm)
        set(CPACK_RPM_${COMPONENT}_POST_UNINSTALL_SCRIPT_FILE ${scripts}/postrm)
    endif()
endforeach()
