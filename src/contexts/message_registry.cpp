// The registry of message tables: the message context record, primary
// tables and their checks, languages and their selection, lookup, and the
// explanation of a failed registration.
#include "contexts/message_registry.h"

#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "contexts/message_format.h"

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
constexpr int kMaxModule = 0x7FFF;  // module << 16 must stay a positive int

int CodeOf(int module, int entry) {
  return static_cast<int>(static_cast<unsigned>(module) << 16 | static_cast<unsigned>(entry));
}

// The result for a failure that concerns a whole module rather than one
// entry: entry 0, except for module 0 whose entry-0 code would read as
// success.
int ModuleResult(int module) { return CodeOf(module, module == 0 ? 1 : 0); }

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

// Checks `count` texts: none null, each well formed by `check` (which
// returns 0 or the status). Returns the failing code (status set) or 0.
template <class Check>
int CheckTexts(int* status, int module, const char* const* texts, int count, Check check) {
  for (int i = 1; i <= count; ++i) {
    const char* text = texts ? texts[i - 1] : nullptr;
    int s = text == nullptr ? KT_TOO_FEW_STRINGS : check(i, text);
    if (s != 0) {
      *status = s;
      return CodeOf(module, i);
    }
  }
  return 0;
}

// ---- context storage -------------------------------------------------------

// Grows the per-module arrays of language `lang` from `from` to `to` slots
// (from null when `from` is 0), clearing the new slots.
bool GrowLanguageSlots(kt_message_context* c, int lang, int from, int to,
                       kt_reallocate_function reallocate) {
  size_t n = static_cast<size_t>(to);
  auto* texts = static_cast<const char* const**>(
      reallocate(c->languageTexts[lang], n * sizeof(const char* const*)));
  if (texts == nullptr) return false;
  c->languageTexts[lang] = texts;
  auto* counts = static_cast<int*>(reallocate(c->languageCounts[lang], n * sizeof(int)));
  if (counts == nullptr) return false;
  c->languageCounts[lang] = counts;
  std::fill(texts + from, texts + to, nullptr);
  std::fill(counts + from, counts + to, 0);
  return true;
}

// Grows every per-module array so that `module` is a valid index, doubling.
// Returns false when memory ran out; the context stays consistent, as
// slots past the old capacity are cleared again by the next attempt.
bool ReachModule(kt_message_context* c, int module, kt_reallocate_function reallocate) {
  if (module < c->moduleCapacity) return true;
  int capacity = c->moduleCapacity > 0 ? c->moduleCapacity : kFirstModuleCapacity;
  while (capacity <= module) capacity *= 2;
  size_t n = static_cast<size_t>(capacity);
  auto* modules =
      static_cast<kt_message_module*>(reallocate(c->modules, n * sizeof(kt_message_module)));
  if (modules == nullptr) return false;
  std::fill(modules + c->moduleCapacity, modules + capacity, kt_message_module{});
  c->modules = modules;
  for (int lang = 0; lang < c->languageCount; ++lang) {
    if (!GrowLanguageSlots(c, lang, c->moduleCapacity, capacity, reallocate)) return false;
  }
  c->moduleCapacity = capacity;
  return true;
}

// Makes room for one more language in the per-language arrays.
bool ReachLanguage(kt_message_context* c, kt_reallocate_function reallocate) {
  if (c->languageCount < c->languageCapacity) return true;
  int capacity = c->languageCapacity > 0 ? 2 * c->languageCapacity : kFirstLanguageCapacity;
  size_t n = static_cast<size_t>(capacity);
  auto* names = static_cast<char**>(reallocate(c->languageNames, n * sizeof(char*)));
  if (names == nullptr) return false;
  c->languageNames = names;
  auto* texts = static_cast<const char* const***>(
      reallocate(c->languageTexts, n * sizeof(const char* const**)));
  if (texts == nullptr) return false;
  c->languageTexts = texts;
  auto* counts = static_cast<int**>(reallocate(c->languageCounts, n * sizeof(int*)));
  if (counts == nullptr) return false;
  c->languageCounts = counts;
  c->languageCapacity = capacity;
  return true;
}

