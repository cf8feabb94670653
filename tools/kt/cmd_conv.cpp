// kt conv / kt encodings: text conversion between encodings in the manner
// of iconv, streamed through ICU converters opened by the library, and the
// names the library knows an encoding by. Ctrl-C stops a conversion with
// a message naming the input and exit status 130.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include <unicode/ucnv.h>

#include "commands.h"
#include "input.h"
#include "kt/encodings.h"

namespace kttool {
namespace {

using Quivera::I18N::InvalidCharacterSetException;
using Quivera::I18N::UnicodeConverterX;

constexpr size_t kInputBytes = 64 * 1024;
constexpr int kUnits = 64 * 1024;        // UTF-16 units per step
constexpr int kOutputBytes = 256 * 1024;

struct ConverterCloser {
  void operator()(UnicodeConverterX* c) const { delete c; }
};
using Converter = std::unique_ptr<UnicodeConverterX, ConverterCloser>;

// One conversion FROM -> TO through UTF-16, carried across the pieces of a
// stream. Positions in messages are byte offsets into the current stream.
class Transcoder {
public:
  Transcoder(Converter from, Converter to, const char* toName, bool omit)
      : from_(std::move(from)), to_(std::move(to)), toName_(toName) {
    UErrorCode status = U_ZERO_ERROR;
    ucnv_setToUCallBack(Quivera::I18N::cast(from_.get()),
                        omit ? UCNV_TO_U_CALLBACK_SKIP : UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr,
                        nullptr, &status);
    ucnv_setFromUCallBack(Quivera::I18N::cast(to_.get()),
                          omit ? UCNV_FROM_U_CALLBACK_SKIP : UCNV_FROM_U_CALLBACK_STOP, nullptr,
                          nullptr, nullptr, &status);
  }

  // Starts a new stream called `name`.
  void Begin(const char* name) {
    from_->reset();
    to_->reset();
    name_ = name;
    streamed_ = 0;
  }

  // Converts the next `length` bytes; `last` flushes the converters (call
  // it once, with no bytes, at the end). False after reporting bad input.
  bool Feed(const char* data, size_t length, bool last);

private:
  bool Encode(int units, bool last);
  long long StartOfUnit(int unit) const;

