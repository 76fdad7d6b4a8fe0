# Debian packages made with CPack: libvelmdb1 (the shared libraries),
# libvelmdb-dev (headers, CMake and pkg-config files) and velm-tools (velmctl,
# velm-registrar and its service). `cpack -G DEB` in a build configured with
# -DCMAKE_INSTALL_PREFIX=/usr -DVELM_RELOCATABLE=OFF makes them (scripts/package).
set(VELM_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)
set(VELM_PACKAGING_OUT ${PROJECT_BINARY_DIR}/packaging)
set(VELM_DEB_VERSION ${PROJECT_VERSION}-1)
set(VELM_DEB_NAME_library libvelmdb1)
set(VELM_DEB_NAME_development libvelmdb-dev)
set(VELM_DEB_NAME_tools velm-tools)

set(CPACK_PACKAGE_NAME velmdb)
set(CPACK_PACKAGE_VENDOR "velmdb maintainers")
set(CPACK_PACKAGE_CONTACT "velmdb maintainers <maintainers@velmdb.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development tools)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The programs' own libraries come from libvelmdb1 (an explicit dependency);
# dpkg-shlibdeps finds them in the build tree.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/platform ${PROJECT_BINARY_DIR}/database)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Only libvelmdb1 has shared libraries to declare.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_OUTPUT_FILE_PREFIX ${PROJECT_BINARY_DIR}/packages)

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME ${VELM_DEB_NAME_library})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
# ldconfig runs as a trigger; CPack adds its own call to the scripts too.
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${VELM_PACKAGING}/triggers)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "database-access library of the velm SIP servers
libvelmdb lets SIP servers register their subscribers' contacts, route
requests and read their routing and policy configuration in a PostgreSQL
database. This package holds libvelmdb and its support library
libvelmplatform.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${VELM_DEB_NAME_development})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
# velmdb.pc names these libraries' pkg-config files.
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libvelmdb1 (= ${VELM_DEB_VERSION}), libpq-dev, unixodbc-dev, \
libinih-dev, libosip2-dev, libsodium-dev, libgsoap-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "database-access library of the velm SIP servers - development files
The headers of libvelmdb and libvelmplatform, the CMake package velmdb
(find_package(velmdb)) and the pkg-config file velmdb.pc.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${VELM_DEB_NAME_tools})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libvelmdb1 (= ${VELM_DEB_VERSION}), adduser")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS postgresql)
file(WRITE ${VELM_PACKAGING_OUT}/conffiles "/etc/velm/velm.conf\n/etc/default/velm-registrar\n")
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA
  ${VELM_PACKAGING_OUT}/conffiles ${VELM_PACKAGING}/postinst ${VELM_PACKAGING}/prerm ${VELM_PACKAGING}/postrm)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "tools of the velm location-service database
velmctl provisions subscribers, registers contacts and shows how requests
are routed, through libvelmdb; it also runs a private PostgreSQL server to
try the library out. velm-registrar is a SIP registrar and redirect server
on the same database, with a systemd service running as the user velm.")

# Compressed at build time, without names or times, so the packages are the
# same from build to build.
function(velm_gzip source output)
  add_custom_command(OUTPUT ${output}
    COMMAND gzip -9n -c ${source} > ${output}
    DEPENDS ${source}
    VERBATIM)
  set_property(GLOBAL APPEND PROPERTY VELM_PACKAGING_FILES ${output})
endfunction()
velm_gzip(${VELM_PACKAGING}/velmctl.1 ${VELM_PACKAGING_OUT}/velmctl.1.gz)
velm_gzip(${VELM_PACKAGING}/velm-registrar.8 ${VELM_PACKAGING_OUT}/velm-registrar.8.gz)
configure_file(${VELM_PACKAGING}/changelog.Debian.in ${VELM_PACKAGING_OUT}/changelog.Debian @ONLY)
velm_gzip(${VELM_PACKAGING_OUT}/changelog.Debian ${VELM_PACKAGING_OUT}/changelog.Debian.gz)
get_property(packaging_files GLOBAL PROPERTY VELM_PACKAGING_FILES)
add_custom_target(velm-packaging-files ALL DEPENDS ${packaging_files})

install(FILES ${VELM_PACKAGING_OUT}/velmctl.1.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
install(FILES ${VELM_PACKAGING_OUT}/velm-registrar.8.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man8 COMPONENT tools)
install(FILES ${VELM_PACKAGING}/velmctl.bash-completion RENAME velmctl
  DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
# What only a system installation has: the service, its settings, and each
# package's Debian documents. Left out of a plain `cmake --install`.
install(FILES ${VELM_PACKAGING}/velm.conf DESTINATION /etc/velm COMPONENT tools EXCLUDE_FROM_ALL)
install(FILES ${VELM_PACKAGING}/velm-registrar.default RENAME velm-registrar
  DESTINATION /etc/default COMPONENT tools EXCLUDE_FROM_ALL)
install(FILES ${VELM_PACKAGING}/velm-registrar.service DESTINATION /lib/systemd/system COMPONENT tools EXCLUDE_FROM_ALL)
foreach(component library development tools)
  install(FILES ${VELM_PACKAGING}/copyright ${VELM_PACKAGING_OUT}/changelog.Debian.gz
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${VELM_DEB_NAME_${component}} COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
