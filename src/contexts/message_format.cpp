// Message formatting: the grammar of message texts and the printm family,
// which formats a numbered message into a putsn function.
#include "contexts/message_format.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "contexts/message_registry.h"
#include "kt/messages.h"

namespace kt::internal {

namespace {

constexpr const char* kFlags = "-+ #0'";

// The letters that end a conversion, as a table: scanning is on the path
// of every message printed.
struct LetterSet {
  bool has[256];
};

constexpr LetterSet MakeLetterSet(const char* letters) {
  LetterSet set{};
  for (const char* p = letters; *p != '\0'; ++p) set.has[static_cast<unsigned char>(*p)] = true;
  return set;
}

constexpr LetterSet kConversionLetters = MakeLetterSet("diuoxXfeEgGcspn%U");

Conversion Malformed(long end, int status) {
  auto why = static_cast<unsigned char>(status);
  return {end, ConversionKind::kMalformed, ArgumentType::kInt, why, 0};
}

// Skips a width or precision: digits, or one '*' (counted in `stars`).
long SkipCount(const char* text, long i, long end, int* stars) {
  if (i < end && text[i] == '*') {
    ++*stars;
    return i + 1;
  }
  while (i < end && text[i] >= '0' && text[i] <= '9') ++i;
  return i;
}

// The argument that `letter` with `length` takes; false for a combination
// the C formatter would read as another type ("%lc", "%llf", "%Ld" ...).
bool ArgumentOf(std::string_view length, char letter, ArgumentType* type) {
  switch (letter) {
    case 'f': case 'e': case 'E': case 'g': case 'G':
      if (length == "L") *type = ArgumentType::kLongDouble;
      else if (length.empty() || length == "l") *type = ArgumentType::kDouble;
      else return false;
      return true;
    case 'c': case 'p':
      *type = letter == 'c' ? ArgumentType::kInt : ArgumentType::kPointer;
      return length.empty();
    default:
      break;
  }
  bool isUnsigned = letter == 'u' || letter == 'o' || letter == 'x' || letter == 'X';
  if (length.empty() || length == "h" || length == "hh") {
    *type = isUnsigned ? ArgumentType::kUnsigned : ArgumentType::kInt;
  } else if (length == "l" || length == "z" || length == "t") {
    *type = ArgumentType::kLong;
  } else if (length == "ll" || length == "q" || length == "j") {
    *type = ArgumentType::kLongLong;
  } else {
    return false;
  }
  if (letter == 'n') *type = ArgumentType::kCount;
  return true;
}

// A formatted conversion from text[at] to its letter at text[end]: flags,
// width, precision and length modifier, nothing else. Anything else
// ("%Sd", "%m...d", "%1$d") would make the C formatter read arguments of
// other types or positions than the ones consumed here.
Conversion ParseSpecification(const char* text, long at, long end) {
  Conversion c = {end, ConversionKind::kFormatted, ArgumentType::kInt, 0, 0};
  long i = at + 1;
  while (i < end && std::strchr(kFlags, text[i]) != nullptr) ++i;
  i = SkipCount(text, i, end, &c.stars);
  if (i < end && text[i] == '.') i = SkipCount(text, i + 1, end, &c.stars);
  std::string_view length(text + i, static_cast<size_t>(end - i));
  if (!ArgumentOf(length, text[end], &c.argument)) return Malformed(end, KT_STRANDED_PER_CENT);
  return c;
}

}  // namespace

Conversion ScanConversion(const char* text, long at) {
  long end = at + 1;
  while (text[end] != '\0' && !kConversionLetters.has[static_cast<unsigned char>(text[end])]) ++end;
  if (text[end] == '\0') return Malformed(end - 1, KT_STRANDED_PER_CENT);
  bool trivial = end == at + 1;
  switch (text[end]) {
    case '%':
      if (!trivial) return Malformed(end, KT_NON_TRIVIAL_PER_CENT);
      return {end, ConversionKind::kPercent, ArgumentType::kInt, 0, 0};
    case 's':
      if (!trivial) return Malformed(end, KT_NON_TRIVIAL_S);
      return {end, ConversionKind::kString, ArgumentType::kPointer, 0, 0};
    case 'U':
      if (!trivial) return Malformed(end, KT_INVALID_PERCENT_U);
      return {end, ConversionKind::kCallback, ArgumentType::kPointer, 0, 0};
    default:
      return ParseSpecification(text, at, end);
  }
}

bool IsHole(const Conversion& c) {
  return c.kind != ConversionKind::kPercent && c.kind != ConversionKind::kMalformed;
}

TextScan ScanEnglishText(const char* text) {
  TextScan scan = {0, 0, 0};
  ForEachConversion(text, [&](long at, const Conversion& c) {
    if (c.kind == ConversionKind::kMalformed) {
      scan = {c.status, 0, 0};
      return false;
    }
    if (IsHole(c)) {
      ++scan.holes;
      scan.longestSpec = std::max(scan.longestSpec, static_cast<int>(c.end - at + 1));
    }
    return true;
  });
  return scan;
}

int CountHoles(const char* text) {
  int holes = 0;
  if (text == nullptr) return 0;
  ForEachConversion(text, [&](long, const Conversion& c) {
    holes += IsHole(c) ? 1 : 0;
    return true;
  });
  return holes;
}

namespace {

// For the "%" at text[*i] of a translation: the hole number after it (0
// when no digit follows), leaving *i on its last digit.
long HoleNumber(const char* text, long* i) {
  long number = 0;
  long k = *i + 1;
  for (; text[k] >= '0' && text[k] <= '9'; ++k) {
    if (number < 100000) number = number * 10 + (text[k] - '0');
  }
  *i = k - 1;
  return number;
}

}  // namespace

int CheckTranslation(const char* text, int holes) {
  std::vector<bool> used(static_cast<size_t>(holes), false);
  for (long i = 0; text[i] != '\0'; ++i) {
    if (text[i] != '%') continue;
    if (text[i + 1] == '%') {
      ++i;
      continue;
    }
    if (text[i + 1] < '0' || text[i + 1] > '9') return KT_ILLEGAL_PER_CENT;
    long number = HoleNumber(text, &i);
    if (number < 1 || number > holes) return KT_HOLE_NOT_PRESENT;
    if (used[static_cast<size_t>(number - 1)]) return KT_DUPLICATE_REFERENCE;
    used[static_cast<size_t>(number - 1)] = true;
  }
  for (bool u : used) {
    if (!u) return KT_OMITTED_HOLE;
  }
  return 0;
}

// ---- printing ----------------------------------------------------------------

namespace {

constexpr int kHoleTextSize = 64;  // a formatted hole is cut at 63 characters

enum HoleKind { kFormatted = 0, kString = 1, kCallback = 2 };

struct Hole {
  int kind;
  const char* text;                       // kFormatted, kString
  const kt_percent_u_argument* percentU;  // kCallback
};

// Writes through putsn and keeps the running total; a negative result
// stops the message.
struct Emitter {
  kt_putsn_function putsn;
  void* data;
  long total;
  bool failed;
  int failure;

