// Carry-less-multiply folding of the CRC-32 register: 128-bit lanes with
// PCLMULQDQ, 512-bit lanes with VPCLMULQDQ and AVX-512. Every function
// that uses those instructions carries its own target attribute, so the
// rest of the library keeps the baseline instruction set; crc32.cpp calls
// in only after Crc32DetectFoldSupport says the processor has them.
#include "internal/crc32_fold.h"

#include <cpuid.h>
#include <immintrin.h>

#include "internal/crc32.h"

namespace kt::internal {
namespace {

// ---- Constants --------------------------------------------------------------
//
// A 16-byte block loaded little-endian holds in bit k the coefficient of
// x^(127-k) of its polynomial (the low bit of the first byte is the
// highest power). Write the block as A*x^64 + B, A being its low 64 bits
// and B its high 64 bits. Moving the block D bits further along the
// message multiplies it by x^D, and modulo P
//
//     A*x^(D+64) + B*x^D  ==  A*(x^(D+64) mod P) + B*(x^D mod P),
//
// two 64-by-33-bit carry-less products whose sum fits a block again. With
// both operands bit-reflected the product of a 64-bit half by a constant c
// lands in the block's layout multiplied by x^32 when c holds its
// polynomial as bit j <-> x^(32-j), which is a reflected 32-bit remainder
// shifted left by one. So the constant that multiplies a half by x^E is
// (x^(E-32) mod P, reflected) << 1: x^(D+32) for A and x^(D-32) for B.
// Everything below follows from the polynomial at compile time.

// x^n mod P, reflected like the register (bit i <-> x^(31-i)).
constexpr uint32_t XPowModP(int n) {
  uint32_t r = 0x80000000u;  // x^0
  for (int i = 0; i < n; ++i)
    r = (r >> 1) ^ ((r & 1) ? kCrc32Polynomial : 0);
  return r;
}

constexpr long long FoldConstant(int e) {
  return static_cast<long long>(uint64_t{XPowModP(e)} << 1);
}

// The low and high 64-bit halves of a block's multipliers for moving it
// `bytes` further along.
struct FoldPair {
  long long low, high;
};

constexpr FoldPair Ahead(int bytes) {
  return {FoldConstant(8 * bytes + 32), FoldConstant(8 * bytes - 32)};
}

// The lowest `bits` bits of v in reverse order.
constexpr uint64_t Reflect(uint64_t v, int bits) {
  uint64_t r = 0;
  for (int i = 0; i < bits; ++i)
    if ((v >> i) & 1)
      r |= uint64_t{1} << (bits - 1 - i);
  return r;
}

// floor(x^64 / P), 33 bits, reflected: the multiplier of the Barrett
// reduction. Long division in normal bit order, one quotient bit per step,
// on a 33-bit window of the running remainder.
constexpr long long BarrettQuotient() {
  const uint64_t poly = (uint64_t{1} << 32) | Reflect(kCrc32Polynomial, 32);
  uint64_t window = uint64_t{1} << 32;  // x^64: the top bit, zeros below
  uint64_t quotient = 0;
  for (int degree = 64; degree >= 32; --degree) {
    quotient <<= 1;
    if (window >> 32) {
      quotient |= 1;
      window ^= poly;
    }
    window <<= 1;
  }
  return static_cast<long long>(Reflect(quotient, 33));
}

constexpr FoldPair kAhead16 = Ahead(16), kAhead32 = Ahead(32), kAhead48 = Ahead(48);
constexpr FoldPair kAhead64 = Ahead(64), kAhead256 = Ahead(256);
constexpr long long kReduce64 = FoldConstant(64);
// P itself, 33 bits reflected, and the Barrett quotient.
constexpr long long kPolyPrime = (uint64_t{kCrc32Polynomial} << 1) | 1;
constexpr long long kMuPrime = BarrettQuotient();

// ---- 128-bit lanes ----------------------------------------------------------

__attribute__((target("pclmul,sse4.1"))) inline __m128i Pair(FoldPair k) {
  return _mm_set_epi64x(k.high, k.low);
}

__attribute__((target("pclmul,sse4.1"))) inline __m128i Load(const unsigned char* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

__attribute__((target("pclmul,sse4.1"))) inline __m128i Fold(__m128i lane, __m128i k,
                                                            __m128i next) {
  __m128i low = _mm_clmulepi64_si128(lane, k, 0x00);
  __m128i high = _mm_clmulepi64_si128(lane, k, 0x11);
  return _mm_xor_si128(_mm_xor_si128(low, high), next);
}

// Folds the remaining 16-byte blocks (`length` is a multiple of 16) into
// the lane `x`, then reduces the lane to the 32-bit register.
__attribute__((target("pclmul,sse4.1"))) inline uint32_t FinishFold(__m128i x,
                                                                   const unsigned char* p,
                                                                   size_t length) {
  const __m128i k16 = Pair(kAhead16);
  const __m128i reduce = _mm_set_epi64x(0, kReduce64);
  const __m128i barrett = _mm_set_epi64x(kMuPrime, kPolyPrime);
  const __m128i low32 = _mm_set_epi32(0, 0, 0, -1);
  for (; length >= 16; p += 16, length -= 16)
    x = Fold(x, k16, Load(p));

  // 128 bits to 64, then 64 to 32: each a shift and one multiplication.
  __m128i t = _mm_clmulepi64_si128(x, k16, 0x10);
  x = _mm_xor_si128(_mm_srli_si128(x, 8), t);
  t = _mm_clmulepi64_si128(_mm_and_si128(x, low32), reduce, 0x00);
  x = _mm_xor_si128(_mm_srli_si128(x, 4), t);

  // Barrett reduction to the 32-bit remainder.
  t = _mm_clmulepi64_si128(_mm_and_si128(x, low32), barrett, 0x10);
  t = _mm_clmulepi64_si128(_mm_and_si128(t, low32), barrett, 0x00);
  x = _mm_xor_si128(x, t);
  return static_cast<uint32_t>(_mm_extract_epi32(x, 1));
}

// ---- 512-bit lanes ----------------------------------------------------------

__attribute__((target("avx512f,avx512bw,avx512vl,vpclmulqdq,pclmul"))) inline __m512i
WidePair(FoldPair k) {
  return _mm512_set_epi64(k.high, k.low, k.high, k.low, k.high, k.low, k.high, k.low);
}

__attribute__((target("avx512f,avx512bw,avx512vl,vpclmulqdq,pclmul"))) inline __m512i
WideLoad(const unsigned char* p) {
  return _mm512_loadu_si512(p);
}

// Each 128-bit quarter of `lane` folded as Fold does, all four at once.
__attribute__((target("avx512f,avx512bw,avx512vl,vpclmulqdq,pclmul"))) inline __m512i
WideFold(__m512i lane, __m512i k, __m512i next) {
  __m512i low = _mm512_clmulepi64_epi128(lane, k, 0x00);
  __m512i high = _mm512_clmulepi64_epi128(lane, k, 0x11);
  return _mm512_ternarylogic_epi64(low, high, next, 0x96);  // low ^ high ^ next
}

// Folds quarters 0, 1 and 2 of `lane` (48, 32 and 16 bytes before the
// end) onto quarter 3 in one multiplication, and returns the sum.
__attribute__((target("avx512f,avx512bw,avx512vl,vpclmulqdq,pclmul"))) inline __m128i
FoldQuarters(__m512i lane) {
  const __m512i k = _mm512_set_epi64(0, 0, kAhead16.high, kAhead16.low, kAhead32.high,
                                     kAhead32.low, kAhead48.high, kAhead48.low);
  __m512i last = _mm512_maskz_mov_epi64(0xC0, lane);
  __m512i sum = WideFold(lane, k, last);
  // Add the quarters: halves exchanged, then quarters within the halves.
  // The zero-masking forms with a full mask stand in for the plain ones,
  // whose undefined pass-through operand trips GCC 12's -Wuninitialized.
  sum = _mm512_xor_si512(sum, _mm512_maskz_shuffle_i64x2(0xFF, sum, sum, 0x4E));
  sum = _mm512_xor_si512(sum, _mm512_maskz_shuffle_i64x2(0xFF, sum, sum, 0xB1));
  return _mm512_maskz_extracti32x4_epi32(0xF, sum, 0);
}

}  // namespace

// Four lanes of 16 bytes (64 bytes a round), folded into one at the end.
__attribute__((target("pclmul,sse4.1"))) uint32_t Crc32Fold128(uint32_t reg,
                                                             const unsigned char* p,
                                                             size_t length) {
  const __m128i k64 = Pair(kAhead64), k16 = Pair(kAhead16);
  __m128i x0 = _mm_xor_si128(Load(p), _mm_cvtsi32_si128(static_cast<int>(reg)));
  __m128i x1 = Load(p + 16), x2 = Load(p + 32), x3 = Load(p + 48);
  p += 64;
  length -= 64;
  for (; length >= 64; p += 64, length -= 64) {
    x0 = Fold(x0, k64, Load(p));
    x1 = Fold(x1, k64, Load(p + 16));
    x2 = Fold(x2, k64, Load(p + 32));
    x3 = Fold(x3, k64, Load(p + 48));
  }
  x0 = Fold(x0, k16, x1);
  x0 = Fold(x0, k16, x2);
  x0 = Fold(x0, k16, x3);
  return FinishFold(x0, p, length);
}

// Four lanes of 64 bytes (256 bytes a round), enough independent
// multiplications in flight to keep up with the loads.
__attribute__((target("avx512f,avx512bw,avx512vl,vpclmulqdq,pclmul"))) uint32_t Crc32Fold512(
    uint32_t reg, const unsigned char* p, size_t length) {
  const __m512i k256 = WidePair(kAhead256), k64 = WidePair(kAhead64);

  // Step 1: the register enters the first lane's lowest 32 bits.
  __m512i first = _mm512_zextsi128_si512(_mm_cvtsi32_si128(static_cast<int>(reg)));
  __m512i x0 = _mm512_xor_si512(WideLoad(p), first);
  __m512i x1 = WideLoad(p + 64), x2 = WideLoad(p + 128), x3 = WideLoad(p + 192);
  p += 256;
  length -= 256;
  for (; length >= 256; p += 256, length -= 256) {
    x0 = WideFold(x0, k256, WideLoad(p));
    x1 = WideFold(x1, k256, WideLoad(p + 64));
    x2 = WideFold(x2, k256, WideLoad(p + 128));
    x3 = WideFold(x3, k256, WideLoad(p + 192));
  }

  // Step 2: the four lanes into one, then any remaining 64-byte blocks.
  x0 = WideFold(x0, k64, x1);
  x0 = WideFold(x0, k64, x2);
  x0 = WideFold(x0, k64, x3);
  for (; length >= 64; p += 64, length -= 64)
    x0 = WideFold(x0, k64, WideLoad(p));

  // Step 3: one 16-byte lane, then the 16-byte blocks left and the reduction.
  return FinishFold(FoldQuarters(x0), p, length);
}

// Reads XCR0, the register-state components the OS saves on a switch.
static uint64_t ReadXcr0() {
  uint32_t low, high;
  __asm__("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
  return (uint64_t{high} << 32) | low;
}

Crc32FoldSupport Crc32DetectFoldSupport() {
  Crc32FoldSupport support{false, false};
  unsigned a, b, c, d;
  if (!__get_cpuid(1, &a, &b, &c, &d))
    return support;
  support.fold128 = (c & bit_PCLMUL) && (c & bit_SSE4_1);
  if (!support.fold128 || !(c & bit_OSXSAVE))
    return support;
  if (!__get_cpuid_count(7, 0, &a, &b, &c, &d))
    return support;
  bool avx512 = (b & bit_AVX512F) && (b & bit_AVX512BW) && (b & bit_AVX512VL);
  // XCR0 bits 1, 2 (SSE, AVX), 5 (opmask), 6, 7 (upper halves of ZMM0-15,
  // ZMM16-31): without all of them the OS would not preserve ZMM contents.
  const uint64_t zmmState = 0xE6;
  support.fold512 = avx512 && (c & bit_VPCLMULQDQ) && (ReadXcr0() & zmmState) == zmmState;
  return support;
}

}  // namespace kt::internal
