include(${CMAKE_CURRENT_LIST_DIR}/PlainLibrary.cmake)
find_plain_library(Re2 re2/re2.h re2)
