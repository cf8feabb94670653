// Message tables: registration with validation, languages, lookup, and
// the printm family that formats a numbered message into a putsn function.
#include "kt/messages.h"

#include <strings.h>

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// ---- the message context's own table: module 0 ---------------------------

const int kModule0Codes[] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, -1};
const char* const kModule0Mnemonics[] = {
    "NO_MEMORY_FOR_MESSAGE_CONTEXT", "MSG_MODULE_COUNT_MISMATCH", "TOO_FEW_STRINGS",
    "TOO_MANY_STRINGS", "WRONG_CODE", "STRANDED_PER_CENT", "NON_TRIVIAL_PER_CENT",
    "NON_TRIVIAL_S", "HOLE_NOT_PRESENT", "DUPLICATE_REFERENCE", "ILLEGAL_PER_CENT",
    "OMITTED_HOLE", "BAD_MSG_CODE", "MSG_MODULE_TABLE_MISMATCH", "INVALID_PERCENT_U"};
const char* const kModule0Texts[] = {
    "Internal Error: Insufficient memory for message_context.",
    "Internal Error: A primary message table for module %d was already registered with a "
    "differing number of messages.",
    "Internal Error: Module %d has only %d string(s) in the table, fewer than the number of "
    "codes.",
    "Internal Error: Module %d has only %d codes, but the table has more strings than this.",
    "Internal Error: Module %d has a wrong code at entry %d.",
    "Internal Error: The string for module %d, entry %d, has a %% that is not in a valid "
    "specification.",
    "Internal Error: The string for module %d, entry %d, has a %%%% with a non-trivial "
    "specifier.",
    "Internal Error: The string for module %d, entry %d, has a %%s with a non-trivial "
    "specifier.",
    "Internal Error: The string for module %d, entry %d, has a hole not in the English "
    "counterpart.",
    "Internal Error: The string for module %d, entry %d, has a duplicate reference to a hole.",
    "Internal Error: The string for module %d, entry %d, has %% not followed by a digit or "
    "another %%.",
    "Internal Error: The string for module %d, entry %d, ignores a hole in the English "
    "counterpart.",
    "Internal Error: Attempt to format a message for an unregistered module %d entry %d.",
    "Internal Error: A primary message table for module %d was already registered with a "
    "differing collection of error messages.",
    "Internal Error: The string for module %d, entry %d, has a %%<LEX_FILE_LINE_COLUMN> with a "
    "non-trivial specifier."};
const kt_message_table kModule0Table = {15, 0, kModule0Codes, kModule0Mnemonics, kModule0Texts,
                                        "message_context"};

constexpr int kFirstModuleCapacity = 8;
constexpr int kFirstLanguageCapacity = 4;
constexpr int kHoleTextSize = 64;  // a formatted hole is cut at 63 characters
constexpr int kMaxModule = 0x7FFF;  // module << 16 must stay a positive int
constexpr const char* kConversionLetters = "diuoxXfeEgGcspn%U";

int CodeOf(int module, int entry) { return (module << 16) | entry; }

// The result for a failure that concerns a whole module rather than one
// entry: entry 0, except for module 0 whose entry-0 code would read as
// success.
int ModuleResult(int module) { return CodeOf(module, module == 0 ? 1 : 0); }

// ---- scanning format texts ------------------------------------------------

// For the "%" at text[at], the index of its conversion letter, or -1 when
// the text ends first.
long ConversionEnd(const char* text, long at) {
  for (long i = at + 1; text[i] != '\0'; ++i) {
    if (std::strchr(kConversionLetters, text[i]) != nullptr) return i;
  }
  return -1;
}

struct TextScan {
  int status;  // 0 when the text is well formed
  int holes;
  int longestSpec;
};

