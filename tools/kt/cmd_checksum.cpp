// kt crc32 / kt md5: checksums of files in the layout of coreutils' md5sum
// ("<digest>  <name>"), streamed in fixed-size pieces. Ctrl-C stops them
// with a message naming what was being read and exit status 130.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "commands.h"
#include "input.h"
#include "kt/checksum.h"

namespace kttool {
namespace {

constexpr size_t kChunk = 64 * 1024;

// Accumulates one file's checksum; Feed is called per piece, Finish
// returns the digest as lower-case hex.
class Summer {
public:
  virtual ~Summer() = default;
  virtual void Feed(const unsigned char* data, size_t length) = 0;
  virtual std::string Finish() = 0;
};

class Crc32Summer : public Summer {
public:
  void Feed(const unsigned char* data, size_t length) override {
    crc_ = kt_crc_update(crc_, data, static_cast<int>(length));
  }
  std::string Finish() override {
    char text[9];
    std::snprintf(text, sizeof text, "%08x", crc_);
    crc_ = 0;
    return text;
  }

private:
  uint32_t crc_ = 0;
};

class Md5Summer : public Summer {
public:
  void Feed(const unsigned char* data, size_t length) override { md5_.addn(data, length); }
  std::string Finish() override {
    kt_md5_digest digest = md5_.getValueAndReset();
    unsigned char bytes[16];
    std::memcpy(bytes, &digest, sizeof bytes);
    std::string hex;
    char pair[3];
    for (unsigned char b : bytes) {
      std::snprintf(pair, sizeof pair, "%02x", b);
      hex += pair;
    }
    return hex;
  }

private:
  kt_md5ChecksumRec md5_;
};

enum class ReadEnd { kEnd, kError, kInterrupted };

// Reads the whole input through the summer; errno tells a read error.
ReadEnd SumStream(int fd, Summer& summer) {
  static unsigned char buffer[kChunk];
  for (;;) {
    ssize_t got = ReadOrInterrupt(fd, buffer, sizeof buffer);
    if (got == 0) return ReadEnd::kEnd;
    if (got < 0) return InterruptRequested() ? ReadEnd::kInterrupted : ReadEnd::kError;
    summer.Feed(buffer, static_cast<size_t>(got));
  }
}

// Prints one result line. As md5sum does, a name holding a backslash or a
// newline is escaped and the line starts with a backslash.
void PrintLine(const std::string& digest, const char* name) {
  bool escape = std::strpbrk(name, "\\\n") != nullptr;
  std::string shown;
  for (const char* p = name; *p; ++p) {
    if (escape && *p == '\\')
      shown += "\\\\";
    else if (escape && *p == '\n')
      shown += "\\n";
    else
      shown += *p;
  }
  std::printf("%s%s  %s\n", escape ? "\\" : "", digest.c_str(), shown.c_str());
}

// Sums one named file ("-" is standard input); reports failures on stderr.
// Returns 0, 1 after a failure, or the Ctrl-C status.
int SumFile(const char* name, Summer& summer) {
  int fd = OpenInput(name);
  if (fd < 0)
    return 1;
  ReadEnd end = SumStream(fd, summer);
  int readError = errno;
  CloseInput(fd);
  if (end != ReadEnd::kEnd) {
    summer.Finish();  // discard the partial sum
    if (end == ReadEnd::kInterrupted) {
      Complain("interrupted while reading %s", InputName(name));
      return kInterruptedStatus;
    }
    Complain("%s: %s", name, std::strerror(readError ? readError : EIO));
    return 1;
  }
  PrintLine(summer.Finish(), name);
  return 0;
}

int RunSums(int argc, char** argv, Summer& summer) {
  if (argc >= 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0)) {
    std::printf("Usage: kt %s [FILE...]\nPrints the %s of each FILE; with no FILE, or when FILE "
                "is -, reads standard input.\n",
                argv[0], std::strcmp(argv[0], "md5") == 0 ? "MD5 digest" : "CRC-32");
    return 0;
  }
  CatchCtrlC();
  if (argc < 2)
    return SumFile("-", summer);
  int status = 0;
  for (int i = 1; i < argc; ++i) {
    int result = SumFile(argv[i], summer);
    if (result == kInterruptedStatus)
      return result;  // Ctrl-C stops the whole command
    if (result != 0)
      status = 1;
  }
  return status;
}

}  // namespace

int RunCrc32(int argc, char** argv) {
  Crc32Summer summer;
  return RunSums(argc, argv, summer);
}

int RunMd5(int argc, char** argv) {
  Md5Summer summer;
  return RunSums(argc, argv, summer);
}

}  // namespace kttool