  Converter from_;
  Converter to_;
  const char* toName_;
  const char* name_ = "-";
  long long streamed_ = 0;     // bytes of the stream before the current piece
  long long pieceStart_ = 0;   // stream offset of the current toUnicode call's source
  int pendingBefore_ = 0;      // bytes of a split character held before that call
  UChar units_[kUnits];
  int32_t offsets_[kUnits];
  char output_[kOutputBytes];
};

bool Transcoder::Feed(const char* data, size_t length, bool last) {
  UConverter* from = Quivera::I18N::cast(from_.get());
  const char* source = data;
  const char* end = data + length;
  UErrorCode status = U_ZERO_ERROR;
  if (last && ucnv_toUCountPending(from, &status) > 0) {
    Complain("%s: incomplete character or shift sequence at end of input (position %lld)", name_,
             streamed_ - ucnv_toUCountPending(from, &status));
    return false;
  }
  for (bool overflow = true; overflow;) {
    status = U_ZERO_ERROR;
    pieceStart_ = streamed_ + (source - data);
    pendingBefore_ = ucnv_toUCountPending(from, &status);
    UChar* target = units_;
    ucnv_toUnicode(from, &target, units_ + kUnits, &source, end, offsets_, last, &status);
    overflow = status == U_BUFFER_OVERFLOW_ERROR;
    bool invalid = U_FAILURE(status) && !overflow;
    if (!Encode(static_cast<int>(target - units_), last && !overflow && !invalid))
      return false;
    if (invalid) {
      char bad[32];
      int8_t badLength = sizeof bad;
      UErrorCode ignored = U_ZERO_ERROR;
      ucnv_getInvalidChars(from, bad, &badLength, &ignored);
      Complain("%s: illegal input sequence at position %lld", name_,
               streamed_ + (source - data) - badLength);
      return false;
    }
  }
  streamed_ += static_cast<long long>(length);
  return true;
}

// Where the character of UTF-16 unit `unit` of the current piece starts.
long long Transcoder::StartOfUnit(int unit) const {
  // The first character of a piece may have begun in the piece before.
  bool split = pendingBefore_ > 0 && (offsets_[unit] < 0 || offsets_[unit] == offsets_[0]);
  return split ? pieceStart_ - pendingBefore_ : pieceStart_ + offsets_[unit];
}

// Encodes the first `units` decoded units and writes them out.
bool Transcoder::Encode(int units, bool last) {
  UConverter* to = Quivera::I18N::cast(to_.get());
  const UChar* source = units_;
  const UChar* end = units_ + units;
  UErrorCode status;
  do {
    status = U_ZERO_ERROR;
    char* target = output_;
    ucnv_fromUnicode(to, &target, output_ + kOutputBytes, &source, end, nullptr, last, &status);
    std::fwrite(output_, 1, static_cast<size_t>(target - output_), stdout);
    if (U_FAILURE(status) && status != U_BUFFER_OVERFLOW_ERROR) {
      UChar bad[8];
      int8_t badLength = 8;
      UErrorCode ignored = U_ZERO_ERROR;
      ucnv_getInvalidUChars(to, bad, &badLength, &ignored);
      int unit = static_cast<int>(source - units_) - badLength;
      Complain("%s: cannot convert the character at position %lld to %s", name_,
               StartOfUnit(unit < 0 ? 0 : unit), toName_);
      return false;
    }
  } while (status == U_BUFFER_OVERFLOW_ERROR);
  return true;
}

enum class PumpEnd { kDone, kConversionError, kReadError, kInterrupted };

// The one loop over an input: read, convert, and flush at the end.
PumpEnd PumpStream(int fd, Transcoder& transcoder) {
  static char buffer[kInputBytes];
  for (;;) {
    ssize_t got = ReadOrInterrupt(fd, buffer, sizeof buffer);
    if (got < 0) return InterruptRequested() ? PumpEnd::kInterrupted : PumpEnd::kReadError;
    bool last = got == 0;
    if (!transcoder.Feed(buffer, static_cast<size_t>(got), last)) return PumpEnd::kConversionError;
    if (last) return PumpEnd::kDone;
  }
}

// Converts one named file ("-" is standard input); reports failures.
// Returns 0, 1 after a failure, or the Ctrl-C status.
int ConvertFile(const char* name, Transcoder& transcoder) {
  int fd = OpenInput(name);
  if (fd < 0)
    return 1;
  transcoder.Begin(name);
  PumpEnd end = PumpStream(fd, transcoder);
  int error = errno;
  CloseInput(fd);
  switch (end) {
    case PumpEnd::kDone: return 0;
    case PumpEnd::kConversionError: return 1;
    case PumpEnd::kReadError: Complain("%s: %s", name, std::strerror(error ? error : EIO)); return 1;
    case PumpEnd::kInterrupted: break;
  }
  std::fflush(stdout);
  Complain("interrupted while reading %s", InputName(name));
  return kInterruptedStatus;
}

Converter Open(const char* name) {
  try {
    return Converter(UnicodeConverterX::create(name));
  } catch (const InvalidCharacterSetException&) {
    Complain("conv: unknown encoding '%s'", name);
    return nullptr;
  }
}

struct ConvOptions {
  const char* from = nullptr;
  const char* to = nullptr;
  bool omitInvalid = false;
  std::vector<const char*> files;
};

// iconv's option letters: -f FROM, -t TO (also -fFROM, --from-code=FROM,
// --to-code=TO) and -c. False after a usage message.
bool ParseConvOptions(int argc, char** argv, ConvOptions* options) {
  for (int i = 1; i < argc; ++i) {
    const char* arg = argv[i];
    const char** slot = nullptr;
    const char* value = nullptr;
    if (std::strncmp(arg, "-f", 2) == 0 || std::strncmp(arg, "-t", 2) == 0) {
      slot = arg[1] == 'f' ? &options->from : &options->to;
      value = arg[2] ? arg + 2 : (i + 1 < argc ? argv[++i] : nullptr);
    } else if (std::strncmp(arg, "--from-code=", 12) == 0) {
      slot = &options->from;
      value = arg + 12;
    } else if (std::strncmp(arg, "--to-code=", 10) == 0) {
      slot = &options->to;
      value = arg + 10;
    } else if (std::strcmp(arg, "-c") == 0) {
      options->omitInvalid = true;
      continue;
    } else if (arg[0] == '-' && arg[1] != '\0') {
      Complain("conv: unknown option '%s' (try 'kt conv --help')", arg);
      return false;
    } else {
      options->files.push_back(arg);
      continue;
    }
    if (value == nullptr || *value == '\0') {
      Complain("conv: option '%s' needs an encoding name", arg);
      return false;
    }
    *slot = value;
  }
  return true;
}

bool WantsHelp(int argc, char** argv) {
  return argc >= 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0);
}

// The standard name of `name` in `standard`, or "-".
const char* InStandard(const char* name, const char* standard) {
  UErrorCode status = U_ZERO_ERROR;
  const char* found = ucnv_getStandardName(name, standard, &status);
  return found && U_SUCCESS(status) ? found : "-";
}

bool DescribeEncoding(const char* name) {
  Converter converter;
  try {
    converter.reset(UnicodeConverterX::create(name));
  } catch (const InvalidCharacterSetException&) {
    Complain("encodings: unknown encoding '%s'", name);
    return false;
  }
  UErrorCode status = U_ZERO_ERROR;
  const char* canonical = ucnv_getName(Quivera::I18N::cast(converter.get()), &status);
  std::printf("%s: canonical %s; standard %s; MIME %s; IANA %s; WINDOWS %s\n", name, canonical,
              UnicodeConverterX::getStdEncodingName(name), InStandard(canonical, "MIME"),
              InStandard(canonical, "IANA"), InStandard(canonical, "WINDOWS"));
  return true;
}

}  // namespace