// Checks one English text: every "%" starts a conversion; "%%", "%s" and
// "%U" take nothing between. Counts the holes and their longest
// specification.
TextScan ScanEnglishText(const char* text) {
  TextScan scan = {0, 0, 0};
  for (long i = 0; text[i] != '\0'; ++i) {
    if (text[i] != '%') continue;
    long end = ConversionEnd(text, i);
    if (end < 0) return {KT_STRANDED_PER_CENT, 0, 0};
    bool trivial = end == i + 1;
    char letter = text[end];
    if (letter == '%' && !trivial) return {KT_NON_TRIVIAL_PER_CENT, 0, 0};
    if (letter == 'U' && !trivial) return {KT_INVALID_PERCENT_U, 0, 0};
    if (letter == 's' && !trivial) return {KT_NON_TRIVIAL_S, 0, 0};
    if (letter != '%') {
      ++scan.holes;
      int length = static_cast<int>(end - i + 1);
      if (length > scan.longestSpec) scan.longestSpec = length;
    }
    i = end;
  }
  return scan;
}

int CountHoles(const char* text) { return ScanEnglishText(text).holes; }

// Checks a translation against its English text's hole count: each "%" is
// followed by "%" or a hole number between 1 and `holes`, each used once,
// all used. Returns 0 or the status.
int CheckTranslation(const char* text, int holes) {
  std::vector<bool> used(static_cast<size_t>(holes), false);
  for (long i = 0; text[i] != '\0'; ++i) {
    if (text[i] != '%') continue;
    if (text[i + 1] == '%') {
      ++i;
      continue;
    }
    if (text[i + 1] < '0' || text[i + 1] > '9') return KT_ILLEGAL_PER_CENT;
    long number = 0;
    for (++i; text[i] >= '0' && text[i] <= '9'; ++i) {
      if (number < 100000) number = number * 10 + (text[i] - '0');
    }
    --i;
    if (number < 1 || number > holes) return KT_HOLE_NOT_PRESENT;
    if (used[static_cast<size_t>(number - 1)]) return KT_DUPLICATE_REFERENCE;
    used[static_cast<size_t>(number - 1)] = true;
  }
  for (bool u : used) {
    if (!u) return KT_OMITTED_HOLE;
  }
  return 0;
}

// Checks the codes of a table of `count` messages for `module`: entry i
// holds (module << 16) + i, then a negative terminator. Returns the
// failing code (status set) or 0.
int CheckCodes(int* status, int module, const int* codes, int count) {
  if (codes == nullptr) {
    *status = KT_WRONG_CODE;
    return CodeOf(module, 1);
  }
  for (int i = 1; i <= count; ++i) {
    int code = codes[i - 1];
    if (code < 0) {
      *status = KT_TOO_FEW_STRINGS;
      return CodeOf(module, i);
    }
    if (code != CodeOf(module, i)) {
      *status = KT_WRONG_CODE;
      return CodeOf(module, i);
    }
  }
  if (codes[count] >= 0) {
    *status = KT_TOO_MANY_STRINGS;
    return CodeOf(module, count + 1);
  }
  return 0;
}

// ---- context storage -------------------------------------------------------

// Grows every per-module array so that `module` is a valid index, doubling.
// Returns false when memory ran out (the context stays consistent).
bool ReachModule(kt_message_context* c, int module, kt_reallocate_function reallocate) {
  if (module < c->moduleCapacity) return true;
  int capacity = c->moduleCapacity > 0 ? c->moduleCapacity : kFirstModuleCapacity;
  while (capacity <= module) capacity *= 2;
  size_t n = static_cast<size_t>(capacity);
  auto* modules =
      static_cast<kt_message_module*>(reallocate(c->modules, n * sizeof(kt_message_module)));
  if (modules == nullptr) return false;
  std::memset(modules + c->moduleCapacity, 0,
              (n - static_cast<size_t>(c->moduleCapacity)) * sizeof(kt_message_module));
  c->modules = modules;
  for (int lang = 0; lang < c->languageCount; ++lang) {
    auto* texts = static_cast<const char* const**>(
        reallocate(c->languageTexts[lang], n * sizeof(const char* const*)));
    if (texts == nullptr) return false;
    // Slots past the old capacity may already exist from an earlier
    // attempt that failed half way; clearing them again is harmless.
    std::memset(texts + c->moduleCapacity, 0,
                (n - static_cast<size_t>(c->moduleCapacity)) * sizeof(const char* const*));
    c->languageTexts[lang] = texts;
  }
  c->moduleCapacity = capacity;
  return true;
}

