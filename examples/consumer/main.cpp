// A program that uses an installed libkt: prints the CRC-32 and MD5 of its
// arguments, checking them against the known values for "123456789".
#include <cstdio>
#include <cstring>

#include <kt/checksum.h>

int main(int argc, char** argv) {
  const char* text = argc > 1 ? argv[1] : "123456789";
  const auto* bytes = reinterpret_cast<const unsigned char*>(text);
  size_t length = std::strlen(text);

  uint32_t crc = kt_crc_update(0, bytes, static_cast<int>(length));
  kt_md5ChecksumRec md5;
  md5.addn(bytes, length);
  kt_md5_digest digest = md5.getValueAndReset();
  unsigned char d[16];
  std::memcpy(d, &digest, sizeof d);

  std::printf("crc32 %08x md5 ", crc);
  for (unsigned char b : d)
    std::printf("%02x", b);
  std::printf("  %s\n", text);

  // The standard check values: a wrong link or header would show here.
  if (argc <= 1 && (crc != 0xCBF43926u || d[0] != 0x25 || d[15] != 0x0b)) {
    std::fprintf(stderr, "unexpected checksum\n");
    return 1;
  }
  return 0;
}
