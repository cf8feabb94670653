/*
 * kt/hashing.h -- seeded CRC-32 hash family, key callbacks, table sizing
 *
 * Every hash in libkt is built from one step: the table-driven reflected
 * CRC-32 round (polynomial 0xEDB88320) with no inversion before or after.
 * For a running value h and a byte b:
 *
 *     h = (h >> 8) ^ T[(h ^ b) & 0xFF]
 *
 * Each function takes the seed first and returns the new value, so calls
 * chain (the result of one is the seed of the next):
 *
 *     uint32_t h = kt_hash_string(0, "name");
 *     h = kt_hash_int(h, 42);
 *
 * The results are part of the interface: bucket placement and iteration
 * order of the hash tables depend on them, and two builds must agree bit
 * for bit. All hash functions are pure, reentrant and async-signal-safe.
 *
 * The key callbacks come in two styles. The plain style receives the key
 * itself; the kt_ghash_ style receives an element address whose first
 * field is the key pointer, as the generic hash table (kt/containers.h)
 * hands its elements over. Every callback takes a context first; the
 * string copy/delete callbacks read it as a kt_mem_context*, the others
 * ignore it.
 */
#ifndef KT_HASHING_H
#define KT_HASHING_H

#include <stddef.h>
#include <stdint.h>

#include "kt/export.h"

KT_EXTERN_C_BEGIN

/* ---- hash functions ---------------------------------------------------- */

/* Feeds one byte. */
KT_API uint32_t kt_hash_byte(uint32_t seed, unsigned char byte);

/* Feeds the bytes of `value` from the lowest upward, stopping when the
   remaining high bytes are all zero; at least one byte (0 feeds one zero
   byte, 0x1234 feeds 0x34 then 0x12). */
KT_API uint32_t kt_hash_uint(uint32_t seed, uint32_t value);

/* kt_hash_uint on the bit pattern of `value`. */
KT_API uint32_t kt_hash_int(uint32_t seed, int32_t value);

/* kt_hash_uint on the 32-bit pattern of `value`. */
KT_API uint32_t kt_hash_float(uint32_t seed, float value);

/* kt_hash_uint on the low 32 bits of the pattern, then on the high 32 bits
   with the first result as seed. */
KT_API uint32_t kt_hash_double(uint32_t seed, double value);

/* Every byte of the NUL-terminated `string`, first to last, then one final
   step with a zero byte; "" hashes to kt_hash_byte(seed, 0). `string` must
   not be null. */
KT_API uint32_t kt_hash_string(uint32_t seed, const char* string);

/* As kt_hash_string, but the bytes are fed from last to first (then the
   final zero byte). */
KT_API uint32_t kt_hash_reverse_string(uint32_t seed, const char* string);

/* As kt_hash_string after case folding each byte: A..Z become a..z, other
   ASCII bytes stay. Bytes 0x80..0xFF are folded through a signed index into
   the bytes before the folding table, that is byte (b + 768) of the CRC
   table's little-endian layout -- an established result, so non-ASCII text
   hashes differently folded and unfolded. */
KT_API uint32_t kt_hash_lower_string(uint32_t seed, const char* string);

/* Identical to kt_hash_lower_string; both names are kept. */
KT_API uint32_t kt_hash_stringi(uint32_t seed, const char* string);

/* Exactly `count` bytes at `bytes`, first to last, with no final step. A
   count of 0 returns `seed` (and `bytes` may then be null). */
KT_API uint32_t kt_hash_n_bytes(uint32_t seed, uint64_t count, const void* bytes);

/* As kt_hash_uint over all 64 bits of the pointer value. */
KT_API uint32_t kt_hash_pointer(uint32_t seed, const void* pointer);

/* ---- plain key callbacks (the key itself) ------------------------------ */

/* kt_hash_string(0, string). */
KT_API uint32_t kt_hash_string_key(void* context, const char* string);

/* strcmp(a, b): negative, zero or positive. */
KT_API int kt_compare_string_keys(void* context, const char* a, const char* b);

/* Copy of `string` made with kt_mem_strdup in the kt_mem_context `context`;
   exhaustion raises OUT_OF_MEMORY there. */
KT_API char* kt_copy_string_key(void* context, const char* string);

/* Releases `string` through the kt_mem_context `context`. */
KT_API void kt_delete_string_key(void* context, char* string);

/* kt_hash_pointer(0, key): hashes the pointer value, not what it points at. */
KT_API uint32_t kt_NULL_hash_key(void* context, const void* key);

/* Sign (-1, 0, 1) of the wrapped 64-bit signed difference a - b. Pointers
   more than 2^63 apart therefore compare reversed; callers rely on the
   order as it is. */
KT_API int kt_NULL_compare_keys(void* context, const void* a, const void* b);

/* Returns `key` itself. */
KT_API void* kt_NULL_copy_key(void* context, void* key);

/* Does nothing. */
KT_API void kt_NULL_delete_key(void* context, void* key);

/* ---- element key callbacks (element's first field is the key) --------- */

/* kt_hash_string(0xFFFFFFFF, key). The seed differs from the case-folding
   variant and from kt_hash_string_key on purpose: existing tables depend
   on the resulting bucket order. */
KT_API uint32_t kt_ghash_string_key(void* context, const void* element);

/* kt_hash_stringi(0, key). */
KT_API uint32_t kt_ghash_stringi_key(void* context, const void* element);

/* strcmp of the two key strings; a null key is not guarded against. */
KT_API int kt_ghash_compare_string_keys(void* context, const void* a, const void* b);

/* strcasecmp of the two key strings; a null key compares as "". */
KT_API int kt_ghash_compare_stringi_keys(void* context, const void* a, const void* b);

/* Stores in `destination`'s key field a copy, made in the kt_mem_context
   `context`, of `source`'s key string. */
KT_API void kt_ghash_copy_string_key(void* context, void* destination, const void* source);

/* Releases the element's key string through the kt_mem_context `context`. */
KT_API void kt_ghash_delete_string_key(void* context, void* element);

/* kt_hash_pointer(0, key pointer). */
KT_API uint32_t kt_ghash_hash_ptr_key(void* context, const void* element);

/* Sign of the wrapped 64-bit signed difference of the two key pointers. */
KT_API int kt_ghash_compare_ptr_keys(void* context, const void* a, const void* b);

/* ---- table sizing ------------------------------------------------------- */

/* 1 when `n` is "quasiprime": n > 1 and, up to 1000, prime; above 1000, no
   prime factor below 1000 (so every n up to 994009 is tested for true
   primality). 0 otherwise, including every n <= 1. */
KT_API int kt_hash_is_quasiprime(int32_t n);

/* The first quasiprime of start, start+step, start+2*step, ..., stopping
   early at a candidate <= 1; the result is never below 2. A non-positive
   step walks downward. `context` is ignored. */
KT_API int32_t kt_hash_next_quasiprime(void* context, int32_t start, int32_t step);

/* Registers the hash tool's message table (module 3: codes 0x30001 to
   0x30003, the load-bound errors of kt_ghash) through the kt_mem_context
   `context`, as kt_mem_add_primary_message_table does. Registering again
   is harmless. Failures raise through the memory context. */
KT_API void kt_initialize_hashtool_messages(void* context);

KT_EXTERN_C_END

#endif /* KT_HASHING_H */
