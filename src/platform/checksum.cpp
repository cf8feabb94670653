// CRC-32 over byte ranges and string arrays, and the MD5 accumulator.
#include "kt/checksum.h"

#include <cstring>

#include "internal/crc32.h"

using kt::internal::Crc32Register;

extern "C" uint32_t kt_crc_update(uint32_t crc, const unsigned char* data, int length) {
  if (length == 0 || data == nullptr)
    return crc;
  // The count is taken as unsigned 32-bit, as the interface has always done.
  uint32_t count = static_cast<uint32_t>(length);
  return ~Crc32Register(~crc, data, count);
}

extern "C" uint32_t kt_crc_string_array(uint32_t crc, const char** strings) {
  // An empty array yields 0 rather than the incoming crc; callers have
  // always compared against that value, so it stays.
  if (strings == nullptr || strings[0] == nullptr)
    return 0;
  uint32_t reg = ~crc;
  for (const char** s = strings; *s != nullptr; ++s)
    reg = Crc32Register(reg, reinterpret_cast<const unsigned char*>(*s), std::strlen(*s));
  return ~reg;
}

// ---- MD5 (RFC 1321) -------------------------------------------------------

namespace {

constexpr uint32_t kMd5Init[4] = {0x67452301u, 0xEFCDAB89u, 0x98BADCFEu, 0x10325476u};

// floor(|sin(i + 1)| * 2^32) for the 64 steps.
constexpr uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613,
    0xfd469501, 0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193,
    0xa679438e, 0x49b40821, 0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d,
    0x02441453, 0xd8a1e681, 0xe7d3fbc8, 0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed,
    0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a, 0xfffa3942, 0x8771f681, 0x6d9d6122,
    0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70, 0x289b7ec6, 0xeaa127fa,
    0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665, 0xf4292244,
    0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb,
    0xeb86d391};

// Rotation amounts: four per round, repeating within the round.
constexpr int kShift[4][4] = {{7, 12, 17, 22}, {5, 9, 14, 20}, {4, 11, 16, 23}, {6, 10, 15, 21}};

inline uint32_t Rotl(uint32_t v, int s) { return (v << s) | (v >> (32 - s)); }

// The four boolean functions, in forms that need fewer operations than
// the textbook ones but give identical results.
inline uint32_t F(uint32_t x, uint32_t y, uint32_t z) { return z ^ (x & (y ^ z)); }
inline uint32_t G(uint32_t x, uint32_t y, uint32_t z) { return y ^ (z & (x ^ y)); }
inline uint32_t H(uint32_t x, uint32_t y, uint32_t z) { return x ^ y ^ z; }
inline uint32_t I(uint32_t x, uint32_t y, uint32_t z) { return y ^ (x | ~z); }

// One step: a = b + rotl(a + f + x + t, s), then the words rotate so that
// the next step's "a" is this step's "d".
inline void Step(uint32_t& a, uint32_t& b, uint32_t& c, uint32_t& d, uint32_t f, uint32_t x,
                 int i, int s) {
  uint32_t next = b + Rotl(a + f + x + kSine[i], s);
  a = d;
  d = c;
  c = b;
  b = next;
}

void Md5Block(kt_md5_context* ctx, const unsigned char* block) {
  uint32_t x[16];
  std::memcpy(x, block, 64);  // little-endian host: words as MD5 reads them
  uint32_t a = ctx->a, b = ctx->b, c = ctx->c, d = ctx->d;

#pragma GCC unroll 16
  for (int i = 0; i < 16; ++i)
    Step(a, b, c, d, F(b, c, d), x[i], i, kShift[0][i & 3]);
#pragma GCC unroll 16
  for (int i = 16; i < 32; ++i)
    Step(a, b, c, d, G(b, c, d), x[(5 * i + 1) & 15], i, kShift[1][i & 3]);
#pragma GCC unroll 16
  for (int i = 32; i < 48; ++i)
    Step(a, b, c, d, H(b, c, d), x[(3 * i + 5) & 15], i, kShift[2][i & 3]);
#pragma GCC unroll 16
  for (int i = 48; i < 64; ++i)
    Step(a, b, c, d, I(b, c, d), x[(7 * i) & 15], i, kShift[3][i & 3]);

  ctx->a += a;
  ctx->b += b;
  ctx->c += c;
  ctx->d += d;
}

void Md5Reset(kt_md5_context* ctx) {
  ctx->a = kMd5Init[0];
  ctx->b = kMd5Init[1];
  ctx->c = kMd5Init[2];
  ctx->d = kMd5Init[3];
  ctx->count = 0;
}

void Md5Add(kt_md5_context* ctx, const unsigned char* data, size_t length) {
  size_t used = ctx->count & 63;
  ctx->count += length;
  if (used != 0) {
    size_t room = 64 - used;
    if (length < room) {
      std::memcpy(ctx->block + used, data, length);
      return;
    }
    std::memcpy(ctx->block + used, data, room);
    Md5Block(ctx, ctx->block);
    data += room;
    length -= room;
  }
  for (; length >= 64; data += 64, length -= 64)
    Md5Block(ctx, data);
  std::memcpy(ctx->block, data, length);
}

// Pads with 0x80, zeros up to 56 mod 64 and the bit count, and writes
// A, B, C, D little-endian into `out`.
void Md5Finish(kt_md5_context* ctx, unsigned char out[16]) {
  uint64_t bits = ctx->count * 8;
  size_t used = ctx->count & 63;
  unsigned char pad[72] = {0x80};
  size_t padLength = (used < 56 ? 56 : 120) - used;
  std::memcpy(pad + padLength, &bits, 8);  // little-endian host
  Md5Add(ctx, pad, padLength + 8);
  uint32_t words[4] = {ctx->a, ctx->b, ctx->c, ctx->d};
  std::memcpy(out, words, 16);
}

}  // namespace

kt_md5ChecksumRec::kt_md5ChecksumRec() : context_(new kt_md5_context) {
  Md5Reset(context_);
}

kt_md5ChecksumRec::~kt_md5ChecksumRec() { delete context_; }

void kt_md5ChecksumRec::addn(const unsigned char* data, unsigned long length) {
  if (data != nullptr)
    Md5Add(context_, data, length);
}

kt_md5_digest kt_md5ChecksumRec::getValueAndReset() {
  unsigned char bytes[16];
  Md5Finish(context_, bytes);
  Md5Reset(context_);
  kt_md5_digest value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

void kt_md5ChecksumRec::clear() { Md5Reset(context_); }
