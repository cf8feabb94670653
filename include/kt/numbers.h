/*
 * kt/numbers.h -- decimal conversion, IEEE helpers, data formats, byte order
 *
 * Decimal conversion. Doubles convert to and from decimal text correctly
 * rounded, with David M. Gay's algorithms (big integers of 32-bit words):
 *
 *   - kt_dtoa: the decimal digits of a double (modes 0 and 1: the shortest
 *     digit string that reads back to the same double; modes 2 to 5: a
 *     given number of significant or fractional digits);
 *   - kt_strtod: decimal or hexadecimal text to the nearest double (ties
 *     to even);
 *   - kt_g_fmt: the shortest text that reads back to the same double, with
 *     a ".0" on integral values and "e+06"-style exponents.
 *
 * All the state the conversions need (free lists of big integers, the cache
 * of powers of five, a small private arena) lives in an fpc context, so the
 * conversions are reentrant: each thread uses its own context. Allocation
 * beyond the arena goes through the context's memory context; exhaustion
 * raises OUT_OF_MEMORY through it (kt/memory.h) and never returns null.
 *
 *     kt_fpc_context fpc;
 *     kt_initialize_fpc_context(&fpc, memoryContext);
 *     char text[32];
 *     kt_g_fmt(&fpc, 0.1, text, sizeof text);          // ".1"
 *     double x = kt_strtod(&fpc, "2.5e-3", NULL, NULL); // 0.0025
 *     kt_clear_fpc_context(&fpc);                        // frees everything
 *
 * IEEE helpers: constants and predicates on doubles, the catalogue of
 * floating-point format types and data size types that data files name,
 * the size and signedness of the numeric data classes, and in-place byte
 * order conversion of arrays of 2-, 4- and 8-byte items. All of these are
 * reentrant and async-signal-safe except ktDoubleConvert/ktSingleConvert,
 * which may raise an error, and the first call of ktGetFormatType /
 * ktGetDataSizeType, which probes the machine once (thread-safe).
 */
#ifndef KT_NUMBERS_H
#define KT_NUMBERS_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#include "kt/export.h"
#include "kt/memory.h"

/* ---- the fpc context ------------------------------------------------------ */

/* A big integer of the conversions; private to the library. */
struct _fpc_bigint;

/* Largest size class kept on a free list: class k holds 2^k 32-bit words. */
#define KT_FPC_KMAX 7
/* The private arena: 288 doubles, 2304 bytes. */
#define KT_FPC_ARENA_DOUBLES 288

/* The conversion state; callers embed it (the basic contexts do). */
typedef struct _fpc_context {
    kt_mem_context* memoryContext;                 /* all other allocation */
    double arena[KT_FPC_ARENA_DOUBLES];            /* small big integers first */
    double* arenaNext;                             /* next free arena double */
    struct _fpc_bigint* freeLists[KT_FPC_KMAX + 1];/* released, by size class */
    struct _fpc_bigint* powersOfFive;              /* 5^4, 5^8, 5^16, ... chain */
} kt_fpc_context;

/* Range reports of kt_strtod through its `status` argument. */
#define KT_STRTOD_OK 0
#define KT_STRTOD_OVERFLOW 1  /* result is +-Inf from a finite text */
#define KT_STRTOD_UNDERFLOW 2 /* a nonzero text rounded to +-0 */

/* The decimal point kt_dtoa reports for "Inf" and "NaN". */
#define KT_DTOA_SPECIAL_DECPT 9999

KT_EXTERN_C_BEGIN

/*
 * Zeroes every field, stores `memctx` and points the arena cursor at the
 * start of the arena. Never fails.
 */
KT_API void kt_initialize_fpc_context(kt_fpc_context* ctx, kt_mem_context* memctx);

/*
 * Allocates a context from `memctx` (kt_mem_alloc: exhaustion raises
 * OUT_OF_MEMORY) and initialises it. Release with kt_delete_fpc_context.
 */
KT_API kt_fpc_context* kt_new_fpc_context(kt_mem_context* memctx);

/*
 * Frees through the memory context every big integer on the free lists
 * that does not lie in the private arena, then zeroes the whole context
 * (the memory context pointer too): initialise it again before reuse.
 */
KT_API void kt_clear_fpc_context(kt_fpc_context* ctx);

/* Clears a context made by kt_new_fpc_context and frees its storage. */
KT_API void kt_delete_fpc_context(kt_fpc_context* ctx);

