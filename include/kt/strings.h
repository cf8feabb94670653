/*
 * kt/strings.h -- character classes and string functions
 *
 * Four groups of plain C functions:
 *
 *   - qvu_*: Unicode character classes and case mapping of one code point,
 *     by ICU's character properties;
 *   - utf16_*: NUL-terminated UTF-16 strings (kt_utf16 units), mostly thin
 *     forms of ICU's u_str* functions, including formatted output and
 *     scanning through ICU's io library; utf8_strlen and the 7-bit tests;
 *   - byte-string utilities (ktStr*, ktPatternMatch, ktFgets, the fixed
 *     field conversions ktF2cstr / ktC2fstr) with fixed rules for null
 *     pointers, lengths and truncation, and lcp_stristr;
 *   - ktMultiByte*: stepping through and searching text in the locale's
 *     code page without landing inside a multibyte character. In a
 *     single-byte locale they are the plain byte operations; in a
 *     multibyte one (EUC-JP, GB18030, UTF-8...) they decode with
 *     mbrtowc, so a trail byte that equals an ASCII letter or '\\' is
 *     never taken for that character.
 *
 * The two code-page functions that need a converter, lcp_strchr and
 * mpath_pathname_index, live in kt/encodings.h beside the converters
 * they use.
 *
 *     char name[32];
 *     ktStrncpyWithEllipses(name, longTitle, sizeof name);  // "Long ti..."
 *     if (ktPatternMatch("*.m", fileName, 0)) ...
 *     for (const char* p = text; *p; p = ktMultiByteNextChar(p)) ...
 *
 * Memory: functions that return new text allocate it with ktMalloc; the
 * caller releases it with ktFree (kt/memory.h). They return null when the
 * heap is exhausted and raise no error.
 *
 * Thread safety: every function is reentrant. The ktMultiByte* functions,
 * ktIsMultiByte*, ktIsEmptyString, ktStrmatchi, ktPatternMatch and
 * lcp_stristr read the calling thread's C locale (LC_CTYPE), so a
 * setlocale() in another thread while they run is the caller's race.
 */
#ifndef KT_STRINGS_H
#define KT_STRINGS_H

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "kt/export.h"
#include "kt/utf16.h"

KT_EXTERN_C_BEGIN

/* ---- Unicode character classes ------------------------------------------ */

/*
 * Each takes a Unicode code point and returns 1 or 0. Values outside
 * 0..0x10FFFF (including negative ones and EOF) are unassigned: they
 * belong to no class.
 *
 *   qvu_isalnum, qvu_isalpha, qvu_iscntrl, qvu_isdigit, qvu_islower,
 *   qvu_isupper, qvu_isprint: ICU's u_isalnum ... u_isprint.
 *   qvu_isgraph: a letter, mark, number, punctuation or symbol (general
 *     categories 1-11 and 19-30); not a separator, control, format,
 *     private-use, surrogate or unassigned code point.
 *   qvu_ispunct: one of the seven punctuation categories (19-23, 28, 29).
 *   qvu_isspace: Unicode White_Space (u_isUWhiteSpace), no-break spaces
 *     included.
 *   qvu_isbreakablespace: Java-style white space (u_isWhitespace): the
 *     space, line and paragraph separators except the no-break spaces
 *     U+00A0, U+2007 and U+202F, and the controls TAB, LF, VT, FF, CR and
 *     0x1C-0x1F (not NEL, U+0085).
 *   qvu_isxdigit: a digit of base 16 by u_digit: a decimal digit of any
 *     script, or a Latin letter A-F / a-f in ASCII or full-width form.
 */
KT_API int qvu_isalnum(int c);
KT_API int qvu_isalpha(int c);
KT_API int qvu_iscntrl(int c);
KT_API int qvu_isdigit(int c);
KT_API int qvu_isgraph(int c);
KT_API int qvu_islower(int c);
KT_API int qvu_isprint(int c);
KT_API int qvu_ispunct(int c);
KT_API int qvu_isspace(int c);
KT_API int qvu_isbreakablespace(int c);
KT_API int qvu_isupper(int c);
KT_API int qvu_isxdigit(int c);

/* Simple (one to one) case mapping, u_tolower / u_toupper; a code point
   without a mapping, or outside the Unicode range, comes back unchanged. */
KT_API int qvu_tolower(int c);
KT_API int qvu_toupper(int c);

/* ---- UTF-16 strings ------------------------------------------------------- */

/*
 * Strings are NUL-terminated runs of kt_utf16 units and lengths count
 * units, as ints. Unless a function says otherwise, its string arguments
 * must not be null.
 */

