/*
 * kt/output.h -- console output through a replaceable hook
 *
 * Everything libkt and its procedural callers print goes through one
 * process-wide output hook instead of straight to stdout. A host (console,
 * test harness, server) installs its own hook to capture the text:
 *
 *     static int capture(const char* text, void* data) { ... return 0; }
 *     ktSetVprintfCallbacks(capture, &myBuffer, NULL);
 *     ktPrintf("%d items\n", n);       // arrives in capture()
 *
 * The hook is three pointer-sized words (output function, its data, and a
 * "hot" query that tells whether console output is wanted at all), each read
 * and written with a single atomic exchange. A set or swap is therefore not
 * atomic as a whole: a printer running concurrently may briefly see the new
 * function with the old data. Install hooks before starting other threads,
 * or tolerate that. The output function is never null: every setter
 * replaces null by the default, which writes to stdout with fputs.
 *
 * The file also holds the two adapters between the output-function shapes
 * used across the library:
 *   "puts"  functions: int f(const char* nulTerminatedText, void* data),
 *                      negative result on failure;
 *   "putsn" functions: int f(void* data, const char* text, int length),
 *                      returning the count written (negative on failure).
 */
#ifndef KT_OUTPUT_H
#define KT_OUTPUT_H

#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdio.h>

#include "kt/export.h"

/* The output hook: writes one NUL-terminated piece of text. */
typedef int (*ktVprintfFunction)(const char* text, void* data);
/* The hot query: whether console output is wanted now, given the data. */
typedef bool (*ktPrintfHotFunction)(void* data);

/* The two output-function shapes shared by the whole library. */
typedef int (*kt_puts_function)(const char* text, void* data);
typedef int (*kt_putsn_function)(void* data, const char* text, int length);

/* Data of kt_puts_to_putsn: a puts function and its data. */
typedef struct _puts_pair {
    kt_puts_function puts;
    void* data;
} kt_puts_pair;

/* Data of kt_putsn_to_puts: a putsn function and its data. */
typedef struct _putsn_pair {
    kt_putsn_function putsn;
    void* data;
} kt_putsn_pair;

KT_EXTERN_C_BEGIN

/*
 * Installs the output function, its data and the hot query, each with its
 * own atomic exchange. A null `output` installs the default (fputs to
 * stdout, data ignored). A null `hot` makes ktPrintfIsHot() answer false.
 */
KT_API void ktSetVprintfCallbacks(ktVprintfFunction output, void* data, ktPrintfHotFunction hot);

/* Reads the three hook words into the out-pointers (none may be null). */
KT_API void ktGetVprintfCallbacks(ktVprintfFunction* output, void** data, ktPrintfHotFunction* hot);

/*
 * Writes `text` through the output function with the current data and
 * returns the function's result (negative on failure). No newline is added.
 */
KT_API int ktPuts(const char* text);

/*
 * Writes exactly `length` bytes of `text` (which need not be terminated):
 * a NUL-terminated heap copy is passed to the output function. Returns the
 * output function's result (kt_puts_to_putsn over the hook); a negative
 * length counts as 0 and passes the empty text. Throws
 * bedrock::core::except::bad_alloc() when the copy cannot be made.
 */
KT_API int ktPutsn(const char* text, int length);

/* With a null `stream`: ktPuts(text); otherwise fputs(text, stream). */
KT_API int fpts(FILE* stream, const char* text);

/*
 * vsnprintf into `buffer` of `capacity` bytes, then: a cut text is
 * terminated in the last byte; text that is not valid UTF-8 is taken to be
 * in the locale's code page and re-encoded to UTF-8 (cut to the capacity).
 * Returns the formatter's count for valid or cut text, the length of the
 * re-encoded text otherwise, -1 on a formatting error. Capacity 0 touches
 * nothing and returns the count. Reentrant and thread-safe.
 */
KT_API int ktVSNprintf(char* buffer, size_t capacity, const char* format, va_list args);

/* ktVSNprintf with variable arguments. */
KT_API int ktSNprintf(char* buffer, size_t capacity, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

/*
 * Formats with ktVSNprintf (on the stack up to 1022 bytes, growing a heap
 * buffer above that) and writes the text through the output function.
 * Returns the formatted length, or 0 when the output function failed.
 * Throws bedrock::core::except::bad_alloc() when the buffer cannot grow;
 * nothing has been written then.
 */
KT_API int ktVprintf(const char* format, va_list args);

/* ktVprintf with variable arguments. */
KT_API int ktPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* With a null `stream`: ktVprintf; otherwise vfprintf to the stream. */
KT_API int fprntf(FILE* stream, const char* format, ...) __attribute__((format(printf, 2, 3)));

/*
 * A putsn function over a stdio stream (`stream` is a FILE*): a length
 * below 1 writes nothing and returns 0; otherwise prints exactly `length`
 * bytes with "%.*s" and returns fprintf's result.
 */
KT_API int kt_fputsn(void* stream, const char* text, int length);

/*
 * A putsn function over a puts function: `pair` is a kt_puts_pair*. Copies
 * the `length` bytes into a NUL-terminated temporary, calls the puts
 * function with (copy, data), frees the copy and returns the puts result.
 * A negative length counts as 0 (the empty text is passed). Throws
 * bedrock::core::except::bad_alloc() when the copy cannot be made.
 */
KT_API int kt_puts_to_putsn(void* pair, const char* text, int length);

/*
 * A puts function over a putsn function: `pair` is a kt_putsn_pair*.
 * Measures `text`, calls putsn(data, text, length) and returns its result,
 * or -1 when that is negative. A text longer than 2147483647 bytes throws
 * std::overflow_error.
 */
KT_API int kt_putsn_to_puts(const char* text, void* pair);

KT_EXTERN_C_END

#ifdef __cplusplus
/*
 * Exchanges each hook word with the caller's variable: afterwards the
 * caller's variables hold the previous values. When the new output
 * function is null the default is stored (the caller still receives the
 * previous function). Exported under its C++ name.
 */
KT_API void ktSwapVprintfCallbacks(ktVprintfFunction* output, void** data, ktPrintfHotFunction* hot);

/*
 * False when no hot query is installed; otherwise the query's answer for
 * the current output data. Exported under its C++ name.
 */
KT_API bool ktPrintfIsHot();
#endif

#endif /* KT_OUTPUT_H */
