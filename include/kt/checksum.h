/*
 * kt/checksum.h -- CRC-32 and MD5 checksums
 *
 * Two small checksum facilities:
 *
 *   - the CRC-32 of IEEE 802.3 (the one of zlib and PNG: reflected
 *     polynomial 0xEDB88320, register inverted on entry and on exit), over
 *     byte ranges and over null-terminated arrays of C strings;
 *   - kt_md5ChecksumRec, an accumulator that produces the MD5 digest of
 *     RFC 1321 for a message fed to it in pieces.
 *
 * A CRC is continued across calls by passing the previous result back in;
 * start with 0:
 *
 *     uint32_t crc = 0;
 *     crc = kt_crc_update(crc, part1, len1);
 *     crc = kt_crc_update(crc, part2, len2);   // == CRC of part1 + part2
 *
 * All functions are reentrant; a kt_md5ChecksumRec is not shared between
 * threads without the caller's own locking.
 */
#ifndef KT_CHECKSUM_H
#define KT_CHECKSUM_H

#include <stdint.h>

#include "kt/export.h"

KT_EXTERN_C_BEGIN

/*
 * Continues the CRC `crc` over `length` bytes at `data` and returns the new
 * CRC. Length 0 (or a null `data`) returns `crc` unchanged. `length` is a
 * signed count read as unsigned 32-bit, so a negative length asks for more
 * than 2 GiB: callers pass only real lengths.
 */
KT_API uint32_t kt_crc_update(uint32_t crc, const unsigned char* data, int length);

/*
 * Continues the CRC `crc` over the bytes of each string of the
 * null-terminated array `strings`, in order, without their NUL terminators
 * and without separators. A null array, or one whose first element is null,
 * returns 0 -- not `crc` (an established result that callers compare with).
 */
KT_API uint32_t kt_crc_string_array(uint32_t crc, const char** strings);

KT_EXTERN_C_END

#ifdef __cplusplus

/* The MD5 state an accumulator owns: chaining words A, B, C, D, the count
   of bytes added so far, and the partial 64-byte block. */
struct kt_md5_context {
    uint32_t a;
    uint32_t b;
    uint32_t c;
    uint32_t d;
    uint64_t count;
    unsigned char block[64];
};

/* A 16-byte digest as one 128-bit value whose bytes, in memory, are the
   MD5 output bytes in order (memcpy it to an unsigned char[16]). */
__extension__ typedef unsigned __int128 kt_md5_digest;

/*
 * MD5 accumulator. Construction allocates the context (std::bad_alloc on
 * exhaustion) in the initial MD5 state; the destructor frees it. Not
 * copyable: the context is owned through a pointer.
 *
 *     kt_md5ChecksumRec md5;
 *     md5.addn(head, headLength);
 *     md5.addn(tail, tailLength);
 *     kt_md5_digest digest = md5.getValueAndReset();  // ready for reuse
 */
class KT_API kt_md5ChecksumRec {
public:
    kt_md5ChecksumRec();
    virtual ~kt_md5ChecksumRec();
    kt_md5ChecksumRec(const kt_md5ChecksumRec&) = delete;
    kt_md5ChecksumRec& operator=(const kt_md5ChecksumRec&) = delete;

    /* Appends `length` bytes at `data`; a null `data` appends nothing. */
    void addn(const unsigned char* data, unsigned long length);

    /* Returns the digest of everything added since construction or the
       last reset, and returns the accumulator to the initial state. */
    kt_md5_digest getValueAndReset();

    /* Returns to the initial state, discarding what was added. */
    void clear();

private:
    kt_md5_context* context_;
};

#endif /* __cplusplus */

#endif /* KT_CHECKSUM_H */