/*
 * The decimal digits of `x`, written NUL-terminated into `buf` (`bufsize`
 * bytes); returns `buf`. `*decpt` receives the position of the decimal
 * point relative to the first digit (digits "15", decpt 1 is 1.5; decpt -2
 * is .0015), `*sign` 1 when the sign bit is set, and `*rve` (if not null)
 * the end of the digits. Trailing zeros are never produced.
 *   mode 0: the shortest string that reads back to x, the nearest such
 *           (ndigits ignored). A string exactly halfway to a neighbour
 *           counts as reading back when x's last bit is 0 (ties to even):
 *           the double nearest 1e23 gives "1", decpt 24;
 *   mode 1: the shortest string that reads back under any rounding of
 *           halfway cases (Steele and White's stopping rule; ndigits
 *           ignored): the double nearest 1e23 gives "9999999999999999",
 *           decpt 23; 123.456 gives "123456", decpt 3;
 *   mode 2: max(ndigits, 1) significant digits, correctly rounded;
 *   mode 3: ndigits digits after the decimal point (may be negative); a
 *           value that rounds to nothing gives "" and decpt = -ndigits;
 *   modes 4 and 5: as 2 and 3, but mode 0's digits when mode 0 stops
 *           within that many digits (0.3 in mode 4 with 17 digits gives
 *           "3", not "29999999999999999").
 * Modes 6 to 9 act as 2 to 5, others as mode 0. Rounding is to nearest,
 * ties to even. Zero gives "0" with decpt 1 (sign set for -0). Inf gives
 * "Inf", NaN "NaN", both with decpt 9999; a NaN reports sign 0 whatever its
 * sign bit, deliberately. When the final digits and their NUL do not fit
 * in `bufsize` bytes (or `buf` is null) the result is null and nothing is
 * stored, neither in `buf` nor through the out pointers; whether it fits
 * depends only on the final text (18 bytes always suffice for modes 0
 * and 1, 800 for any mode). Big integers come from `ctx` (see above).
 */
KT_API char* kt_dtoa(kt_fpc_context* ctx, double x, char* buf, size_t bufsize, int mode,
                     int ndigits, int* decpt, int* sign, char** rve);

/*
 * Parses the number at `s` into the nearest double (ties to even): optional
 * white space, an optional sign, then
 *   - decimal text: digits with an optional ".", an optional exponent
 *     "e"/"E" with optional sign;
 *   - hexadecimal text: "0x"/"0X", hex digits with an optional ".", an
 *     optional binary exponent "p"/"P" with optional sign ("0x1.8p-2" is
 *     0.375), rounded like decimal text (subnormals included);
 *   - case-insensitively "inf", "infinity", "nan" or "nan(chars)", chars
 *     being letters, digits and '_'. When chars is a hexadecimal number
 *     (an optional "0x" and hex digits), its low 52 bits become the NaN's
 *     fraction bits as written, so "nan(1)" is the signalling NaN
 *     0x7ff0000000000001; a zero or non-hexadecimal payload gives the
 *     default quiet NaN 0x7ff8000000000000 (sign bit from the text).
 * `*end` (if not null) is set after the last character used, or to `s`
 * when no number was found (the result is then 0); "0x" without hex digits
 * reads as the number 0 ending before the "x". `*status` (if not null) is
 * set to KT_STRTOD_OK on entry, then to KT_STRTOD_OVERFLOW when a finite
 * text is too large (the result is +-Inf) or KT_STRTOD_UNDERFLOW when a
 * nonzero text rounds to zero. errno is not touched, and the decimal
 * point is "." whatever the locale. A null `s` gives 0 with `*end` null.
 */
KT_API double kt_strtod(kt_fpc_context* ctx, const char* s, char** end, int* status);

/*
 * Formats `x` in the shortest text that reads back to the same double:
 * "1.0", "1.5", "123456.0", ".001", "1e+07", "1.5e-07", "-0.0", "Inf",
 * "-Inf", "NaN" (never signed). Returns `buf`. Characters are stored only
 * while room remains, and the NUL only if room remains after the text:
 * a text that exactly fills `buf` is not terminated, deliberately (callers
 * rely on it for fixed-width fields). 26 bytes always suffice. A null
 * `buf` stores nothing.
 */
KT_API char* kt_g_fmt(kt_fpc_context* ctx, double x, char* buf, size_t bufsize);

/* ---- IEEE constants and predicates -------------------------------------- */

KT_API double ktGetEps(void);        /* 2^-52 */
KT_API double ktGetSingleEps(void);  /* 2^-23, the epsilon of float */
KT_API double ktGetInf(void);        /* +Inf */
KT_API double ktGetMinusInf(void);   /* -Inf */
KT_API double ktGetPI(void);         /* 3.141592653589793 */
KT_API double ktGetRealMax(void);    /* 1.7976931348623157e308 */
KT_API double ktGetRealMin(void);    /* 2.2250738585072014e-308, smallest normal */
/* The quiet NaN 0xFFF8000000000000: sign bit set, as the processor's
   default NaN. */
KT_API double ktGetNaN(void);

