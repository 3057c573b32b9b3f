# Defines the target Utf8proc::Utf8proc. The library does not install a CMake package.
find_path(UTF8PROC_INCLUDE_DIR utf8proc.h)
find_library(UTF8PROC_LIBRARY utf8proc)
mark_as_advanced(UTF8PROC_INCLUDE_DIR UTF8PROC_LIBRARY)
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(Utf8proc REQUIRED_VARS UTF8PROC_LIBRARY UTF8PROC_INCLUDE_DIR)
if(Utf8proc_FOUND AND NOT TARGET Utf8proc::Utf8proc)
  add_library(Utf8proc::Utf8proc UNKNOWN IMPORTED)
  set_target_properties(Utf8proc::Utf8proc PROPERTIES IMPORTED_LOCATION "${UTF8PROC_LIBRARY}"
                                                      INTERFACE_INCLUDE_DIRECTORIES "${UTF8PROC_INCLUDE_DIR}")
endif()
