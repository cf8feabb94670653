// kt demo: a short guided run over built-in inputs, so that a newcomer
// sees the library at work without preparing anything.
#include <cstdio>
#include <cstring>

#include "commands.h"
#include "kt/checksum.h"

namespace kttool {
namespace {

const char* const kSamples[] = {
    "",
    "123456789",
    "The quick brown fox jumps over the lazy dog",
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
};

void ShowChecksums() {
  std::printf("Checksums of built-in texts (compare: printf %%s TEXT | md5sum)\n");
  std::printf("  %-8s  %-32s  %s\n", "crc32", "md5", "text");
  for (const char* text : kSamples) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(text);
    size_t length = std::strlen(text);
    uint32_t crc = kt_crc_update(0, bytes, static_cast<int>(length));
    kt_md5ChecksumRec md5;
    md5.addn(bytes, length);
    kt_md5_digest digest = md5.getValueAndReset();
    unsigned char d[16];
    std::memcpy(d, &digest, sizeof d);
    std::printf("  %08x  ", crc);
    for (unsigned char b : d)
      std::printf("%02x", b);
    std::printf("  \"%s\"\n", text);
  }

  // A CRC continues across pieces: "1234" then "56789" gives the CRC of all nine.
  uint32_t crc = kt_crc_update(0, reinterpret_cast<const unsigned char*>("1234"), 4);
  crc = kt_crc_update(crc, reinterpret_cast<const unsigned char*>("56789"), 5);
  const char* pieces[] = {"1234", "56789", nullptr};
  std::printf("  chained \"1234\"+\"56789\": %08x; as a string array: %08x\n", crc,
              kt_crc_string_array(0, pieces));
}

}  // namespace

int RunDemo(int /*argc*/, char** /*argv*/) {
  std::printf("kt %s -- a tour of libkt on built-in inputs\n\n", KT_VERSION_STRING);
  ShowChecksums();
  std::printf("\nRun 'kt --help' for the commands.\n");
  return 0;
}

}  // namespace kttool
