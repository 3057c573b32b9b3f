# Makes the target Re2::Re2. Debian 12 ships the library without a CMake package.
find_path(RE2_INCLUDE_DIR re2/re2.h)
find_library(RE2_LIBRARY re2)
mark_as_advanced(RE2_INCLUDE_DIR RE2_LIBRARY)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Re2 REQUIRED_VARS RE2_LIBRARY RE2_INCLUDE_DIR)
if(Re2_FOUND AND NOT TARGET Re2::Re2)
  add_library(Re2::Re2 UNKNOWN IMPORTED)
  set_target_properties(Re2::Re2 PROPERTIES IMPORTED_LOCATION "${RE2_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES
                                            "${RE2_INCLUDE_DIR}")
endif()
