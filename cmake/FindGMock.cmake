# Finds GoogleTest and GoogleMock, which distributions may package separately.
find_package(GTest QUIET)
if(TARGET GTest::gmock_main)
  set(GMOCK_LIBRARY GTest::gmock_main)
endif()
include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(GMock REQUIRED_VARS GMOCK_LIBRARY)
