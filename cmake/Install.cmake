# Installs headers, libraries, the CMake package MorvixProtocol and the pkg-config files morvix-protocol and
# morvix-protocol-c.
include(CMakePackageConfigHelpers)
set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME development)

set(packageDir ${CMAKE_INSTALL_LIBDIR}/cmake/MorvixProtocol)

install(TARGETS morvix_protocol_v4 morvix_host EXPORT MorvixProtocolTargets)
install(FILES Protocol/AllVersions/v4/ProtocolInternal_v4.0.h Protocol/AllVersions/v4/ProtocolInspection_v4.0.h
        DESTINATION ${MORVIX_INCLUDE_DIR}/Protocol/AllVersions/v4)
install(FILES host/Base64.h host/Logging.h host/TavelConfig.h host/Text.h DESTINATION ${MORVIX_INCLUDE_DIR}/host)

set(pkgConfigFiles morvix-protocol)
if(TARGET morvix_protocol_c)
  list(APPEND pkgConfigFiles morvix-protocol-c)
  install(TARGETS morvix_protocol_c EXPORT MorvixProtocolTargets LIBRARY COMPONENT c_library
                                                                         NAMELINK_COMPONENT development)
  install(TARGETS morvix_protocol_c_static EXPORT MorvixProtocolTargets)
  install(FILES bindings/c/morvix_protocol.h DESTINATION ${MORVIX_INCLUDE_DIR})
endif()

install(EXPORT MorvixProtocolTargets NAMESPACE Morvix:: DESTINATION ${packageDir})
configure_package_config_file(cmake/MorvixProtocolConfig.cmake.in MorvixProtocolConfig.cmake
                              INSTALL_DESTINATION ${packageDir})
write_basic_package_version_file(MorvixProtocolConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/MorvixProtocolConfig.cmake ${PROJECT_BINARY_DIR}/MorvixProtocolConfigVersion.cmake
              cmake/JsonCpp.cmake DESTINATION ${packageDir})

# Arguments after the folder go to install().
function(install_pkg_config folder)
  file(RELATIVE_PATH pcToPrefix /prefix/${folder} /prefix)
  foreach(name ${pkgConfigFiles})
    configure_file(cmake/${name}.pc.in ${folder}/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${folder}/${name}.pc DESTINATION ${folder} ${ARGN})
  endforeach()
endfunction()
set(pcDir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
set(debianPcDir lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig)
if(CMAKE_LIBRARY_ARCHITECTURE AND NOT pcDir STREQUAL debianPcDir)
  # In a Debian package, pkg-config looks in this folder when it works for another machine.
  install_pkg_config(${pcDir} COMPONENT local)
  install_pkg_config(${debianPcDir} EXCLUDE_FROM_ALL)
else()
  install_pkg_config(${pcDir})
endif()

install(FILES schemas/product-configuration.schema.json DESTINATION ${CMAKE_INSTALL_DATADIR}/morvix COMPONENT tool)

if(isTopLevel)
  include(cmake/Debian.cmake)
endif()