KT_API bool ktIsNaN(double x);               /* x != x */
KT_API bool ktIsInf(double x);               /* |x| > realmax; false for NaN */
KT_API bool ktIsPlusInf(double x);
KT_API bool ktIsMinusInf(double x);
KT_API bool ktFinite(double x);              /* |x| <= realmax; false for NaN */
KT_API bool ktDoubleScalarIsfinite(double x);/* the same */
KT_API int ktSignBit(double x);              /* 1 for -0 and negative NaNs too */
KT_API double ktCopySign(double x, double y);/* x with the sign bit of y */
KT_API bool ktIsMinusZero(double x);

/*
 * |a - b| <= eps * |b|: the tolerance scales with `b` only (asymmetric on
 * purpose), so with b = 0 only a = 0 passes.
 */
KT_API bool ktEqualWithinEps(double a, double b);

/*
 * Whether `x` is an integer in the 32-bit range. NaN sets errno = EDOM and
 * gives false; beyond [-2147483648, 2147483647] sets errno = ERANGE and
 * gives false; -0.0 gives false (on purpose); otherwise errno is untouched.
 */
KT_API bool ktDblIsInt(double x);

/* ---- format types and data size types ----------------------------------- */

/* Format types: 0 "ieee-le", 1 "ieee-be", 2-4 "obsolete", 5 "unknown_fmt". */
KT_API int ktGetNumFormatTypes(void);   /* 6 */
/* Row `i` of the format table, no bounds check: pass 0-5 only. */
KT_API const char* ktGetFormatTypeName(int i);
KT_API int ktGetFormatEndian(int i);    /* 0 little, 1 big, -1 obsolete */
/* The native format type, probed once and cached: 0, 1, or 5. */
KT_API int ktGetFormatType(void);

/* Data size types: 0 "ieee-le", 1 "ieee-be", 2-4 "obsolete",
   5 "ieee-le.l64", 6 "ieee-be.l64", 7 "unknown_fmt". */
KT_API int ktGetNumDataSizeTypes(void); /* 8 */
KT_API const char* ktGetDataSizeTypeName(int i);  /* "unknown_fmt" above 7 */
KT_API int ktGetDataEndianType(int i);  /* 0 above 7 */
/* 5 when the native format is 0, 6 when it is 1, else 7; cached. */
KT_API int ktGetDataSizeType(void);

/*
 * Size in bytes of data class 1-12 under a data size type (classes 6 and
 * 10 are 8 bytes under the ".l64" types 5 and 6, else 4). 0 for a type
 * below 0 or at or above ktGetNumDataSizeTypes() - 1, or a class outside
 * 1-12.
 */
KT_API int ktDconvertSize(int sizeType, int dataClass);
/* 1 signed (or floating), 0 unsigned, -1 otherwise (also outside 2-12). */
KT_API int ktDconvertSign(int dataClass);

/* ---- byte order ----------------------------------------------------------- */

/* Reverse the bytes of each of `count` items in place. */
KT_API void ktFlipTwoBytes(size_t count, uint16_t* p);
KT_API void ktFlipFourBytes(size_t count, uint32_t* p);
KT_API void ktFlipEightBytes(size_t count, uint64_t* p);

/* Plain native 32-bit load and store at any alignment. */
KT_API int32_t ktGetFourByteInt(const void* p);
KT_API void ktPutFourByteInt(void* p, int32_t value);

/* Flip `count` items when the format types' byte orders differ. */
KT_API void ktFourByteIntConvert(int fromFmt, int toFmt, int32_t* data, size_t count);
KT_API void ktFourByteUIntConvert(int fromFmt, int toFmt, uint32_t* data, size_t count);
KT_API void ktTwoByteIntConvert(int fromFmt, int toFmt, int16_t* data, size_t count);
KT_API void ktTwoByteUIntConvert(int fromFmt, int toFmt, uint16_t* data, size_t count);
/* The same, comparing the byte orders of two data size types. */
KT_API void ktFourByteIntConvertData(int fromType, int toType, int32_t* data, size_t count);
KT_API void ktTwoByteIntConvertData(int fromType, int toType, int16_t* data, size_t count);

/*
 * Converts `count` doubles (floats) in place from data size type `from` to
 * `to`. Equal types do nothing. From types 0, 1, 5 and 6 the items are
 * byte-flipped unconditionally -- the byte orders are not compared, on
 * purpose, so ieee-le to ieee-le.l64 flips too. Any other `from` raises
 * ERR_UNSUPPORTED_FP_FMT (0x10004) through the current error context.
 */
KT_API void ktDoubleConvert(int from, int to, double* data, size_t count);
KT_API void ktSingleConvert(int from, int to, float* data, size_t count);

KT_EXTERN_C_END

#endif /* KT_NUMBERS_H */
