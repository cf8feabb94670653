/*
 * kt/utf16.h -- the UTF-16 code unit shared by the text, encoding and
 * loading families
 *
 * kt_utf16 is the same type as ICU's UChar: char16_t in C++, a 16-bit
 * unsigned integer in C, so ICU strings pass to and from libkt without
 * casts. Strings of kt_utf16 are NUL-terminated unless a length is given.
 */
#ifndef KT_UTF16_H
#define KT_UTF16_H

#include <stdint.h>

#ifdef __cplusplus
typedef char16_t kt_utf16;
#else
typedef uint16_t kt_utf16;
#endif

#endif /* KT_UTF16_H */
