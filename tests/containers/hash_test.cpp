// The hash family against an independent, bit-at-a-time model of the CRC
// step, plus the quasiprime search against brute-force trial division.
#include <cstring>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "kt/hashing.h"

namespace {

// One CRC round computed bit by bit from the polynomial: no tables at all.
uint32_t SlowStep(uint32_t h, unsigned char b) {
  h ^= b;
  for (int bit = 0; bit < 8; ++bit)
    h = (h & 1) ? (h >> 1) ^ 0xEDB88320u : h >> 1;
  return h;
}

uint32_t SlowBytes(uint32_t h, const std::string& bytes) {
  for (unsigned char c : bytes)
    h = SlowStep(h, c);
  return h;
}

// Bytes of a value from the lowest upward, leading zero bytes dropped, at
// least one byte.
uint32_t SlowWord(uint32_t h, uint64_t v) {
  h = SlowStep(h, static_cast<unsigned char>(v));
  for (v >>= 8; v != 0; v >>= 8)
    h = SlowStep(h, static_cast<unsigned char>(v));
  return h;
}

// The folding of one byte: ASCII lower-casing below 0x80; above, byte
// (b + 768) of the little-endian CRC table image, where entry k of the table
// is SlowStep(0, k).
unsigned char SlowFold(unsigned char b) {
  if (b < 0x80)
    return (b >= 'A' && b <= 'Z') ? static_cast<unsigned char>(b + 32) : b;
  unsigned offset = b + 768u;
  uint32_t entry = SlowStep(0, static_cast<unsigned char>(offset / 4));
  return static_cast<unsigned char>(entry >> (8 * (offset % 4)));
}

std::string RandomText(std::mt19937& rng, size_t n) {
  std::string s(n, ' ');
  for (char& c : s)
    c = static_cast<char>(rng() % 255 + 1);  // no NUL
  return s;
}

bool SlowIsQuasiprime(int32_t n) {
  if (n <= 1)
    return false;
  for (int32_t d = 2; d < 1000 && static_cast<int64_t>(d) * d <= n; ++d)
    if (n % d == 0)
      return false;
  return true;
}

TEST(Hash, KnownAnswers) {
  EXPECT_EQ(kt_hash_byte(0, 1), 0x77073096u);
  EXPECT_EQ(kt_hash_byte(0, 255), 0x2D02EF8Du);
  // With the inversions added by hand: the standard CRC-32 check value.
  EXPECT_EQ(~kt_hash_n_bytes(0xFFFFFFFFu, 9, "123456789"), 0xCBF43926u);
  EXPECT_EQ(kt_hash_n_bytes(0x1234u, 0, nullptr), 0x1234u);
  EXPECT_EQ(kt_hash_string(7, ""), kt_hash_byte(7, 0));
  EXPECT_EQ(kt_hash_uint(7, 0), kt_hash_byte(7, 0));
  EXPECT_EQ(kt_hash_uint(7, 0x100), kt_hash_byte(kt_hash_byte(7, 0x00), 0x01));
  EXPECT_EQ(kt_hash_uint(7, 0x1234), kt_hash_byte(kt_hash_byte(7, 0x34), 0x12));
}

TEST(Hash, ScalarsMatchSlowModel) {
  std::mt19937 rng(1);
  for (int i = 0; i < 20000; ++i) {
    uint32_t seed = rng();
    uint32_t v = rng() >> (rng() % 32);  // many leading-zero patterns
    EXPECT_EQ(kt_hash_uint(seed, v), SlowWord(seed, v));
    EXPECT_EQ(kt_hash_int(seed, static_cast<int32_t>(v)), SlowWord(seed, v));
    EXPECT_EQ(kt_hash_byte(seed, static_cast<unsigned char>(v)),
              SlowStep(seed, static_cast<unsigned char>(v)));
    uint64_t wide = (static_cast<uint64_t>(rng()) << 32 | rng()) >> (rng() % 64);
    const void* pointer = reinterpret_cast<const void*>(wide);
    EXPECT_EQ(kt_hash_pointer(seed, pointer), SlowWord(seed, wide));
    float f;
    std::memcpy(&f, &v, 4);
    EXPECT_EQ(kt_hash_float(seed, f), SlowWord(seed, v));
    double d;
    std::memcpy(&d, &wide, 8);
    EXPECT_EQ(kt_hash_double(seed, d),
              SlowWord(SlowWord(seed, static_cast<uint32_t>(wide)), wide >> 32));
  }
}

TEST(Hash, StringsMatchSlowModel) {
  std::mt19937 rng(2);
  for (size_t n : {0u, 1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u, 9u, 11u, 12u, 13u, 15u, 16u, 31u, 63u, 64u,
                   65u, 255u, 256u, 257u, 1000u, 70000u}) {
    for (int round = 0; round < 4; ++round) {
      std::string s = RandomText(rng, n);
      uint32_t seed = rng();
      uint32_t forward = SlowStep(SlowBytes(seed, s), 0);
      EXPECT_EQ(kt_hash_string(seed, s.c_str()), forward) << n;
      EXPECT_EQ(kt_hash_n_bytes(seed, n, s.data()), SlowBytes(seed, s)) << n;
      std::string reversed(s.rbegin(), s.rend());
      EXPECT_EQ(kt_hash_reverse_string(seed, s.c_str()), SlowStep(SlowBytes(seed, reversed), 0));
      std::string folded = s;
      for (char& c : folded)
        c = static_cast<char>(SlowFold(static_cast<unsigned char>(c)));
      uint32_t lower = SlowStep(SlowBytes(seed, folded), 0);
      EXPECT_EQ(kt_hash_lower_string(seed, s.c_str()), lower) << n;
      EXPECT_EQ(kt_hash_stringi(seed, s.c_str()), lower) << n;
    }
  }
}

TEST(Hash, FoldingQuirkForHighBytes) {
  // For ASCII the folded hash is the hash of the lower-cased text.
  EXPECT_EQ(kt_hash_lower_string(0, "MiXeD Case_42"), kt_hash_string(0, "mixed case_42"));
  // High bytes fold to the CRC table byte at (b + 768), not to themselves
  // (every one is met by the random texts above); the model's anchor: byte
  // 0x80 reads byte 0 of entry 224.
  EXPECT_EQ(SlowFold(0x80), static_cast<unsigned char>(kt_hash_byte(0, 224)));
  const char text[] = "\xc3\xa9t\xc3\xa9";
  EXPECT_NE(kt_hash_stringi(0, text), kt_hash_string(0, text));
}

TEST(Hash, KeyCallbacks) {
  const char* a = "alpha";
  const char* b = "beta";
  EXPECT_EQ(kt_hash_string_key(nullptr, a), kt_hash_string(0, a));
  EXPECT_EQ(kt_ghash_string_key(nullptr, &a), kt_hash_string(0xFFFFFFFFu, a));
  EXPECT_NE(kt_ghash_string_key(nullptr, &a), kt_hash_string_key(nullptr, a));
  EXPECT_EQ(kt_ghash_stringi_key(nullptr, &a), kt_hash_stringi(0, a));
  EXPECT_LT(kt_compare_string_keys(nullptr, a, b), 0);
  EXPECT_LT(kt_ghash_compare_string_keys(nullptr, &a, &b), 0);
  EXPECT_EQ(kt_ghash_compare_string_keys(nullptr, &a, &a), 0);
  const char* upper = "ALPHA";
  EXPECT_EQ(kt_ghash_compare_stringi_keys(nullptr, &a, &upper), 0);
  const char* none = nullptr;
  const char* empty = "";
  EXPECT_EQ(kt_ghash_compare_stringi_keys(nullptr, &none, &empty), 0);
  EXPECT_GT(kt_ghash_compare_stringi_keys(nullptr, &a, &none), 0);

  int x;
  EXPECT_EQ(kt_NULL_hash_key(nullptr, &x), kt_hash_pointer(0, &x));
  EXPECT_EQ(kt_NULL_copy_key(nullptr, &x), &x);
  kt_NULL_delete_key(nullptr, &x);
  EXPECT_EQ(kt_ghash_hash_ptr_key(nullptr, &a), kt_hash_pointer(0, a));

  // Pointers compare by the sign of their wrapped difference.
  auto p = [](uint64_t v) { return reinterpret_cast<const void*>(v); };
  EXPECT_EQ(kt_NULL_compare_keys(nullptr, p(10), p(20)), -1);
  EXPECT_EQ(kt_NULL_compare_keys(nullptr, p(20), p(10)), 1);
  EXPECT_EQ(kt_NULL_compare_keys(nullptr, p(20), p(20)), 0);
  // More than 2^63 apart: the order reverses.
  EXPECT_EQ(kt_NULL_compare_keys(nullptr, p(0xF000000000000000ull), p(0x10)), -1);
  EXPECT_EQ(kt_NULL_compare_keys(nullptr, p(0x10), p(0xF000000000000000ull)), 1);
  const void* hi = p(0xF000000000000000ull);
  const void* lo = p(0x10);
  EXPECT_EQ(kt_ghash_compare_ptr_keys(nullptr, &hi, &lo), -1);
}

TEST(Hash, QuasiprimeMatchesTrialDivision) {
  for (int32_t n = -50; n <= 1200000; ++n)
    ASSERT_EQ(kt_hash_is_quasiprime(n), SlowIsQuasiprime(n) ? 1 : 0) << n;
  std::mt19937 rng(3);
  for (int i = 0; i < 20000; ++i) {
    int32_t n = static_cast<int32_t>(rng() & 0x7FFFFFFF);
    ASSERT_EQ(kt_hash_is_quasiprime(n), SlowIsQuasiprime(n) ? 1 : 0) << n;
  }
  EXPECT_EQ(kt_hash_is_quasiprime(INT32_MIN), 0);
  EXPECT_EQ(kt_hash_is_quasiprime(1009 * 1013), 1);  // above 997 squared: no factor below 1000
}

// A zero step cannot move: it ends at the floor instead of spinning.
TEST(Hash, NextQuasiprime) {
  const int32_t cases[][3] = {{1000, 1, 1009}, {0, 1, 2},     {1, 1, 2},       {1023, 1, 1031},
                              {1030, -1, 1021}, {-7, -1, 2},  {1000, 0, 2},    {1009, 0, 1009}};
  for (const auto& k : cases)
    EXPECT_EQ(kt_hash_next_quasiprime(nullptr, k[0], k[1]), k[2]) << k[0] << " step " << k[1];
}

}  // namespace
