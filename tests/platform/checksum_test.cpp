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
  for (size_t i = 0; i < n; ++i) {
    s += digits[p[i] >> 4];
    s += digits[p[i] & 15];
  }
  return s;
}

std::string DigestHex(kt_md5_digest d) {
  unsigned char bytes[16];
  std::memcpy(bytes, &d, 16);
  return Hex(bytes, 16);
}

std::string OpenSslMd5(const unsigned char* p, size_t n) {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EVP_Digest(p, n, out, &len, EVP_md5(), nullptr);
  return Hex(out, len);
}

std::string Md5Of(const std::string& s) {
  kt_md5ChecksumRec md5;
  md5.addn(reinterpret_cast<const unsigned char*>(s.data()), s.size());
  return DigestHex(md5.getValueAndReset());
}

const unsigned char* Bytes(const char* s) { return reinterpret_cast<const unsigned char*>(s); }

}  // namespace

TEST(Crc, KnownAnswers) {
  EXPECT_EQ(kt_crc_update(0, Bytes("123456789"), 9), 0xCBF43926u);
  EXPECT_EQ(kt_crc_update(0, Bytes("a"), 1), 0xE8B7BE43u);
  EXPECT_EQ(kt_crc_update(0, Bytes("The quick brown fox jumps over the lazy dog"), 43),
            0x414FA339u);
}

TEST(Crc, ZeroLengthReturnsInputUnchanged) {
  std::mt19937_64 rng(1);
  for (int i = 0; i < 100; ++i) {
    uint32_t x = static_cast<uint32_t>(rng());
    EXPECT_EQ(kt_crc_update(x, Bytes("ignored"), 0), x);
    EXPECT_EQ(kt_crc_update(x, nullptr, 0), x);
  }
}

TEST(Crc, MatchesZlibOnRandomBuffersAndChainedSplits) {
  std::mt19937_64 rng(2);
  for (int round = 0; round < 400; ++round) {
    size_t n = round < 300 ? static_cast<size_t>(round) : rng() % 20000;
    auto data = RandomBytes(rng, n);
    uint32_t expected = ZlibCrc(data.data(), n);
    ASSERT_EQ(kt_crc_update(0, data.data(), static_cast<int>(n)), expected) << "n=" << n;

    // Chaining over random split points equals the one-shot value.
    uint32_t crc = 0;
    size_t pos = 0;
    while (pos < n) {
      size_t piece = std::min<size_t>(n - pos, rng() % 200);
      crc = kt_crc_update(crc, data.data() + pos, static_cast<int>(piece));
      pos += piece;
    }
    ASSERT_EQ(crc, expected) << "n=" << n;
  }
}

TEST(Crc, MatchesZlibAtEveryAlignmentAndLargeInputs) {
  std::mt19937_64 rng(3);
  auto data = RandomBytes(rng, (4 << 20) + 64);
  for (size_t offset = 0; offset < 16; ++offset)
    for (size_t n : {15, 16, 63, 64, 65, 127, 128, 129, 1000, 4096})
      ASSERT_EQ(kt_crc_update(0, data.data() + offset, static_cast<int>(n)),
                ZlibCrc(data.data() + offset, n))
          << offset << " " << n;
  EXPECT_EQ(kt_crc_update(0, data.data() + 3, 4 << 20), ZlibCrc(data.data() + 3, 4 << 20));
}

TEST(CrcStringArray, EmptyArrayYieldsZeroNotTheIncomingCrc) {
  const char* empty[] = {nullptr};
  EXPECT_EQ(kt_crc_string_array(5, empty), 0u);
  EXPECT_EQ(kt_crc_string_array(5, nullptr), 0u);
}

