// The fast CRC-32 register methods agree with the bytewise reference, and
// the reference agrees with a bit-at-a-time definition of the polynomial.
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

}  // namespace

TEST(Crc32Table, IsTheStandardTable) {
  const uint32_t* t = kCrc32Tables.slice[0];
  EXPECT_EQ(t[0], 0u);
  EXPECT_EQ(t[1], 0x77073096u);
  EXPECT_EQ(t[128], 0xEDB88320u);
  EXPECT_EQ(t[255], 0x2D02EF8Du);
}

TEST(Crc32Register, BytewiseMatchesBitwiseDefinition) {
  std::mt19937_64 rng(7);
  std::vector<unsigned char> data(512);
  for (auto& b : data) b = static_cast<unsigned char>(rng());
  for (size_t n = 0; n <= data.size(); n += 7) {
    uint32_t seed = static_cast<uint32_t>(rng());
    ASSERT_EQ(Crc32RegisterBytewise(seed, data.data(), n), BitwiseRegister(seed, data.data(), n));
  }
}

TEST(Crc32Register, FastMethodsMatchBytewiseForEveryLengthAndOffset) {
  std::mt19937_64 rng(8);
  std::vector<unsigned char> data(1100);
  for (auto& b : data) b = static_cast<unsigned char>(rng());
  for (size_t offset = 0; offset < 9; ++offset)
    for (size_t n = 0; n + offset <= data.size(); n += (n < 300 ? 1 : 37)) {
      uint32_t seed = static_cast<uint32_t>(rng());
      const unsigned char* p = data.data() + offset;
      uint32_t expected = Crc32RegisterBytewise(seed, p, n);
      ASSERT_EQ(Crc32RegisterSliced(seed, p, n), expected) << offset << " " << n;
      ASSERT_EQ(Crc32Register(seed, p, n), expected) << offset << " " << n;
    }
}
