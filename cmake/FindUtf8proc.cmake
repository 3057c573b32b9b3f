include(${CMAKE_CURRENT_LIST_DIR}/PlainLibrary.cmake)
find_plain_library(Utf8proc utf8proc.h utf8proc)
