# Makes the target Md::Md. The library brings no CMake package of its own.
find_path(MD_INCLUDE_DIR sha2.h)
find_library(MD_LIBRARY md)
mark_as_advanced(MD_INCLUDE_DIR MD_LIBRARY)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Md REQUIRED_VARS MD_LIBRARY MD_INCLUDE_DIR)
if(Md_FOUND AND NOT TARGET Md::Md)
  add_library(Md::Md UNKNOWN IMPORTED)
  set_target_properties(Md::Md PROPERTIES IMPORTED_LOCATION "${MD_LIBRARY}" INTERFACE_INCLUDE_DIRECTORIES
                                                                            "${MD_INCLUDE_DIR}")
endif()
