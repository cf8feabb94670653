// CRC-32 register stepping: bytewise reference, slicing-by-8, and
// carry-less-multiply folding for long inputs.
#include "internal/crc32.h"

#include <cstring>

#include <immintrin.h>

namespace kt::internal {
namespace {

constexpr uint32_t kPolynomial = 0xEDB88320u;

constexpr Crc32Tables BuildTables() {
  Crc32Tables t{};
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t reg = i;
    for (int bit = 0; bit < 8; ++bit)
      reg = (reg & 1) ? (reg >> 1) ^ kPolynomial : reg >> 1;
    t.slice[0][i] = reg;
  }
  for (int k = 1; k < 8; ++k)
    for (int i = 0; i < 256; ++i) {
      uint32_t prev = t.slice[k - 1][i];
      t.slice[k][i] = (prev >> 8) ^ t.slice[0][prev & 0xFF];
    }
  return t;
}

}  // namespace

constexpr Crc32Tables kCrc32Tables = BuildTables();
static_assert(kCrc32Tables.slice[0][1] == 0x77073096u, "CRC-32 table");

uint32_t Crc32RegisterBytewise(uint32_t reg, const unsigned char* data, size_t length) {
  const uint32_t* table = kCrc32Tables.slice[0];
  for (size_t i = 0; i < length; ++i)
    reg = table[(reg ^ data[i]) & 0xFF] ^ (reg >> 8);
  return reg;
}

uint32_t Crc32RegisterSliced(uint32_t reg, const unsigned char* data, size_t length) {
  const auto& t = kCrc32Tables.slice;
  while (length >= 8) {
    uint64_t word;
    std::memcpy(&word, data, 8);  // little-endian host
    word ^= reg;
    reg = t[7][word & 0xFF] ^ t[6][(word >> 8) & 0xFF] ^
          t[5][(word >> 16) & 0xFF] ^ t[4][(word >> 24) & 0xFF] ^
          t[3][(word >> 32) & 0xFF] ^ t[2][(word >> 40) & 0xFF] ^
          t[1][(word >> 48) & 0xFF] ^ t[0][word >> 56];
    data += 8;
    length -= 8;
  }
  return Crc32RegisterBytewise(reg, data, length);
}

namespace {

// Folding constants for the reflected polynomial: x^(k) mod P for the
// distances of a four-lane (512-bit) fold, a one-lane (128-bit) fold and
// the 64-bit reduction, then P' and mu' for the final Barrett reduction.
constexpr long long kFold4Low = 0x154442bd4, kFold4High = 0x1c6e41596;
constexpr long long kFold1Low = 0x1751997d0, kFold1High = 0x0ccaa009e;
constexpr long long kFold64 = 0x163cd6124;
constexpr long long kPolyPrime = 0x1db710641, kMuPrime = 0x1f7011641;

__attribute__((target("pclmul,sse4.1"))) inline __m128i Fold(__m128i lane, __m128i k,
                                                            __m128i next) {
  __m128i low = _mm_clmulepi64_si128(lane, k, 0x00);
  __m128i high = _mm_clmulepi64_si128(lane, k, 0x11);
  return _mm_xor_si128(_mm_xor_si128(low, high), next);
}

__attribute__((target("pclmul,sse4.1"))) inline __m128i Load(const unsigned char* p) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
}

// Folds `length` bytes (at least 64, a multiple of 16) into the register.
__attribute__((target("pclmul,sse4.1"))) uint32_t Crc32Clmul(uint32_t reg,
                                                           const unsigned char* p,
                                                           size_t length) {
  const __m128i k4 = _mm_set_epi64x(kFold4High, kFold4Low);
  const __m128i k1 = _mm_set_epi64x(kFold1High, kFold1Low);
  const __m128i k64 = _mm_set_epi64x(0, kFold64);
  const __m128i barrett = _mm_set_epi64x(kMuPrime, kPolyPrime);
  const __m128i low32 = _mm_set_epi32(0, 0, 0, -1);

  // Step 1: four lanes of 128 bits, the register folded into the first.
  __m128i x0 = _mm_xor_si128(Load(p), _mm_cvtsi32_si128(static_cast<int>(reg)));
  __m128i x1 = Load(p + 16), x2 = Load(p + 32), x3 = Load(p + 48);
  p += 64;
  length -= 64;
  for (; length >= 64; p += 64, length -= 64) {
    x0 = Fold(x0, k4, Load(p));
    x1 = Fold(x1, k4, Load(p + 16));
    x2 = Fold(x2, k4, Load(p + 32));
    x3 = Fold(x3, k4, Load(p + 48));
  }

  // Step 2: fold the four lanes into one, then any remaining 16-byte blocks.
  x0 = Fold(x0, k1, x1);
  x0 = Fold(x0, k1, x2);
  x0 = Fold(x0, k1, x3);
  for (; length >= 16; p += 16, length -= 16)
    x0 = Fold(x0, k1, Load(p));

  // Step 3: reduce 128 bits to 64, then 64 to 32.
  __m128i t = _mm_clmulepi64_si128(x0, k1, 0x10);
  x0 = _mm_xor_si128(_mm_srli_si128(x0, 8), t);
  t = _mm_clmulepi64_si128(_mm_and_si128(x0, low32), k64, 0x00);
  x0 = _mm_xor_si128(_mm_srli_si128(x0, 4), t);

  // Step 4: Barrett reduction to the 32-bit remainder.
  t = _mm_clmulepi64_si128(_mm_and_si128(x0, low32), barrett, 0x10);
  t = _mm_clmulepi64_si128(_mm_and_si128(t, low32), barrett, 0x00);
  x0 = _mm_xor_si128(x0, t);
  return static_cast<uint32_t>(_mm_extract_epi32(x0, 1));
}

}  // namespace

bool Crc32HasClmul() {
  static const bool has = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
  return has;
}

uint32_t Crc32Register(uint32_t reg, const unsigned char* data, size_t length) {
  if (length >= 64 && Crc32HasClmul()) {
    size_t folded = length & ~size_t{15};
    reg = Crc32Clmul(reg, data, folded);
    data += folded;
    length -= folded;
  }
  return Crc32RegisterSliced(reg, data, length);
}

}  // namespace kt::internal