// Appends a language (its name copied). Returns its index or -1.
int AppendLanguage(kt_message_context* c, const char* name, kt_reallocate_function reallocate) {
  if (c->languageCount == c->languageCapacity) {
    int capacity = c->languageCapacity > 0 ? 2 * c->languageCapacity : kFirstLanguageCapacity;
    size_t n = static_cast<size_t>(capacity);
    auto* names = static_cast<char**>(reallocate(c->languageNames, n * sizeof(char*)));
    if (names == nullptr) return -1;
    c->languageNames = names;
    auto* texts = static_cast<const char* const***>(
        reallocate(c->languageTexts, n * sizeof(const char* const**)));
    if (texts == nullptr) return -1;
    c->languageTexts = texts;
    c->languageCapacity = capacity;
  }
  size_t length = std::strlen(name);
  auto* copy = static_cast<char*>(reallocate(nullptr, length + 1));
  if (copy == nullptr) return -1;
  std::memcpy(copy, name, length + 1);
  size_t slots = static_cast<size_t>(c->moduleCapacity > 0 ? c->moduleCapacity : 1);
  auto* texts = static_cast<const char* const**>(reallocate(nullptr, slots * sizeof(void*)));
  if (texts == nullptr) {
    reallocate(copy, 0);
    return -1;
  }
  std::memset(texts, 0, slots * sizeof(void*));
  c->languageNames[c->languageCount] = copy;
  c->languageTexts[c->languageCount] = texts;
  return c->languageCount++;
}

int FindLanguage(const kt_message_context* c, const char* name) {
  for (int i = 0; i < c->languageCount; ++i) {
    if (strcasecmp(c->languageNames[i], name) == 0) return i;
  }
  return -1;
}

// ---- lookup -----------------------------------------------------------------

struct Located {
  int module;
  int entry;
};

bool Locate(const kt_message_context* c, int code, Located* where) {
  unsigned u = static_cast<unsigned>(code);
  int module = static_cast<int>(u >> 16);
  int entry = static_cast<int>(u & 0xFFFF);
  if (c == nullptr || module > c->highestModule || module >= c->moduleCapacity) return false;
  if (entry == 0 || entry > c->modules[module].count) return false;
  if (c->languageCount == 0 || c->languageTexts[0][module] == nullptr) return false;
  *where = {module, entry};
  return true;
}

const char* EnglishText(const kt_message_context* c, Located at) {
  return c->languageTexts[0][at.module][at.entry - 1];
}

// The current language's text, or null when it has none for the module.
const char* TranslatedText(const kt_message_context* c, Located at) {
  int lang = c->currentLanguage;
  if (lang <= 0 || lang >= c->languageCount) return nullptr;
  const char* const* texts = c->languageTexts[lang][at.module];
  return texts ? texts[at.entry - 1] : nullptr;
}

// ---- formatting -------------------------------------------------------------

enum HoleKind { kFormatted = 0, kString = 1, kCallback = 2 };

