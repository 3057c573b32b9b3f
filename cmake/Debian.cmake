# `cpack -G DEB` makes three packages: libmorvix-protocol-dev with headers and libraries, libmorvix-protocol-c1 with the
# shared library of the C interface, and dp4, the tool. The same source and SOURCE_DATE_EPOCH give the same packages.
# The distributor sets these two:
set(MORVIX_MAINTAINER "Unknown maintainer <maintainer@example.org>" CACHE STRING
    "Maintainer of the Debian packages, as Name <address>")
set(MORVIX_COPYRIGHT_FILE "" CACHE FILEPATH "Copyright file of the Debian packages")

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME morvix-protocol)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_MORVIX_COPYRIGHT_FILE ${MORVIX_COPYRIGHT_FILE})
set(CPACK_PACKAGE_CONTACT ${MORVIX_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL development c_library)
set(CPACK_COMPONENTS_GROUPING IGNORE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/DebianDocuments.cmake)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libmorvix-protocol-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libjsoncpp-dev, libmorvix-protocol-c1 (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "data-point protocol of Wi-Fi appliances, development files
Translates between JSON documents of named attribute values and compact
bit-packed packets, as a JSON product configuration describes them.
.
This package has the headers and libraries, with a CMake package and a
pkg-config file.")

# Named after the library's name and number, as Debian wants it.
set(CPACK_DEBIAN_C_LIBRARY_PACKAGE_NAME libmorvix-protocol-c1)
set(CPACK_DEBIAN_C_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_C_LIBRARY_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_C_LIBRARY_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/debian/triggers)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_COMPONENT_C_LIBRARY_DESCRIPTION
    "data-point protocol of Wi-Fi appliances, C interface
Translates between JSON documents of named attribute values and compact
bit-packed packets, as a JSON product configuration describes them, for
programs in C and other languages.")

if(TARGET dp4)
  list(APPEND CPACK_COMPONENTS_ALL tool)
  set(CPACK_DEBIAN_TOOL_PACKAGE_NAME dp4)
  set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION utils)
  set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
  set(CPACK_COMPONENT_TOOL_DESCRIPTION
      "shows and checks configurations and packets of Wi-Fi appliances
Lists and draws what a product configuration means to a device, finds its
problems, and turns values into packets and captured packets into values.
.
The JSON Schema of product configurations, for editors, is there as well.")
endif()

include(CPack)