int RunConv(int argc, char** argv) {
  if (WantsHelp(argc, argv)) {
    std::printf("Usage: kt conv [-f FROM] [-t TO] [-c] [FILE...]\n"
                "Converts each FILE (or standard input) from encoding FROM to TO, as iconv does;\n"
                "either defaults to the default encoding (%s). Invalid or unconvertible input\n"
                "stops the file with its byte position on standard error; -c drops it instead.\n",
                UnicodeConverterX::getThreadSpecific_defaultEncoding());
    return 0;
  }
  ConvOptions options;
  if (!ParseConvOptions(argc, argv, &options))
    return 2;
  const char* fallback = UnicodeConverterX::getThreadSpecific_defaultEncoding();
  const char* toName = options.to ? options.to : fallback;
  Converter from = Open(options.from ? options.from : fallback);
  Converter to = from ? Open(toName) : nullptr;
  if (!from || !to)
    return 1;
  auto transcoder =
      std::make_unique<Transcoder>(std::move(from), std::move(to), toName, options.omitInvalid);
  if (options.files.empty())
    options.files.push_back("-");
  CatchCtrlC();
  int status = 0;
  for (const char* file : options.files) {
    int result = ConvertFile(file, *transcoder);
    if (result == kInterruptedStatus)
      return result;  // Ctrl-C stops the whole command
    if (result != 0)
      status = 1;
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    Complain("conv: write error: %s", std::strerror(errno));
    status = 1;
  }
  return status;
}

int RunEncodings(int argc, char** argv) {
  if (WantsHelp(argc, argv)) {
    std::printf("Usage: kt encodings [NAME...]\n"
                "Prints the canonical and standard names of each encoding NAME; with no NAME,\n"
                "lists the canonical names of all available encodings.\n");
    return 0;
  }
  if (argc < 2) {
    for (int32_t i = 0, n = ucnv_countAvailable(); i < n; ++i)
      std::printf("%s\n", ucnv_getAvailableName(i));
    return 0;
  }
  int status = 0;
  for (int i = 1; i < argc; ++i)
    if (!DescribeEncoding(argv[i]))
      status = 1;
  return status;
}

}  // namespace kttool
