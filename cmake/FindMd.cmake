include(${CMAKE_CURRENT_LIST_DIR}/PlainLibrary.cmake)
find_plain_library(Md sha2.h md)
