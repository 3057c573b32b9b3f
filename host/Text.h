/// @file
/// The string function that the protocol module needs for keywords.

#ifndef MORVIX_HOST_TEXT_H
#define MORVIX_HOST_TEXT_H

/// Lower-cases the ASCII letters of a NUL-terminated string in place, in every locale, and returns it.
char* strlwr(char* text);

#endif
