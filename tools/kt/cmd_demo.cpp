// kt demo: a short guided run over built-in inputs, so that a newcomer
// sees the library at work without preparing anything.
#include <cstdio>
#include <cstring>

#include <stdexcept>
#include <string>

#include "commands.h"
#include "kt/checksum.h"
#include "kt/contexts.h"

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

// ---- a host's start-up sequence ----------------------------------------------

// The host's exception, built by its throw hook from a raised error.
struct DemoError : std::runtime_error {
  DemoError(const char* id, int errorCode, const char* text)
      : std::runtime_error(text), identifier(id), code(errorCode) {}
  std::string identifier;
  int code;
};

int ThrowDemoError(void*, const char* identifier, int code, const char* text) {
  throw DemoError(identifier, code, text);
}

constexpr int kDemoModule = 100;
const int kDemoCodes[] = {(kDemoModule << 16) + 1, -1};
const char* const kDemoMnemonics[] = {"FILE_NOT_READABLE"};
const char* const kDemoTexts[] = {"Cannot read the file \"%s\"."};
const kt_message_table kDemoMessages = {1, kDemoModule, kDemoCodes, kDemoMnemonics, kDemoTexts,
                                        "demo"};

const char* StatusName(int status) {
  return status == KT_WARNING_OFF ? "off" : status == KT_WARNING_ON ? "on" : "error";
}

void ShowWarning(kt_warning_context* warnings, const char* id, const char* step) {
  std::printf("  %-34s %s is %s\n", step, id, StatusName(kt_get_warning_status_id(warnings, id)));
}

void ShowHostStartUp() {
  std::printf("A host's start-up with its own basic contexts\n");
  static ktBasicContexts record;
  if (ktInitializeBasicContexts(&record, ThrowDemoError, nullptr) != 0) {
    std::printf("  initialisation failed: %s\n", record.errorText);
    return;
  }
  ktBasicContexts* previous = ktInstallBasicContexts(&record);
  std::printf("  initialised and installed the record; the previous one is kept\n");

  kt_mem_add_primary_message_table(ktGetMemoryContext(), &kDemoMessages);
  std::printf("  registered message table of module %d\n", kDemoModule);
  try {
    kt_error(ktGetErrorContext(), kDemoCodes[0], "settings.ini");
  } catch (const DemoError& e) {
    std::printf("  raised 0x%X, the throw hook threw, caught %s:\n    %s\n", e.code,
                e.identifier.c_str(), e.what());
  }

  kt_warning_context* warnings = ktGetWarningContext();
  const char* id = "Demo:deprecatedOption";
  ShowWarning(warnings, id, "fresh manager:");
  kt_set_warning_status_id(warnings, id, KT_WARNING_OFF);
  ShowWarning(warnings, id, "switched off:");
  kt_set_warning_status_id(warnings, "all", KT_WARNING_ON);
  ShowWarning(warnings, id, "\"all\" on afterwards (later wins):");
  kt_set_warning_status_id(warnings, id, KT_WARNING_ERROR);
  ShowWarning(warnings, id, "switched to error:");

  ktInstallBasicContexts(previous);
  ktClearBasicContexts(&record);
  std::printf("  reinstalled the previous record and cleared our own\n");
}

}  // namespace

int RunDemo(int /*argc*/, char** /*argv*/) {
  std::printf("kt %s -- a tour of libkt on built-in inputs\n\n", KT_VERSION_STRING);
  ShowHostStartUp();
  std::printf("\n");
  ShowChecksums();
  std::printf("\nRun 'kt --help' for the commands.\n");
  return 0;
}

}  // namespace kttool
