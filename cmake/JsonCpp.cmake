# Defines the target JsonCpp::JsonCpp, for this project and for the installed package. The guard is needed because the
# CMake package of JsonCpp 1.9.5 cannot be found twice in one scope.
if(NOT TARGET JsonCpp::JsonCpp)
  find_package(jsoncpp CONFIG REQUIRED)
  # Writers before 1.8.4 print the real number 4.0 as 4, so the version of a receive document would be lost.
  if(jsoncpp_VERSION VERSION_LESS 1.8.4)
    message(FATAL_ERROR "JsonCpp 1.8.4 or later is needed, ${jsoncpp_VERSION} was found in ${jsoncpp_DIR}")
  endif()
  if(NOT TARGET JsonCpp::JsonCpp)
    add_library(JsonCpp::JsonCpp INTERFACE IMPORTED)
    set_target_properties(JsonCpp::JsonCpp PROPERTIES INTERFACE_LINK_LIBRARIES jsoncpp_lib)
  endif()
endif()