  bool Write(const char* text, size_t length) {
    if (length == 0) return true;
    if (length > static_cast<size_t>(INT_MAX))
      throw std::overflow_error("message text longer than 2147483647 bytes");
    return Account(putsn(data, text, static_cast<int>(length)));
  }
  bool Account(int r) {
    if (r < 0) {
      failed = true;
      failure = r;
      return false;
    }
    total += r;
    return true;
  }
};

// snprintf of one value with the '*' values that precede it in `spec`.
template <class T>
void PrintValue(char* slot, const char* spec, const int* stars, int starCount, T value) {
  if (starCount == 0) {
    std::snprintf(slot, kHoleTextSize, spec, value);
  } else if (starCount == 1) {
    std::snprintf(slot, kHoleTextSize, spec, stars[0], value);
  } else {
    std::snprintf(slot, kHoleTextSize, spec, stars[0], stars[1], value);
  }
}

// What "%d" (or "%u") prints for `v`, without going through snprintf.
void PlainDecimal(char* slot, long long v) {
  char digits[24];
  int n = 0;
  unsigned long long u = v < 0 ? 0ULL - static_cast<unsigned long long>(v)
                                : static_cast<unsigned long long>(v);
  do {
    digits[n++] = static_cast<char>('0' + u % 10);
    u /= 10;
  } while (u != 0);
  if (v < 0) *slot++ = '-';
  while (n > 0) *slot++ = digits[--n];
  *slot = '\0';
}

// Formats the argument of the well-formed `conversion` (such as "%-8.3lf")
// into `slot`, consuming it and its '*' values from `args`; `scratch` holds
// the conversion as a C string.
void FormatHole(char* slot, std::string_view conversion, const Conversion& c, va_list* args,
                std::string* scratch) {
  char letter = conversion.back();
  if (conversion.size() == 2 && (letter == 'd' || letter == 'i' || letter == 'u')) {
    // The plain forms are by far the most common holes: convert directly.
    long long v = letter == 'u' ? static_cast<long long>(va_arg(*args, unsigned))
                                : static_cast<long long>(va_arg(*args, int));
    PlainDecimal(slot, v);
    return;
  }
  const char* spec = scratch->assign(conversion).c_str();
  int stars[2] = {0, 0};
  for (int k = 0; k < c.stars; ++k) stars[k] = va_arg(*args, int);
  slot[0] = '\0';
  switch (c.argument) {
    case ArgumentType::kCount:
      // A count conversion writes nothing into a message; its pointer is
      // consumed and left untouched.
      (void)va_arg(*args, void*);
      return;
    case ArgumentType::kInt:
      return PrintValue(slot, spec, stars, c.stars, va_arg(*args, int));
    case ArgumentType::kUnsigned:
      return PrintValue(slot, spec, stars, c.stars, va_arg(*args, unsigned));
    case ArgumentType::kLong:
      return PrintValue(slot, spec, stars, c.stars, va_arg(*args, long));
    case ArgumentType::kLongLong:
      return PrintValue(slot, spec, stars, c.stars, va_arg(*args, long long));
    case ArgumentType::kDouble:
      return PrintValue(slot, spec, stars, c.stars, va_arg(*args, double));
    case ArgumentType::kLongDouble:
      return PrintValue(slot, spec, stars, c.stars, va_arg(*args, long double));
    case ArgumentType::kPointer:
      return PrintValue(slot, spec, stars, c.stars, va_arg(*args, void*));
  }
}

// Step 1 of printing: walks the English conversions in order and records
// each hole, consuming the arguments. Returns the number of holes.
int CollectHoles(const char* english, va_list* args, Hole* holes, char* holeText) {
  std::string spec;
  int h = 0;
  ForEachConversion(english, [&](long at, const Conversion& c) {
    if (c.kind == ConversionKind::kString) {
      const char* s = va_arg(*args, const char*);
      holes[h++] = {kString, s ? s : "(null)", nullptr};
    } else if (c.kind == ConversionKind::kCallback) {
      holes[h++] = {kCallback, nullptr, va_arg(*args, const kt_percent_u_argument*)};
    } else if (c.kind == ConversionKind::kFormatted) {
      char* slot = holeText + static_cast<size_t>(h) * kHoleTextSize;
      std::string_view conversion(english + at, static_cast<size_t>(c.end - at + 1));
      FormatHole(slot, conversion, c, args, &spec);
      holes[h++] = {kFormatted, slot, nullptr};
    }
    return true;
  });
  return h;
}

// At least the number of holes of `text`: every hole starts with a "%".
int HoleBound(const char* text) {
  int n = 0;
  for (const char* p = std::strchr(text, '%'); p != nullptr; p = std::strchr(p + 1, '%')) ++n;
  return n;
}

bool PrintHole(Emitter* out, const Hole& hole) {
  if (hole.kind != kCallback) return out->Write(hole.text, std::strlen(hole.text));
  if (hole.percentU == nullptr || hole.percentU->print == nullptr) return true;
  return out->Account(hole.percentU->print(hole.percentU->argument, out->putsn, out->data));
}

// Step 2, English: the text with each conversion replaced by the next hole.
// A malformed conversion (possible in a table that was refused yet stays
// registered) is printed as it stands.
void PrintEnglish(Emitter* out, const char* text, const Hole* holes) {
  int h = 0;
  long start = 0;
  ForEachConversion(text, [&](long at, const Conversion& c) {
    if (c.kind == ConversionKind::kMalformed) return true;
    if (!out->Write(text + start, static_cast<size_t>(at - start))) return false;
    start = c.end + 1;
    if (c.kind == ConversionKind::kPercent) return out->Write("%", 1);
    return PrintHole(out, holes[h++]);
  });
  if (!out->failed) out->Write(text + start, std::strlen(text + start));
}

// Step 2, translation: "%n" prints hole n, "%%" prints "%". A number
// beyond the English holes (possible only when the English table was
// replaced after the translation was checked) prints nothing.
void PrintTranslation(Emitter* out, const char* text, const Hole* holes, int holeCount) {
  long start = 0;
  for (long i = 0; text[i] != '\0'; ++i) {
    if (text[i] != '%') continue;
    if (!out->Write(text + start, static_cast<size_t>(i - start))) return;
    bool ok = true;
    if (text[i + 1] == '%') {
      ok = out->Write("%", 1);
      ++i;
    } else {
      long number = HoleNumber(text, &i);
      if (number >= 1 && number <= holeCount) ok = PrintHole(out, holes[number - 1]);
    }
    if (!ok) return;
    start = i + 1;
  }
  out->Write(text + start, std::strlen(text + start));
}

// The bounded buffer sink of kt_vsprintm: copies what fits; -1 when
// something was offered and nothing fitted.
struct BufferSink {
  char* cursor;
  size_t room;
};

int BufferPutsn(void* data, const char* text, int length) {
  auto* sink = static_cast<BufferSink*>(data);
  if (length <= 0) return 0;
  size_t n = std::min(static_cast<size_t>(length), sink->room);
  if (n == 0) return -1;
  std::memcpy(sink->cursor, text, n);
  sink->cursor += n;
  sink->room -= n;
  return static_cast<int>(n);
}

// Step 1 of kt_vprintm for an unknown code: explain it with message 13,
// unless the code is 13 itself (which must not recurse).
int PrintBadCode(kt_message_context* c, kt_putsn_function putsn, void* data, int code) {
  if (code == KT_BAD_MSG_CODE) return 0;
  unsigned u = static_cast<unsigned>(code);
  kt_printm(c, putsn, data, KT_BAD_MSG_CODE, static_cast<int>(u >> 16),
            static_cast<int>(u & 0xFFFF));
  putsn(data, "\n", 1);
  return 0;
}

// Formats a located message: collects the holes of its English text, then
// prints the translation or the English text.
int PrintLocated(const kt_message_context* context, MessageLocation at, Emitter* out,
                 va_list args) {
  const char* english = EnglishText(context, at);
  if (english == nullptr) english = "";  // a refused table may lack texts
  int bound = HoleBound(english);
  // Most messages have a handful of holes: keep them on the stack.
  constexpr int kStackHoles = 8;
  Hole stackHoles[kStackHoles];
  char stackText[kStackHoles * kHoleTextSize];
  std::vector<Hole> heapHoles;
  std::vector<char> heapText;
  Hole* holes = stackHoles;
  char* holeText = stackText;
  if (bound > kStackHoles) {
    heapHoles.resize(static_cast<size_t>(bound));
    heapText.resize(static_cast<size_t>(bound) * kHoleTextSize);
    holes = heapHoles.data();
    holeText = heapText.data();
  }
  va_list copy;
  va_copy(copy, args);
  int holeCount = CollectHoles(english, &copy, holes, holeText);
  va_end(copy);
  const char* translated = TranslatedText(context, at);
  if (translated != nullptr) {
    PrintTranslation(out, translated, holes, holeCount);
  } else {
    PrintEnglish(out, english, holes);
  }
  if (out->failed) return out->failure;
  return out->total > INT_MAX ? INT_MAX : static_cast<int>(out->total);
}

}  // namespace

}  // namespace kt::internal

