/// @file
/// Base64 in the standard alphabet of RFC 4648: the form of binary attributes in documents.

#ifndef MORVIX_HOST_BASE64_H
#define MORVIX_HOST_BASE64_H

#include <cstddef>
#include <cstdint>

using byte = unsigned char;  ///< One byte of a packet or payload.

/// Encodes `length` bytes at `input`, padded and without line breaks, into `output`, which has room for `capacity`
/// characters. Returns `output`, NUL-terminated; it is empty when `capacity` is too small for the whole result with its
/// NUL. When `capacity` is 0, returns another empty string and leaves `output` untouched.
char* __internal_base64_encode(char* output, uint32_t capacity, const byte* input, size_t length);

/// Decodes the NUL-terminated `text` into `output` and returns the number of bytes written, never more than `capacity`.
/// White space is skipped. Decoding stops at the first other character outside the alphabet, '=' included; two symbols
/// of an incomplete group give one byte, three give two, a single one is dropped.
int __internal_base64_decode(byte* output, const char* text, uint32_t capacity);

#endif
