# Where `cmake --install` puts kiv-server, and the Debian package CPack makes of the same
# files. Included by the top-level CMakeLists.txt, which installs the two built binaries into
# KIV_INSTALL_BINDIR and KIV_INSTALL_MODULEDIR, and by packaging/CMakeLists.txt, which does
# the same with binaries built elsewhere. Everything else is installed here:
#
#   <prefix>/bin/kiv-server
#   <prefix>/lib/kiv/libkivdatabase.so           found from ../lib/kiv/ beside the program
#   <prefix>/include/kiv/KivModuleInterface.h    for authors of other modules
#   <prefix>/share/kiv-server/example-site/      the example site, served read-only
#   <prefix>/share/doc/kiv-server/               the administrator's and page author's guides
#   <prefix>/lib/systemd/system/kiv-server.service
#   <sysconf>/kiv-server/kiv-server.toml         <sysconf> is /etc for the prefix /usr,
#   <sysconf>/logrotate.d/kiv-server             <prefix>/etc otherwise
#
# The service keeps its databases in /var/lib/kiv-server and its logs in /var/log/kiv-server
# whatever the prefix: systemd makes both for it.
get_filename_component(KIV_SOURCE_DIR "${CMAKE_CURRENT_LIST_DIR}/.." ABSOLUTE)

# The version is the project's own, from the top-level project() line.
file(STRINGS "${KIV_SOURCE_DIR}/CMakeLists.txt" projectLine REGEX "^project\\(.* VERSION [0-9.]+")
string(REGEX REPLACE ".* VERSION ([0-9.]+).*" "\\1" KIV_PACKAGE_VERSION "${projectLine}")

set(KIV_INSTALL_BINDIR bin)
set(KIV_INSTALL_MODULEDIR lib/kiv)
set(KIV_INSTALL_INCLUDEDIR include/kiv)
set(KIV_INSTALL_SITEDIR share/kiv-server/example-site)
set(KIV_INSTALL_DOCDIR share/doc/kiv-server)
set(KIV_INSTALL_UNITDIR lib/systemd/system)
# Like GNUInstallDirs: a system package's configuration is in /etc, not /usr/etc.
if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
    set(KIV_INSTALL_SYSCONFDIR /etc)
else()
    set(KIV_INSTALL_SYSCONFDIR etc)
endif()
set(KIV_INSTALL_CONFDIR ${KIV_INSTALL_SYSCONFDIR}/kiv-server)
set(KIV_INSTALL_LOGROTATEDIR ${KIV_INSTALL_SYSCONFDIR}/logrotate.d)

# The absolute paths the unit, the configuration and the maintainer scripts name.
foreach(kind BINDIR MODULEDIR SITEDIR DOCDIR CONFDIR LOGROTATEDIR)
    if(IS_ABSOLUTE "${KIV_INSTALL_${kind}}")
        set(KIV_INSTALL_FULL_${kind} "${KIV_INSTALL_${kind}}")
    else()
        set(KIV_INSTALL_FULL_${kind} "${CMAKE_INSTALL_PREFIX}/${KIV_INSTALL_${kind}}")
    endif()
endforeach()
set(KIV_CONFIG_FILE ${KIV_INSTALL_FULL_CONFDIR}/kiv-server.toml)

set(generated ${CMAKE_BINARY_DIR}/packaging)
configure_file(${CMAKE_CURRENT_LIST_DIR}/kiv-server.service.in ${generated}/kiv-server.service @ONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/kiv-server.toml.in ${generated}/kiv-server.toml @ONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/postinst.in ${generated}/debian/postinst @ONLY
               FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                                WORLD_EXECUTE)
configure_file(${CMAKE_CURRENT_LIST_DIR}/debian/conffiles.in ${generated}/debian/conffiles @ONLY)

install(FILES ${KIV_SOURCE_DIR}/database/include/KivModuleInterface.h DESTINATION ${KIV_INSTALL_INCLUDEDIR})
install(DIRECTORY ${KIV_SOURCE_DIR}/examples/site/ DESTINATION ${KIV_INSTALL_SITEDIR})
install(FILES ${KIV_SOURCE_DIR}/docs/administrator-guide.md ${KIV_SOURCE_DIR}/docs/page-author-guide.md
        DESTINATION ${KIV_INSTALL_DOCDIR})
install(FILES ${generated}/kiv-server.service DESTINATION ${KIV_INSTALL_UNITDIR})
install(FILES ${generated}/kiv-server.toml DESTINATION ${KIV_INSTALL_CONFDIR})
install(FILES ${CMAKE_CURRENT_LIST_DIR}/kiv-server.logrotate DESTINATION ${KIV_INSTALL_LOGROTATEDIR}
        RENAME kiv-server)
# The module is loaded, not run: a shared object is not executable in a Debian package.
set(KIV_MODULE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)

# The Debian package: `cpack` in a build configured with -DCMAKE_INSTALL_PREFIX=/usr makes
# kiv-server_<version>_<architecture>.deb.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME kiv-server)
set(CPACK_PACKAGE_VERSION ${KIV_PACKAGE_VERSION})
set(CPACK_PACKAGE_CONTACT "kiv-server maintainers <kiv-server@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "web server for pages with module tags, with the Database Module")
set(CPACK_DEBIAN_PACKAGE_DESCRIPTION
    "kiv-server renders HTML pages whose tags are run by loadable modules. It comes with\n"
    "the Database Module (searches, forms and an editor for databases in pages), an\n"
    "example site, a configuration, a systemd unit and a logrotate file.")
string(JOIN "" CPACK_DEBIAN_PACKAGE_DESCRIPTION ${CPACK_DEBIAN_PACKAGE_DESCRIPTION})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION web)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# The libraries the binaries need become Debian package names (dpkg-shlibdeps); the maintainer
# scripts need adduser.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_DEPENDS "adduser")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "systemd, logrotate")
set(CPACK_DEBIAN_PACKAGE_CONTROL_EXTRA ${generated}/debian/postinst ${CMAKE_CURRENT_LIST_DIR}/debian/prerm
                                       ${CMAKE_CURRENT_LIST_DIR}/debian/postrm ${generated}/debian/conffiles)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
# The package installs where the unit and the configuration say the files are; /etc is outside
# the prefix, which only an install into a staging folder (DESTDIR) can take.
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
include(CPack)