struct Hole {
  int kind;
  const char* text;                      // kFormatted, kString
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
    int r = putsn(data, text, static_cast<int>(length));
    return Account(r);
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

// snprintf of one value with the '*' widths that precede it in `spec`.
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

// Formats the argument of one numeric or character conversion `spec`
// (such as "%-8.3lf") into `slot`, consuming it (and any '*' widths) from
// `args`.
void FormatHole(char* slot, const char* spec, char letter, va_list* args) {
  if (spec[2] == '\0' && (letter == 'd' || letter == 'i' || letter == 'u')) {
    // The plain forms are by far the most common holes: convert directly.
    long long v = letter == 'u' ? static_cast<long long>(va_arg(*args, unsigned))
                                : static_cast<long long>(va_arg(*args, int));
    PlainDecimal(slot, v);
    return;
  }
  int stars[2] = {0, 0};
  int starCount = 0;
  for (const char* p = spec; *p; ++p) {
    if (*p == '*' && starCount < 2) stars[starCount++] = va_arg(*args, int);
  }
  bool longDouble = std::strchr(spec, 'L') != nullptr;
  bool isLongLong = std::strstr(spec, "ll") != nullptr || std::strchr(spec, 'q') != nullptr ||
                    std::strchr(spec, 'j') != nullptr;
  bool isLong = !isLongLong && (std::strchr(spec, 'l') != nullptr ||
                                std::strchr(spec, 'z') != nullptr ||
                                std::strchr(spec, 't') != nullptr);
  bool floating = std::strchr("feEgG", letter) != nullptr;
  bool isUnsigned = std::strchr("uoxX", letter) != nullptr;
  slot[0] = '\0';
  if (letter == 'n') {
    // A count conversion writes nothing into a message; its pointer is
    // consumed and left untouched.
    (void)va_arg(*args, void*);
  } else if (floating && longDouble) {
    long double v = va_arg(*args, long double);
    PrintValue(slot, spec, stars, starCount, v);
  } else if (floating) {
    double v = va_arg(*args, double);
    PrintValue(slot, spec, stars, starCount, v);
  } else if (letter == 'p') {
    void* v = va_arg(*args, void*);
    PrintValue(slot, spec, stars, starCount, v);
  } else if (isLongLong) {
    long long v = va_arg(*args, long long);
    PrintValue(slot, spec, stars, starCount, v);
  } else if (isLong) {
    long v = va_arg(*args, long);
    PrintValue(slot, spec, stars, starCount, v);
  } else if (isUnsigned) {
    unsigned v = va_arg(*args, unsigned);
    PrintValue(slot, spec, stars, starCount, v);
  } else {
    int v = va_arg(*args, int);
    PrintValue(slot, spec, stars, starCount, v);
  }
}

// Step 1 of printing: walks the English conversions in order and records
// each hole, consuming the arguments.
void CollectHoles(const char* english, va_list* args, Hole* holes, char* holeText) {
  char shortSpec[32];
  std::string longSpec;
  int h = 0;
  for (long i = 0; english[i] != '\0'; ++i) {
    if (english[i] != '%') continue;
    long end = ConversionEnd(english, i);
    char letter = english[end];
    if (letter == 's') {
      const char* s = va_arg(*args, const char*);
      holes[h++] = {kString, s ? s : "(null)", nullptr};
    } else if (letter == 'U') {
      holes[h++] = {kCallback, nullptr, va_arg(*args, const kt_percent_u_argument*)};
    } else if (letter != '%') {
      char* slot = holeText + static_cast<size_t>(h) * kHoleTextSize;
      size_t length = static_cast<size_t>(end - i + 1);
      const char* spec = shortSpec;
      if (length < sizeof shortSpec) {
        std::memcpy(shortSpec, english + i, length);
        shortSpec[length] = '\0';
      } else {
        longSpec.assign(english + i, length);
        spec = longSpec.c_str();
      }
      FormatHole(slot, spec, letter, args);
      holes[h++] = {kFormatted, slot, nullptr};
    }
    i = end;
  }
}

bool PrintHole(Emitter* out, const Hole& hole) {
  if (hole.kind != kCallback) return out->Write(hole.text, std::strlen(hole.text));
  if (hole.percentU == nullptr || hole.percentU->print == nullptr) return true;
  return out->Account(hole.percentU->print(hole.percentU->argument, out->putsn, out->data));
}

// Step 2, English: the text with each conversion replaced by the next hole.
void PrintEnglish(Emitter* out, const char* text, const Hole* holes) {
  int h = 0;
  long start = 0;
  for (long i = 0; text[i] != '\0'; ++i) {
    if (text[i] != '%') continue;
    if (!out->Write(text + start, static_cast<size_t>(i - start))) return;
    long end = ConversionEnd(text, i);
    bool ok = text[end] == '%' ? out->Write("%", 1) : PrintHole(out, holes[h++]);
    if (!ok) return;
    i = end;
    start = end + 1;
  }
  out->Write(text + start, std::strlen(text + start));
}

// Step 2, translation: "%n" prints hole n, "%%" prints "%". A number
// beyond the English holes (possible only when the English table was
// replaced after the translation was checked) prints nothing.
void PrintTranslation(Emitter* out, const char* text, const Hole* holes, int holeCount) {
  long start = 0;
  for (long i = 0; text[i] != '\0'; ++i) {
    if (text[i] != '%') continue;
    if (!out->Write(text + start, static_cast<size_t>(i - start))) return;
    bool ok;
    if (text[i + 1] == '%') {
      ok = out->Write("%", 1);
      ++i;
    } else {
      long number = 0;
      for (++i; text[i] >= '0' && text[i] <= '9'; ++i) {
        if (number < 100000) number = number * 10 + (text[i] - '0');
      }
      --i;
      ok = number >= 1 && number <= holeCount ? PrintHole(out, holes[number - 1]) : true;
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
  size_t n = static_cast<size_t>(length) < sink->room ? static_cast<size_t>(length) : sink->room;
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

int ExplainArguments(int result, int status, int* module, int* entry) {
  unsigned u = static_cast<unsigned>(result);
  *module = static_cast<int>(u >> 16);
  *entry = static_cast<int>(u & 0xFFFF);
  if (*entry != 0 && (status == KT_TOO_FEW_STRINGS || status == KT_TOO_MANY_STRINGS)) {
    *entry -= 1;  // the number of strings or codes found
  }
  return status;
}

// Validation of a primary table before anything is stored: codes, then
// each English text. Returns 0 or the failing code (status set).
int ValidatePrimary(int* status, const kt_message_table* t, TextScan* total) {
  int failed = CheckCodes(status, t->module, t->codes, t->count);
  if (failed != 0) return failed;
  *total = {0, 0, 0};
  for (int i = 1; i <= t->count; ++i) {
    const char* text = t->texts ? t->texts[i - 1] : nullptr;
    if (text == nullptr) {
      *status = KT_TOO_FEW_STRINGS;
      return CodeOf(t->module, i);
    }
    TextScan scan = ScanEnglishText(text);
    if (scan.status != 0) {
      *status = scan.status;
      return CodeOf(t->module, i);
    }
    if (scan.holes > total->holes) total->holes = scan.holes;
    if (scan.longestSpec > total->longestSpec) total->longestSpec = scan.longestSpec;
  }
  return 0;
}

// Validation of one module of a language table against the context.
int ValidateLanguageModule(int* status, const kt_message_context* c, int lang, int module,
                           const kt_language_module* m) {
  int englishCount = module < c->moduleCapacity ? c->modules[module].count : 0;
  if (m->count != englishCount) {
    *status = KT_MSG_MODULE_COUNT_MISMATCH;
    return ModuleResult(module);
  }
  if (lang < c->languageCount && module < c->moduleCapacity) {
    const char* const* existing = c->languageTexts[lang][module];
    if (existing != nullptr && existing != m->texts) {
      *status = KT_MSG_MODULE_TABLE_MISMATCH;
      return ModuleResult(module);
    }
  }
  int failed = CheckCodes(status, module, m->codes, m->count);
  if (failed != 0) return failed;
  const char* const* english = module < c->moduleCapacity ? c->languageTexts[0][module] : nullptr;
  if (english == nullptr) return 0;
  for (int i = 1; i <= m->count; ++i) {
    const char* text = m->texts ? m->texts[i - 1] : nullptr;
    if (text == nullptr) {
      *status = KT_TOO_FEW_STRINGS;
      return CodeOf(module, i);
    }
    int s = CheckTranslation(text, CountHoles(english[i - 1]));
    if (s != 0) {
      *status = s;
      return CodeOf(module, i);
    }
  }
  return 0;
}

}  // namespace

extern "C" {

int kt_initialize_message_context(int* status, kt_message_context* context,
                                  kt_allocate_function allocate,
                                  kt_reallocate_function reallocate) {
  std::memset(context, 0, sizeof(*context));
  context->highestModule = -1;
  *status = 0;
  size_t n = kFirstModuleCapacity;
  context->modules = static_cast<kt_message_module*>(allocate(n * sizeof(kt_message_module)));
  if (context->modules == nullptr) {
    *status = KT_NO_MEMORY_FOR_MESSAGE_CONTEXT;
    return -1;
  }
  std::memset(context->modules, 0, n * sizeof(kt_message_module));
  context->moduleCapacity = kFirstModuleCapacity;
  if (AppendLanguage(context, "English", reallocate) != 0) {
    *status = KT_NO_MEMORY_FOR_MESSAGE_CONTEXT;
    return -1;
  }
  return kt_add_primary_message_table(status, context, &kModule0Table, reallocate);
}

void kt_clear_message_context(kt_message_context* context, kt_release_function release) {
  for (int i = 0; i < context->languageCount; ++i) {
    release(context->languageNames[i]);
    release(static_cast<void*>(context->languageTexts[i]));
  }
  release(context->languageNames);
  release(static_cast<void*>(context->languageTexts));
  release(context->modules);
  std::memset(context, 0, sizeof(*context));
  context->highestModule = -1;
}

int kt_add_primary_message_table(int* status, kt_message_context* context,
                                 const kt_message_table* table,
                                 kt_reallocate_function reallocate) {
  int module = table->module;
  *status = 0;
  if (module < 0 || module > kMaxModule || table->count < 0 || table->count > 0xFFFE) {
    *status = KT_WRONG_CODE;
    return CodeOf(module < 0 || module > kMaxModule ? kMaxModule : module, 0xFFFF);
  }
  if (!ReachModule(context, module, reallocate)) {
    *status = KT_NO_MEMORY_FOR_MESSAGE_CONTEXT;
    return -1;
  }
  kt_message_module* m = &context->modules[module];
  const char* const* english = context->languageTexts[0][module];
  if (english != nullptr) {
    if (m->count != table->count) {
      *status = KT_MSG_MODULE_COUNT_MISMATCH;
      return ModuleResult(module);
    }
    if (english != table->texts) {
      *status = KT_MSG_MODULE_TABLE_MISMATCH;
      return ModuleResult(module);
    }
    ++m->registrations;  // one table registered twice is allowed and counted
    return 0;
  }
  // Validated before anything is stored, so a malformed table is never
  // left half registered.
  TextScan total;
  int failed = ValidatePrimary(status, table, &total);
  if (failed != 0) return failed;
  m->count = table->count;
  m->mnemonics = table->mnemonics;
  m->component = table->component;
  m->holes = total.holes;
  m->longestSpec = total.longestSpec;
  ++m->registrations;
  context->languageTexts[0][module] = table->texts;
  if (module > context->highestModule) context->highestModule = module;
  if (total.holes > context->maxHoles) context->maxHoles = total.holes;
  if (total.longestSpec > context->maxSpec) context->maxSpec = total.longestSpec;
  return 0;
}

int kt_remove_primary_message_table(int* status, kt_message_context* context,
                                    const kt_message_table* table) {
  int module = table->module;
  *status = 0;
  if (module < 0 || module > context->highestModule || module >= context->moduleCapacity)
    return -1;
  kt_message_module* m = &context->modules[module];
  if (m->registrations < 1) return -1;
  if (--m->registrations > 0) return 0;
  std::memset(m, 0, sizeof(*m));
  context->languageTexts[0][module] = nullptr;
  return 0;
}

int kt_add_language(int* status, kt_message_context* context, const char* language,
                    const kt_language_table* table, kt_reallocate_function reallocate) {
  const char* name = language ? language : "";
  *status = 0;
  int lang = FindLanguage(context, name);
  if (lang < 0) lang = AppendLanguage(context, name, reallocate);
  if (lang < 0) {
    *status = KT_NO_MEMORY_FOR_MESSAGE_CONTEXT;
    return -1;
  }
  // The language is known from here on, even if its table is refused; the
  // modules are all checked before any is stored.
  for (int k = 0; table->modules[k] >= 0; ++k) {
    int module = table->modules[k];
    int failed = ValidateLanguageModule(status, context, lang, module, &table->tables[k]);
    if (failed != 0) return failed;
  }
  for (int k = 0; table->modules[k] >= 0; ++k) {
    int module = table->modules[k];
    if (module >= context->moduleCapacity) continue;  // a module of no messages
    context->languageTexts[lang][module] = table->tables[k].texts;
  }
  return 0;
}

int kt_change_language(kt_message_context* context, const char* language) {
  if (language == nullptr) {
    context->currentLanguage = 0;
    return 0;
  }
  // Whole name, then the first 5 characters (a locale name with an
  // encoding suffix), then the first 2 (the bare language), ignoring case.
  static const size_t kPrefixes[] = {0, 5, 2};
  for (size_t prefix : kPrefixes) {
    for (int i = 0; i < context->languageCount; ++i) {
      const char* name = context->languageNames[i];
      bool same = prefix == 0 ? strcasecmp(name, language) == 0
                              : strncasecmp(name, language, prefix) == 0;
      if (same) {
        context->currentLanguage = i;
        return 0;
      }
    }
  }
  return 1;
}

const char* kt_get_message(kt_message_context* context, int code) {
  Located at;
  if (!Locate(context, code, &at)) return nullptr;
  const char* translated = TranslatedText(context, at);
  return translated ? translated : EnglishText(context, at);
}

const char* kt_get_primary_message(kt_message_context* context, int code) {
  Located at;
  if (!Locate(context, code, &at)) return nullptr;
  return EnglishText(context, at);
}

const char* kt_get_message_mnemonic(kt_message_context* context, int code) {
  Located at;
  if (!Locate(context, code, &at)) return nullptr;
  const char* const* mnemonics = context->modules[at.module].mnemonics;
  return mnemonics ? mnemonics[at.entry - 1] : nullptr;
}

const char* kt_get_message_component(kt_message_context* context, int code) {
  Located at;
  if (!Locate(context, code, &at)) return nullptr;
  return context->modules[at.module].component;
}

int kt_vprintm(kt_message_context* context, kt_putsn_function putsn, void* data, int code,
               va_list args) {
  Located at;
  if (!Locate(context, code, &at)) return PrintBadCode(context, putsn, data, code);
  const char* english = EnglishText(context, at);
  int holeCount = context->modules[at.module].holes;  // most of any text of the module
  // Most messages have a handful of holes: keep them on the stack.
  constexpr int kStackHoles = 8;
  Hole stackHoles[kStackHoles];
  char stackText[kStackHoles * kHoleTextSize];
  std::vector<Hole> heapHoles;
  std::vector<char> heapText;
  Hole* holes = stackHoles;
  char* holeText = stackText;
  if (holeCount > kStackHoles) {
    heapHoles.resize(static_cast<size_t>(holeCount));
    heapText.resize(static_cast<size_t>(holeCount) * kHoleTextSize);
    holes = heapHoles.data();
    holeText = heapText.data();
  }
  va_list copy;
  va_copy(copy, args);
  CollectHoles(english, &copy, holes, holeText);
  va_end(copy);
  Emitter out = {putsn, data, 0, false, 0};
  const char* translated = TranslatedText(context, at);
  if (translated != nullptr) {
    PrintTranslation(&out, translated, holes, CountHoles(english));
  } else {
    PrintEnglish(&out, english, holes);
  }
  if (out.failed) return out.failure;
  return out.total > INT_MAX ? INT_MAX : static_cast<int>(out.total);
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

void kt_handle_message_context_error(kt_message_context* /*context*/,
                                     kt_message_error_function function, void* data, int result,
                                     int status) {
  if (result < 0) {
    function(data, KT_NO_MEMORY_FOR_MESSAGE_CONTEXT);
    return;
  }
  int module, entry;
  int code = ExplainArguments(result, status, &module, &entry);
  function(data, code, module, entry);
}

int kt_print_message_context_error(kt_message_context* context, kt_putsn_function putsn,
                                   void* data, int result, int status) {
  int code = KT_NO_MEMORY_FOR_MESSAGE_CONTEXT, module = 0, entry = 0;
  if (result >= 0)
    code = ExplainArguments(result, status, &module, &entry);
  int n;
  Located own;
  if (Locate(context, code, &own)) {
    n = kt_printm(context, putsn, data, code, module, entry);
  } else {
    // A context whose own initialisation failed has no module-0 table to
    // print from, yet that is exactly when an explanation is needed: use
    // the built-in English text.
    char text[256];
    const char* format = kModule0Texts[(code & 0xFFFF) - 1];
    n = std::snprintf(text, sizeof text, format, module, entry);
    n = n < 0 ? n : putsn(data, text, std::min(n, static_cast<int>(sizeof text) - 1));
  }
  if (n < 0) return n;
  int r = putsn(data, "\n", 1);
  return r < 0 ? r : n + r;
}

char* kt_make_message_identifier(char* buffer, kt_message_context* context, int code) {
  const char* mnemonic = kt_get_message_mnemonic(context, code);
  std::snprintf(buffer, 2048, "ZENTRA:%s", mnemonic ? mnemonic : "BAD_MSG_CODE");
  return buffer;
}

}  // extern "C"