/* Number of units before the terminating zero unit. */
KT_API int utf16_strlen(const kt_utf16* text);

/* Number of units before the first zero unit, looking at no more than
   `limit` units (so at most `limit`). A limit of 0 or less gives 0 without
   reading `text`, which may then be null. */
KT_API int utf16_strlen_lim(const kt_utf16* text, int limit);

/* Copies `src` with its terminator into `dst`; returns `dst`. */
KT_API kt_utf16* utf16_strcpy(kt_utf16* dst, const kt_utf16* src);

/* Copies at most `n` units of `src` into `dst`, stopping after the
   terminator if it comes first; when `src` has `n` or more units nothing
   terminates `dst`. Unlike strncpy the rest is not zero-filled. Returns
   `dst`. */
KT_API kt_utf16* utf16_strncpy(kt_utf16* dst, const kt_utf16* src, int n);

/* Appends at most `n` units of `src` to the string in `dst` and always
   terminates it (so `dst` needs room for n + 1 more units); returns `dst`. */
KT_API kt_utf16* utf16_strncat(kt_utf16* dst, const kt_utf16* src, int n);

/*
 * A new string of the first `n` units of `text` (fewer when a zero unit
 * comes first), always terminated: n + 1 units are allocated with
 * ktMalloc. Null `text` or a negative `n` gives null, as does exhaustion.
 */
KT_API kt_utf16* utf16_strndup(const kt_utf16* text, int n);

/* utf16_strndup(text, utf16_strlen(text)); null `text` gives null. */
KT_API kt_utf16* utf16_strdup(const kt_utf16* text);

/*
 * Comparisons, returning a negative number, 0 or a positive number as
 * strcmp does. utf16_strcmp and utf16_strncmp compare code units (so a
 * supplementary character sorts below U+E000..U+FFFF); the "i" forms
 * compare after full default Unicode case folding (u_strcasecmp and
 * u_strncasecmp: "Stra\u00DFe" equals "STRASSE"). The n forms look at no
 * more than `n` units of either string.
 */
KT_API int utf16_strcmp(const kt_utf16* a, const kt_utf16* b);
KT_API int utf16_stricmp(const kt_utf16* a, const kt_utf16* b);
KT_API int utf16_strncmp(const kt_utf16* a, const kt_utf16* b, int n);
KT_API int utf16_strnicmp(const kt_utf16* a, const kt_utf16* b, int n);

/*
 * Compares `a` (`aLength` units) with `b` (`bLength` units) in code-point
 * order, so that supplementary characters sort above U+FFFF; a length of
 * -1 means NUL-terminated. Returns a negative number, 0 or a positive one.
 */
KT_API int utf16_strcmp_n_codepoint(const kt_utf16* a, int aLength, const kt_utf16* b,
                                    int bLength);

/* First occurrence of the code point `c` in `text` (a supplementary code
   point matches its surrogate pair; a lone surrogate matches only an
   unpaired unit); c == 0 finds the terminator. Null when absent. */
KT_API kt_utf16* utf16_strchr(const kt_utf16* text, int c);

/* First (utf16_strnchr) or last (utf16_strnrchr) unit equal to `c` among
   the first `n` units of `text`, zero units included. Null when absent or
   when `n` is 0 or less. */
KT_API kt_utf16* utf16_strnchr(const kt_utf16* text, kt_utf16 c, int n);
KT_API kt_utf16* utf16_strnrchr(const kt_utf16* text, kt_utf16 c, int n);

/*
 * First (utf16_strnstr) or last (utf16_strnrstr) occurrence of `sub`
 * (`subLength` units) in `text` (`length` units); -1 for either length
 * means NUL-terminated. A match that would split a surrogate pair of
 * `text` is skipped. A null or empty `sub` matches at `text` (also for
 * the last occurrence). Null when absent or when `text` is null.
 */
KT_API kt_utf16* utf16_strnstr(const kt_utf16* text, int length, const kt_utf16* sub,
                               int subLength);
KT_API kt_utf16* utf16_strnrstr(const kt_utf16* text, int length, const kt_utf16* sub,
                                int subLength);

/*
 * Formatted output into `buffer` by ICU's u_vsnprintf: the format is
 * a byte string of printf directives, where %s takes a char* (in the
 * thread's default code page), %S a UTF-16 string and %C a UTF-16 unit.
 * At most `count` units are written; a terminator is added only when the
 * text is shorter than `count`, so a full buffer is NOT terminated.
 * Returns the length of the whole text, whether it fit or not, as
 * snprintf does (count 0 with a null buffer measures); a cut text is
 * measured by formatting it a second time.
 */
