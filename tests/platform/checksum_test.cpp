// CRC-32 checked against zlib's crc32 and MD5 against RFC 1321 and OpenSSL.
#include "kt/checksum.h"

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <zlib.h>

namespace {

std::vector<unsigned char> RandomBytes(std::mt19937_64& rng, size_t n) {
  std::vector<unsigned char> v(n);
  for (auto& b : v) b = static_cast<unsigned char>(rng());
  return v;
}

uint32_t ZlibCrc(const unsigned char* p, size_t n) {
  return static_cast<uint32_t>(crc32(0, p, static_cast<uInt>(n)));
}

std::string Hex(const unsigned char* p, size_t n) {
  static const char digits[] = "0123456789abcdef";
  std::string s;
  for (size_t i = 0; i < n; ++i) s += {digits[p[i] >> 4], digits[p[i] & 15]};
  return s;
}

// The digest's bytes in memory order.
std::string DigestHex(kt_md5_digest d) { return Hex(reinterpret_cast<unsigned char*>(&d), 16); }

std::string OpenSslMd5(const unsigned char* p, size_t n) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EVP_Digest(p, n, out, &len, EVP_md5(), nullptr);
  return Hex(out, len);
}

const unsigned char* Bytes(const char* s) { return reinterpret_cast<const unsigned char*>(s); }

}  // namespace

TEST(Crc, KnownAnswersAndZeroLength) {
  EXPECT_EQ(kt_crc_update(0, Bytes("123456789"), 9), 0xCBF43926u);
  for (uint32_t x : {0u, 1u, 0xCBF43926u, 0xFFFFFFFFu}) {
    EXPECT_EQ(kt_crc_update(x, Bytes("ignored"), 0), x);
    EXPECT_EQ(kt_crc_update(x, nullptr, 0), x);
  }
}

// Every length to 300, then random ones and one of 4 MiB, each at a random
// alignment, in one piece and chained over random split points.
TEST(Crc, MatchesZlibOnRandomBuffersAlignmentsAndChainedSplits) {
  std::mt19937_64 rng(2);
  auto data = RandomBytes(rng, (4 << 20) + 64);
  for (int round = 0; round < 400; ++round) {
    size_t n = round < 300 ? static_cast<size_t>(round) : round < 399 ? rng() % 20000 : 4 << 20;
    const unsigned char* p = data.data() + rng() % 64;
    uint32_t expected = ZlibCrc(p, n);
    ASSERT_EQ(kt_crc_update(0, p, static_cast<int>(n)), expected) << "n=" << n;
    uint32_t crc = 0;
    for (size_t pos = 0, piece; pos < n; pos += piece) {
      piece = std::min<size_t>(n - pos, rng() % 600);
      crc = kt_crc_update(crc, p + pos, static_cast<int>(piece));
    }
    ASSERT_EQ(crc, expected) << "n=" << n;
  }
}

TEST(CrcStringArray, EqualsCrcOfTheConcatenationAndEmptyArrayYieldsZero) {
  const char* empty[] = {nullptr};
  EXPECT_EQ(kt_crc_string_array(5, empty), 0u);
  EXPECT_EQ(kt_crc_string_array(5, nullptr), 0u);
  const char* digits[] = {"1234", "56789", nullptr};
  EXPECT_EQ(kt_crc_string_array(0, digits), 0xCBF43926u);

  std::mt19937_64 rng(4);
  for (int round = 0; round < 50; ++round) {
    std::vector<std::string> parts(1 + rng() % 8);
    std::vector<const char*> array;
    std::string joined;
    for (auto& p : parts) {
      for (size_t i = rng() % 100; i > 0; --i) p += static_cast<char>('a' + rng() % 26);
      joined += p;
      array.push_back(p.c_str());
    }
    array.push_back(nullptr);
    uint32_t seed = static_cast<uint32_t>(rng());
    uint32_t expected = kt_crc_update(seed, Bytes(joined.c_str()), static_cast<int>(joined.size()));
    // An array holding only empty strings runs the loop over nothing: the
    // incoming crc comes back, as from kt_crc_update with length 0.
    EXPECT_EQ(kt_crc_string_array(seed, array.data()), expected);
  }
}

TEST(Md5, Rfc1321Suite) {
  const char* const cases[][2] = {
      {"", "d41d8cd98f00b204e9800998ecf8427e"}, {"a", "0cc175b9c0f1b6a831c399e269772661"},
      {"abc", "900150983cd24fb0d6963f7d28e17f72"},
      {"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "d174ab98d277d9f5a5611c2c9f419d9f"},
      {"1234567890123456789012345678901234567890"
       "1234567890123456789012345678901234567890",
       "57edf4a22be3c955ac49da2e2107b67a"},
  };
  kt_md5ChecksumRec md5;
  for (const auto& c : cases) {
    md5.addn(Bytes(c[0]), std::strlen(c[0]));
    EXPECT_EQ(DigestHex(md5.getValueAndReset()), c[1]) << c[0];
  }
}

// Lengths around the 56- and 64-byte block boundaries, random lengths, and
// 3 MiB, added in one piece and in random pieces to one reused accumulator
// (so a reset must be complete).
TEST(Md5, OneShotAndPiecewiseMatchOpenSsl) {
  std::mt19937_64 rng(5);
  std::vector<size_t> lengths = {55, 56, 57, 63, 64, 65, 119, 120, 121, 127, 128, 129, 3 << 20};
  for (int i = 0; i < 200; ++i) lengths.push_back(rng() % 3000);
  kt_md5ChecksumRec md5;
  for (size_t n : lengths) {
    auto data = RandomBytes(rng, n);
    std::string expected = OpenSslMd5(data.data(), n);
    md5.addn(data.data(), n);
    ASSERT_EQ(DigestHex(md5.getValueAndReset()), expected) << "n=" << n;
    for (size_t pos = 0, piece; pos < n; pos += piece) {
      piece = std::min<size_t>(n - pos, rng() % 150);
      md5.addn(data.data() + pos, piece);
    }
    ASSERT_EQ(DigestHex(md5.getValueAndReset()), expected) << "n=" << n;
  }
}

TEST(Md5, ClearDiscardsAndNullDataIsIgnored) {
  kt_md5ChecksumRec md5;
  md5.addn(Bytes("some bytes to discard"), 21);
  md5.clear();
  md5.addn(nullptr, 10);
  md5.addn(Bytes("abc"), 3);
  EXPECT_EQ(DigestHex(md5.getValueAndReset()), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(DigestHex(md5.getValueAndReset()), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(DigestHex(md5.getValueAndReset()), "d41d8cd98f00b204e9800998ecf8427e");
}
