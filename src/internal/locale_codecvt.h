// Stand-in for the locale part of the in-house i18n library: the system
// code page, code-page text to UTF-16, and UTF-16 to UTF-8, through ICU.
//
// Used by ktVSNprintf to re-encode text that is not valid UTF-8, and meant
// for the Unicode-conversion family too. All functions are thread-safe.
#ifndef KT_INTERNAL_LOCALE_CODECVT_H
#define KT_INTERNAL_LOCALE_CODECVT_H

#include <cstddef>
#include <string>

#include "kt/errors.h"  // cx::ustring

namespace cx::i18n {

// The name of the system locale's code page (such as "UTF-8" or
// "ISO-8859-1"), determined once per process: the C library's codeset of
// the process locale, or of the environment's locale while the process is
// still in the "C" locale. The reference stays valid for the process.
const std::string& system_codepage();

// Replaces the cached code-page name (for hosts that know better, and for
// tests). Not to be called while other threads convert text.
void set_system_codepage(const char* name);

// Converts `length` bytes of `text` in code page `codepage` to UTF-16.
// Bytes the code page does not map become U+FFFD. A code page ICU does not
// know is read as ISO-8859-1, so the result is never empty for non-empty
// input.
cx::ustring codecvt_string_to_ustring(const char* text, size_t length,
                                      const std::string& codepage);
inline cx::ustring codecvt_string_to_ustring(const std::string& text,
                                             const std::string& codepage) {
  return codecvt_string_to_ustring(text.data(), text.size(), codepage);
}

// Converts UTF-16 to UTF-8; unpaired surrogates become U+FFFD.
std::string ustring_to_utf8(const char16_t* text, size_t length);
inline std::string ustring_to_utf8(const cx::ustring& text) {
  return ustring_to_utf8(text.data(), text.size());
}

// Whether `length` bytes of `text` are well-formed UTF-8 (ICU's view:
// u_strFromUTF8 in measuring mode does not report an invalid character).
bool is_valid_utf8(const char* text, size_t length);

// Well-formed UTF-8 by the Unicode definition (no overlong forms, no
// surrogates, nothing above U+10FFFF), checked without ICU. Never true for
// text that is_valid_utf8 rejects; is_valid_utf8 uses it as a fast path.
bool is_well_formed_utf8(const char* text, size_t length);

}  // namespace cx::i18n

#endif  // KT_INTERNAL_LOCALE_CODECVT_H