KT_API int utf16_vsnprintf(kt_utf16* buffer, int count, const char* format, va_list args);
KT_API int utf16_snprintf(kt_utf16* buffer, int count, const char* format, ...);

/*
 * Formatted input from the UTF-16 string `text` by ICU's u_vsscanf (same
 * directives as above; %S stores UTF-16). Returns the number of
 * conversions assigned; input that ends before the first conversion
 * gives 0 (not EOF) or -1, as ICU reports it.
 */
KT_API int utf16_vsscanf(const kt_utf16* text, const char* format, va_list args);
KT_API int utf16_sscanf(const kt_utf16* text, const char* format, ...);

/* Byte length of a UTF-8 (or any NUL-terminated byte) string: strlen.
   Null gives 0. */
KT_API int utf8_strlen(const char* text);

/*
 * 1 when each of the `length` bytes of `text` is below 0x80, else 0. A
 * length of -1 means NUL-terminated. A null text (whatever the length),
 * or a length of 0 or below other than -1, gives 1: nothing to reject.
 */
KT_API int lcp_is_7bit(const char* text, int length);

/* The same over UTF-16 units below 128. A length of -1 means
   NUL-terminated; a null text or a length of 0 or below gives 1. */
KT_API int utf16_is_7bit(const kt_utf16* text, int length);

/*
 * First occurrence of `needle` in `haystack`, comparing bytes after
 * toupper() of the C locale tables (byte by byte: no multibyte
 * awareness). A null or empty needle, or a needle that is the haystack
 * pointer itself, returns `haystack` (so a null haystack gives null); a
 * null haystack otherwise counts as empty, and a needle longer than the
 * haystack gives null.
 */
KT_API char* lcp_stristr(const char* haystack, const char* needle);

/* ---- byte strings ------------------------------------------------------- */

/* strlen; null gives 0. */
KT_API size_t ktStrlen(const char* text);

/* strcpy and strncpy (returning `dst`); a null `src` copies the empty
   string, which ktStrncpy pads with n zero bytes as strncpy does. */
KT_API char* ktStrcpy(char* dst, const char* src);
KT_API char* ktStrncpy(char* dst, const char* src, size_t n);

/* A ktMalloc copy of `text`; null for null `text` or on exhaustion. */
KT_API char* ktStrdup(const char* text);

/* A ktMalloc copy of at most `n` bytes of `text`, stopping at its NUL, and
   terminated; n == 0 gives an allocated empty string. Null for null
   `text` or on exhaustion. */
KT_API char* ktStrndup(const char* text, size_t n);

/* Replaces every byte equal to (char)from in `text` by (char)to, in place
   up to the terminator (from == 0 changes nothing); returns `text`, and
   null for null `text`. */
KT_API char* ktStrrep(int from, int to, char* text);

/*
 * Last occurrence of `needle` in `haystack`, searched backwards from the
 * last position where the needle fits; null when there is none or either
 * argument is null. An empty needle gives the address of the haystack's
 * terminator.
 */
KT_API char* ktStrrstr(const char* haystack, const char* needle);

/*
 * Copies `src` into the `n`-byte buffer `dst`, marking a cut with "...":
 *   - a null `src` copies the empty string (when n > 0);
 *   - a source shorter than n bytes is copied whole with its terminator;
 *   - otherwise, with n of 4 or more, the first n - 4 bytes are followed by
 *     "..." and a NUL, filling exactly n bytes;
 *   - otherwise (n below 4) the first n bytes are copied with NO
 *     terminator, as strncpy would.
 * Returns `dst`. The cut is by bytes and may split a multibyte character.
 */
KT_API char* ktStrncpyWithEllipses(char* dst, const char* src, size_t n);

/*
 * 1 when `text`, after leading white space, begins with `word` (compared
 * with strncasecmp) and has only white space after it; else 0. White
 * space is isspace() of the C locale tables. Null arguments count as the
 * empty string, so a blank or empty text matches a null or empty word.
 */
KT_API int ktStrmatchi(const char* text, const char* word);

/* 1 for null or for a string of isspace() characters only (including ""),
   else 0. */
KT_API int ktIsEmptyString(const char* text);

/*
 * 1 when `text` matches `pattern`, else 0. '*' matches any run of bytes,
 * the empty one included; every other pattern byte matches one text byte
 * ('?' and '\\' are ordinary). A null or empty pattern matches anything; a
 * null text counts as empty.
 *
 * With `exact` nonzero bytes must be equal. With `exact` zero a pattern
 * byte also matches a text byte whose tolower() equals it: only the text
 * side is lowered, so a lower-case pattern letter matches either case
 * while an upper-case one matches only itself ("a*" matches "A", "A*"
 * does not match "a"). Callers give lower-case patterns.
 *
 * Runs in time proportional to len(pattern) * len(text) at worst and
 * constant stack, however many stars the pattern has.
 */