TEST(CrcStringArray, EqualsCrcOfTheConcatenation) {
  const char* digits[] = {"1234", "56789", nullptr};
  EXPECT_EQ(kt_crc_string_array(0, digits), 0xCBF43926u);

  std::mt19937_64 rng(4);
  for (int round = 0; round < 50; ++round) {
    std::vector<std::string> parts(1 + rng() % 8);
    std::string joined;
    for (auto& p : parts) {
      p.resize(rng() % 100);
      for (auto& c : p) c = static_cast<char>('a' + rng() % 26);
      joined += p;
    }
    std::vector<const char*> array;
    for (auto& p : parts) array.push_back(p.c_str());
    array.push_back(nullptr);
    uint32_t seed = static_cast<uint32_t>(rng());
    uint32_t expected = kt_crc_update(seed, Bytes(joined.c_str()), static_cast<int>(joined.size()));
    // An array holding only empty strings runs the loop over nothing: the
    // incoming crc comes back, as from kt_crc_update with length 0.
    EXPECT_EQ(kt_crc_string_array(seed, array.data()), expected);
  }
}

TEST(Md5, Rfc1321Suite) {
  EXPECT_EQ(Md5Of(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(Md5Of("a"), "0cc175b9c0f1b6a831c399e269772661");
  EXPECT_EQ(Md5Of("abc"), "900150983cd24fb0d6963f7d28e17f72");
  EXPECT_EQ(Md5Of("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
  EXPECT_EQ(Md5Of("abcdefghijklmnopqrstuvwxyz"), "c3fcd3d76192e4007dfb496cca67e13b");
  EXPECT_EQ(Md5Of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
            "d174ab98d277d9f5a5611c2c9f419d9f");
  EXPECT_EQ(Md5Of("1234567890123456789012345678901234567890"
                  "1234567890123456789012345678901234567890"),
            "57edf4a22be3c955ac49da2e2107b67a");
}

TEST(Md5, BlockBoundaryLengthsMatchOpenSsl) {
  std::mt19937_64 rng(5);
  for (size_t n : {55, 56, 57, 63, 64, 65, 119, 120, 121, 127, 128, 129, 1000, 3 << 20}) {
    auto data = RandomBytes(rng, n);
    kt_md5ChecksumRec md5;
    md5.addn(data.data(), n);
    EXPECT_EQ(DigestHex(md5.getValueAndReset()), OpenSslMd5(data.data(), n)) << "n=" << n;
  }
}

TEST(Md5, PiecewiseAddEqualsOneShot) {
  std::mt19937_64 rng(6);
  kt_md5ChecksumRec md5;  // reused across rounds: reset must be complete
  for (int round = 0; round < 200; ++round) {
    size_t n = rng() % 3000;
    auto data = RandomBytes(rng, n);
    size_t pos = 0;
    while (pos < n) {
      size_t piece = std::min<size_t>(n - pos, rng() % 150);
      md5.addn(data.data() + pos, piece);
      pos += piece;
    }
    ASSERT_EQ(DigestHex(md5.getValueAndReset()), OpenSslMd5(data.data(), n)) << "n=" << n;
  }
}

TEST(Md5, ResetAndClearReturnToTheInitialState) {
  kt_md5ChecksumRec md5;
  EXPECT_EQ(DigestHex(md5.getValueAndReset()), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(DigestHex(md5.getValueAndReset()), "d41d8cd98f00b204e9800998ecf8427e");

  md5.addn(Bytes("some bytes to discard"), 21);
  md5.clear();
  md5.addn(Bytes("abc"), 3);
  EXPECT_EQ(DigestHex(md5.getValueAndReset()), "900150983cd24fb0d6963f7d28e17f72");

  md5.addn(nullptr, 10);  // ignored
  EXPECT_EQ(DigestHex(md5.getValueAndReset()), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(Md5, DigestBytesAreInOutputOrderInMemory) {
  kt_md5ChecksumRec md5;
  md5.addn(Bytes("abc"), 3);
  kt_md5_digest d = md5.getValueAndReset();
  unsigned char bytes[16];
  std::memcpy(bytes, &d, 16);
  EXPECT_EQ(bytes[0], 0x90);
  EXPECT_EQ(bytes[15], 0x72);
}
