/// @file
/// Text in place, as the protocol module needs it for keywords.

#ifndef MORVIX_HOST_TEXT_H
#define MORVIX_HOST_TEXT_H

/// Lower-cases the ASCII letters of a NUL-terminated text in place, whatever the locale, and returns it.
char* strlwr(char* text);

#endif