KT_API int ktPatternMatch(const char* pattern, const char* text, int exact);

/* Lowers ASCII 'A'..'Z' in place (other bytes untouched, whatever the
   locale); returns `text`, null for null. */
KT_API char* ktLowerCase(char* text);

/*
 * Copies at most capacity - 1 bytes of `src` into `dst`, lowering ASCII
 * 'A'..'Z', and terminates. A null `src` or a capacity of 0 stores only a
 * NUL at dst[0] -- even for capacity 0, so `dst` must always have room for
 * one byte (callers have long relied on getting an empty string back).
 * Returns `dst`, or null for null `dst`.
 */
KT_API char* ktLowerCaseCopy(char* dst, const char* src, size_t capacity);

/*
 * Converts the blank-padded fixed-length field `fixed` (`length` bytes, no
 * terminator) into a C string in `dst` (`capacity` bytes). With `trim` 0
 * the field ends at its first blank; with `trim` nonzero only the
 * trailing blanks are dropped (inner blanks stay). At most capacity - 1
 * bytes are stored, then a NUL. A null field converts as empty; a capacity
 * of 0 stores nothing. Only ' ' counts as a blank. Returns `dst`.
 */
KT_API char* ktF2cstr(const char* fixed, size_t length, char* dst, size_t capacity, int trim);

/*
 * Copies the C string `text` into the fixed field `dst` of `length`
 * bytes, cut at `length` bytes or padded to it with blanks; no terminator
 * is written. A null text fills the field with blanks. Returns `dst`.
 */
KT_API char* ktC2fstr(const char* text, char* dst, size_t length);

/*
 * Reads one line from `stream` into `buffer` as fgets does, but accepts
 * LF, CR and CR LF as the line end and stores a single LF for any of
 * them. At most size - 1 bytes are stored, then a NUL; a longer line is
 * continued by the next call (a CR at the cut is then read as a line end
 * by that call, and the LF of its CR LF pair is consumed with it).
 * Returns `buffer`, or null when `size` is below 1, when `buffer` or
 * `stream` is null, or when end of file or a read error comes before any
 * byte. A size of 1 stores only a NUL and reads nothing.
 */
KT_API char* ktFgets(char* buffer, int size, FILE* stream);

/* ---- multibyte code pages --------------------------------------------- */

/*
 * Character boundaries in the locale's code page. In a multibyte locale
 * (MB_CUR_MAX above 1) a character is what mbrtowc decodes at a position
 * from the bytes before the string's NUL; a byte that starts an invalid
 * or incomplete sequence counts as a one-byte character. In a single-byte
 * locale every byte is a character. Arguments must not be null unless
 * stated.
 */

/* 1 when the locale can encode a character in more than one byte. */
KT_API int ktIsMultiByteCharSet(void);

/* 1 when `byte` followed by 0xA1 is one two-byte character of the
   locale (the lead bytes of EUC and GBK code pages); 0 in a single-byte
   locale. */
KT_API int ktIsMultiByteLead(int byte);

/* The character after the one at `p`; `p` itself at the terminator.
   Null for null. */
KT_API char* ktMultiByteNextChar(const char* p);

/*
 * The start of the character before `p` in the string that begins at
 * `start`: the last character boundary, stepping from `start`, that lies
 * before `p` (when `p` is inside a character, the start of that
 * character). `start` itself when `p` is at or before it. Zero bytes
 * before `p` count as one-byte characters. Takes time proportional to
 * p - start in a multibyte locale.
 */
KT_API char* ktMultiBytePrevChar(const char* start, const char* p);

/* First (ktMultiByteStrChr) or last (ktMultiByteStrrChr) one-byte
   character equal to (char)c, the bytes of multibyte characters never
   matching; c == 0 finds the terminator, as strchr does. Null when absent
   or for a null text. */
KT_API char* ktMultiByteStrChr(const char* text, int c);
KT_API char* ktMultiByteStrrChr(const char* text, int c);

/* First occurrence of the bytes of `needle` that starts on a character
   boundary of `haystack`; `haystack` for an empty needle, as strstr.
   Null when absent or when either argument is null. */
KT_API char* ktMultiByteStrStr(const char* haystack, const char* needle);

KT_EXTERN_C_END

#endif /* KT_STRINGS_H */