// Frees through the reallocate function (a caller's may not accept null).
void Release(kt_reallocate_function reallocate, void* pointer) {
  if (pointer != nullptr) reallocate(pointer, 0);
}

// Appends a language (its name copied). Returns its index or -1.
int AppendLanguage(kt_message_context* c, const char* name, kt_reallocate_function reallocate) {
  if (!ReachLanguage(c, reallocate)) return -1;
  int lang = c->languageCount;
  c->languageTexts[lang] = nullptr;
  c->languageCounts[lang] = nullptr;
  size_t length = std::strlen(name);
  auto* copy = static_cast<char*>(reallocate(nullptr, length + 1));
  if (copy == nullptr ||
      !GrowLanguageSlots(c, lang, 0, std::max(c->moduleCapacity, 1), reallocate)) {
    Release(reallocate, copy);
    Release(reallocate, static_cast<void*>(c->languageTexts[lang]));
    Release(reallocate, c->languageCounts[lang]);
    return -1;
  }
  std::memcpy(copy, name, length + 1);
  c->languageNames[lang] = copy;
  return c->languageCount++;
}

int FindLanguage(const kt_message_context* c, const char* name) {
  for (int i = 0; i < c->languageCount; ++i) {
    if (strcasecmp(c->languageNames[i], name) == 0) return i;
  }
  return -1;
}

// ---- registration steps -------------------------------------------------------

// Stores a primary table in its module's empty slot and counts it.
void StorePrimary(kt_message_context* c, const kt_message_table* t) {
  kt_message_module* m = &c->modules[t->module];
  m->count = t->count;
  m->mnemonics = t->mnemonics;
  m->component = t->component;
  ++m->registrations;
  c->languageTexts[0][t->module] = t->texts;
  c->highestModule = std::max(c->highestModule, t->module);
}

// Checks a stored primary table: codes, then each English text, the first
// failing entry winning; then notes its holes. Returns 0 or the failing
// code (status set).
int CheckPrimary(int* status, kt_message_context* c, const kt_message_table* t) {
  int failed = CheckCodes(status, t->module, t->codes, t->count);
  if (failed != 0) return failed;
  kt::internal::TextScan total = {0, 0, 0};
  failed = CheckTexts(status, t->module, t->texts, t->count, [&](int, const char* text) {
    kt::internal::TextScan scan = kt::internal::ScanEnglishText(text);
    total.holes = std::max(total.holes, scan.holes);
    total.longestSpec = std::max(total.longestSpec, scan.longestSpec);
    return scan.status;
  });
  if (failed != 0) return failed;
  kt_message_module* m = &c->modules[t->module];
  m->holes = total.holes;
  m->longestSpec = total.longestSpec;
  c->maxHoles = std::max(c->maxHoles, total.holes);
  c->maxSpec = std::max(c->maxSpec, total.longestSpec);
  return 0;
}

// Checks one module of a language table against the context.
int CheckLanguageModule(int* status, const kt_message_context* c, int lang, int module,
                        const kt_language_module* m) {
  bool known = module < c->moduleCapacity;
  if (m->count != (known ? c->modules[module].count : 0)) {
    *status = KT_MSG_MODULE_COUNT_MISMATCH;
    return ModuleResult(module);
  }
  const char* const* existing = known ? c->languageTexts[lang][module] : nullptr;
  if (existing != nullptr && existing != m->texts) {
    *status = KT_MSG_MODULE_TABLE_MISMATCH;
    return ModuleResult(module);
  }
  int failed = CheckCodes(status, module, m->codes, m->count);
  if (failed != 0) return failed;
  const char* const* english = known ? c->languageTexts[0][module] : nullptr;
  if (english == nullptr) return 0;
  return CheckTexts(status, module, m->texts, m->count, [&](int i, const char* text) {
    return kt::internal::CheckTranslation(text, kt::internal::CountHoles(english[i - 1]));
  });
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

}  // namespace