using namespace kt::internal;

extern "C" {

int kt_vprintm(kt_message_context* context, kt_putsn_function putsn, void* data, int code,
               va_list args) {
  MessageLocation at;
  if (!LocateMessage(context, code, &at)) return PrintBadCode(context, putsn, data, code);
  Emitter out = {putsn, data, 0, false, 0};
  return PrintLocated(context, at, &out, args);
}

int kt_printm(kt_message_context* context, kt_putsn_function putsn, void* data, int code, ...) {
  va_list args;
  va_start(args, code);
  int n = kt_vprintm(context, putsn, data, code, args);
  va_end(args);
  return n;
}

int kt_vsprintm(kt_message_context* context, char* buffer, size_t capacity, int code,
                va_list args) {
  if (capacity == 0) return -1;
  BufferSink sink = {buffer, capacity};
  kt_vprintm(context, BufferPutsn, &sink, code, args);
  if (sink.room != 0) {
    *sink.cursor = '\0';
    return static_cast<int>(sink.cursor - buffer);
  }
  // Full: the terminator takes the last byte.
  sink.cursor[-1] = '\0';
  return static_cast<int>(capacity - 1);
}

int kt_sprintm(kt_message_context* context, char* buffer, size_t capacity, int code, ...) {
  va_list args;
  va_start(args, code);
  int n = kt_vsprintm(context, buffer, capacity, code, args);
  va_end(args);
  return n;
}

int kt_vfprintm(kt_message_context* context, FILE* stream, int code, va_list args) {
  return kt_vprintm(context, kt_fputsn, stream, code, args);
}

int kt_fprintm(kt_message_context* context, FILE* stream, int code, ...) {
  va_list args;
  va_start(args, code);
  int n = kt_vfprintm(context, stream, code, args);
  va_end(args);
  return n;
}

}  // extern "C"
