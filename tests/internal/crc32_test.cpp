// Every CRC-32 register method, forced one at a time, agrees with the
// bytewise reference, which agrees with a bit-at-a-time definition.
#include "internal/crc32.h"

#include <random>
#include <vector>

#include <gtest/gtest.h>

using namespace kt::internal;

namespace {

uint32_t BitwiseRegister(uint32_t reg, const unsigned char* p, size_t n) {
  for (size_t i = 0; i < n; ++i) {
    reg ^= p[i];
    for (int bit = 0; bit < 8; ++bit)
      reg = (reg >> 1) ^ (0xEDB88320u & (0u - (reg & 1)));
  }
  return reg;
}

std::vector<unsigned char> RandomBytes(std::mt19937_64& rng, size_t n) {
  std::vector<unsigned char> v(n);
  for (auto& b : v) b = static_cast<unsigned char>(rng());
  return v;
}

const Crc32Method kMethods[] = {Crc32Method::kBytewise, Crc32Method::kSliced,
                                Crc32Method::kFold128, Crc32Method::kFold512};

}  // namespace

// The best method is the one the compiler's own feature test (which also
// asks the OS about the ZMM state) would pick, so no path goes unused.
TEST(Crc32Register, DetectionAgreesWithTheCompiler) {
  bool narrow = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
  bool wide = narrow && __builtin_cpu_supports("vpclmulqdq") && __builtin_cpu_supports("avx512f") &&
              __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl");
  EXPECT_EQ(Crc32BestMethod(), wide     ? Crc32Method::kFold512
                               : narrow ? Crc32Method::kFold128
                                        : Crc32Method::kSliced);
}

// Every length to 1100 and a few large ones, each at a random alignment,
// in one piece and chained over random split points.
TEST(Crc32Register, EveryMethodMatchesBytewiseOnRandomBuffersAndChainedSplits) {
  std::mt19937_64 rng(8);
  auto data = RandomBytes(rng, (1 << 20) + 64);
  std::vector<size_t> lengths = {4099, 65536, 100003, 1 << 20};
  for (size_t n = 0; n <= 1100; ++n) lengths.push_back(n);
  for (Crc32Method method : kMethods) {
    if (!Crc32MethodAvailable(method))
      continue;
    for (size_t n : lengths) {
      const unsigned char* p = data.data() + rng() % 64;
      uint32_t seed = static_cast<uint32_t>(rng());
      uint32_t expected = Crc32RegisterBytewise(seed, p, n);
      if (method == Crc32Method::kBytewise) {
        ASSERT_EQ(expected, BitwiseRegister(seed, p, n)) << "n=" << n;
      }
      ASSERT_EQ(Crc32RegisterWith(method, seed, p, n), expected)
          << static_cast<int>(method) << " n=" << n;
      uint32_t reg = seed;
      for (size_t pos = 0, piece; pos < n; pos += piece) {
        piece = std::min<size_t>(n - pos, rng() % 700);
        reg = Crc32RegisterWith(method, reg, p + pos, piece);
      }
      ASSERT_EQ(reg, expected) << static_cast<int>(method) << " n=" << n << " in pieces";
    }
  }
}