// ---- lookup ---------------------------------------------------------------------

namespace kt::internal {

bool LocateMessage(const kt_message_context* c, int code, MessageLocation* where) {
  unsigned u = static_cast<unsigned>(code);
  int module = static_cast<int>(u >> 16);
  int entry = static_cast<int>(u & 0xFFFF);
  if (c == nullptr || module > c->highestModule || module >= c->moduleCapacity) return false;
  if (entry == 0 || entry > c->modules[module].count) return false;
  if (c->languageCount == 0 || c->languageTexts[0][module] == nullptr) return false;
  *where = {module, entry};
  return true;
}

const char* EnglishText(const kt_message_context* c, MessageLocation at) {
  return c->languageTexts[0][at.module][at.entry - 1];
}

const char* TranslatedText(const kt_message_context* c, MessageLocation at) {
  int lang = c->currentLanguage;
  if (lang <= 0 || lang >= c->languageCount) return nullptr;
  const char* const* texts = c->languageTexts[lang][at.module];
  // A translation checked against an English table that was later
  // re-registered with more entries has none for the new ones.
  if (texts == nullptr || at.entry > c->languageCounts[lang][at.module]) return nullptr;
  return texts[at.entry - 1];
}

}  // namespace kt::internal

using kt::internal::MessageLocation;

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
    release(context->languageCounts[i]);
  }
  release(context->languageNames);
  release(static_cast<void*>(context->languageTexts));
  release(context->languageCounts);
  release(context->modules);
  std::memset(context, 0, sizeof(*context));
  context->highestModule = -1;
}

// Stores first and checks after, so a refused table stays registered and
// counted: the caller removes it (kept on purpose; a differing table for
// the module is refused until then).
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
  StorePrimary(context, table);
  return CheckPrimary(status, context, table);
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
  *m = kt_message_module{};
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
    int failed = CheckLanguageModule(status, context, lang, table->modules[k], &table->tables[k]);
    if (failed != 0) return failed;
  }
  for (int k = 0; table->modules[k] >= 0; ++k) {
    int module = table->modules[k];
    if (module >= context->moduleCapacity) continue;  // a module of no messages
    context->languageTexts[lang][module] = table->tables[k].texts;
    context->languageCounts[lang][module] = table->tables[k].count;
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
  MessageLocation at;
  if (!kt::internal::LocateMessage(context, code, &at)) return nullptr;
  const char* translated = kt::internal::TranslatedText(context, at);
  return translated ? translated : kt::internal::EnglishText(context, at);
}

const char* kt_get_primary_message(kt_message_context* context, int code) {
  MessageLocation at;
  if (!kt::internal::LocateMessage(context, code, &at)) return nullptr;
  return kt::internal::EnglishText(context, at);
}

const char* kt_get_message_mnemonic(kt_message_context* context, int code) {
  MessageLocation at;
  if (!kt::internal::LocateMessage(context, code, &at)) return nullptr;
  const char* const* mnemonics = context->modules[at.module].mnemonics;
  return mnemonics ? mnemonics[at.entry - 1] : nullptr;
}

const char* kt_get_message_component(kt_message_context* context, int code) {
  MessageLocation at;
  if (!kt::internal::LocateMessage(context, code, &at)) return nullptr;
  return context->modules[at.module].component;
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
  MessageLocation own;
  if (kt::internal::LocateMessage(context, code, &own)) {
    n = kt_printm(context, putsn, data, code, module, entry);
  } else {
    // A context whose own initialisation failed has no module-0 table to
    // print from, yet that is exactly when an explanation is needed: use
    // the built-in English text.
    char text[256];
    bool known = code >= 1 && code <= kModule0Table.count;
    n = known ? std::snprintf(text, sizeof text, kModule0Texts[code - 1], module, entry) : 0;
    n = n <= 0 ? n : putsn(data, text, std::min(n, static_cast<int>(sizeof text) - 1));
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
