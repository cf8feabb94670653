// Message tables: validation statuses, languages, lookup, and formatting
// (checked against snprintf). fuzz/messages_fuzz.cpp covers kt_sprintm at
// every capacity and table shapes at random.
#include "kt/messages.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

int Append(void* data, const char* text, int length) {
  static_cast<std::string*>(data)->append(text, static_cast<size_t>(length));
  return length;
}

// A table built at run time: codes with terminator, mnemonics, texts.
struct Table {
  std::vector<int> codes;
  std::vector<std::string> mnemonicStore, textStore;
  std::vector<const char*> mnemonics, texts;
  kt_message_table table{};

  Table(int module, std::vector<std::string> t) : textStore(std::move(t)) {
    for (size_t i = 0; i < textStore.size(); ++i) {
      codes.push_back((module << 16) | static_cast<int>(i + 1));
      mnemonicStore.push_back("M" + std::to_string(i + 1));
    }
    codes.push_back(-1);
    for (auto& m : mnemonicStore) mnemonics.push_back(m.c_str());
    for (auto& x : textStore) texts.push_back(x.c_str());
    table = {static_cast<int>(textStore.size()), module, codes.data(), mnemonics.data(),
             texts.data(), "test"};
  }
};

// A language table of one module.
struct Language {
  std::vector<const char*> texts;
  std::vector<int> codes;
  kt_language_module module{};
  int modules[2];
  kt_language_table table{};
  Language(int moduleNumber, std::vector<const char*> t) : texts(std::move(t)) {
    for (size_t i = 0; i < texts.size(); ++i)
      codes.push_back((moduleNumber << 16) | static_cast<int>(i + 1));
    codes.push_back(-1);
    module = {codes.data(), texts.data(), static_cast<int>(texts.size())};
    modules[0] = moduleNumber;
    modules[1] = -1;
    table = {modules, &module};
  }
};

class Messages : public ::testing::Test {
 protected:
  void SetUp() override {
    status = -7;
    ASSERT_EQ(kt_initialize_message_context(&status, &mc, ktMalloc, ktRealloc), 0);
    EXPECT_EQ(status, 0);
  }
  void TearDown() override { kt_clear_message_context(&mc, ktFree); }

  int Add(const Table& t) { return kt_add_primary_message_table(&status, &mc, &t.table, ktRealloc); }
  int Remove(const Table& t) { return kt_remove_primary_message_table(&status, &mc, &t.table); }
  int AddLanguage(const char* name, const Language& l) {
    return kt_add_language(&status, &mc, name, &l.table, ktRealloc);
  }
  // The status of registering one English text as a fresh module, entry 1.
  int EnglishStatus(const std::string& text) {
    int module = nextModule++;
    Table t(module, {text});
    int r = Add(t);
    if (r == 0) return 0;
    EXPECT_EQ(r, (module << 16) | 1);
    return status;
  }
  std::string Print(int code, ...) {
    std::string out;
    va_list a;
    va_start(a, code);
    kt_vprintm(&mc, Append, &out, code, a);
    va_end(a);
    return out;
  }
  kt_message_context mc;
  int status = 0;
  int nextModule = 20;
};

TEST_F(Messages, ModuleZeroIsRegisteredWithItsTexts) {
  EXPECT_STREQ(kt_get_message_mnemonic(&mc, 13), "BAD_MSG_CODE");
  EXPECT_STREQ(kt_get_message_component(&mc, 1), "message_context");
  EXPECT_EQ(Print(KT_WRONG_CODE, 4, 9), "Internal Error: Module 4 has a wrong code at entry 9.");
  EXPECT_EQ(Print(KT_NON_TRIVIAL_PER_CENT, 1, 2),
            "Internal Error: The string for module 1, entry 2, has a %% with a non-trivial "
            "specifier.");
  for (int unknown : {16, 0, (200 << 16) | 1}) EXPECT_EQ(kt_get_message(&mc, unknown), nullptr);
  char id[2048];
  EXPECT_STREQ(kt_make_message_identifier(id, &mc, KT_OMITTED_HOLE), "ZENTRA:OMITTED_HOLE");
  EXPECT_STREQ(kt_make_message_identifier(id, &mc, 999), "ZENTRA:BAD_MSG_CODE");
}

// Includes the regression for conversions the C formatter reads as its own
// ("%Sd", "%lc", "%m...", positional, mismatched lengths): they passed
// registration and then crashed kt_printm with an argument of another type.
TEST_F(Messages, EnglishTextValidation) {
  const struct {
    const char* text;
    int status;
  } cases[] = {
      {"100%% sure, %d items, %s, %-5.2f, %c, %U", 0},
      {"%-8.3lf %lld %hhx %zu %*.*d %p %n %'d %#o %03o %Lf %.f %+ d %qd %jx %td %lu", 0},
      {"ends in %", KT_STRANDED_PER_CENT},
      {"bad %1%", KT_NON_TRIVIAL_PER_CENT},
      {"bad %-10s", KT_NON_TRIVIAL_S},
      {"bad %ls", KT_NON_TRIVIAL_S},
      {"bad %5U", KT_INVALID_PERCENT_U},
      {"%Sd", KT_STRANDED_PER_CENT},
      {"%C", KT_STRANDED_PER_CENT},
      {"%Cd", KT_STRANDED_PER_CENT},
      {"%lc", KT_STRANDED_PER_CENT},
      {"%md", KT_STRANDED_PER_CENT},
      {"%2$d", KT_STRANDED_PER_CENT},
      {"%llf", KT_STRANDED_PER_CENT},
      {"%Ld", KT_STRANDED_PER_CENT},
      {"%hp", KT_STRANDED_PER_CENT},
      {"%***d", KT_STRANDED_PER_CENT},
  };
  for (const auto& c : cases) EXPECT_EQ(EnglishStatus(c.text), c.status) << c.text;
}

// Regression: a table was checked before it was stored, so a malformed one
// was left unregistered; it must stay registered and counted.
TEST_F(Messages, RefusedPrimaryTableStaysRegisteredAndCounted) {
  Table t(7, {"fine %d", "%Sd and %d", "x"});
  t.codes[2] = (7 << 16) | 9;
  EXPECT_EQ(Add(t), (7 << 16) | 3);
  EXPECT_EQ(status, KT_WRONG_CODE);
  ASSERT_STREQ(kt_get_message(&mc, (7 << 16) | 1), "fine %d");
  t.codes[2] = (7 << 16) | 3;
  EXPECT_EQ(Add(t), 0);  // the same array only counts
  EXPECT_STREQ(kt_get_message_mnemonic(&mc, (7 << 16) | 3), "M3");
  // A malformed specification prints as it stands and takes no argument.
  EXPECT_EQ(Print((7 << 16) | 2, 7), "%Sd and 7");
  Table other(7, {"a", "b", "c"});
  EXPECT_EQ(Add(other), 7 << 16);
  EXPECT_EQ(status, KT_MSG_MODULE_TABLE_MISMATCH);
  EXPECT_EQ(Remove(t), 0);
  EXPECT_EQ(Remove(t), 0);
  EXPECT_EQ(kt_get_message(&mc, (7 << 16) | 1), nullptr);
  EXPECT_EQ(Add(other), 0);
}

TEST_F(Messages, CodeValidationAndMismatches) {
  const struct {
    std::vector<std::string> texts;
    int at, code, result, status;  // codes[at] = code
  } cases[] = {
      {{"a", "b"}, 1, (8 << 16) | 5, (8 << 16) | 2, KT_WRONG_CODE},
      {{"a", "b", "c"}, 2, -1, (8 << 16) | 3, KT_TOO_FEW_STRINGS},
      {{"a"}, 1, 12, (8 << 16) | 2, KT_TOO_MANY_STRINGS},
  };
  for (const auto& c : cases) {
    Table t(8, c.texts);
    t.codes[static_cast<size_t>(c.at)] = c.code;
    EXPECT_EQ(Add(t), c.result);
    EXPECT_EQ(status, c.status);
    EXPECT_EQ(Remove(t), 0);
  }
  Table t(3, {"one", "two"});
  EXPECT_EQ(Add(t), 0);
  EXPECT_EQ(Add(t), 0);
  Table other(3, {"uno", "dos"});
  EXPECT_EQ(Add(other), 3 << 16);
  EXPECT_EQ(status, KT_MSG_MODULE_TABLE_MISMATCH);
  Table longer(3, {"uno", "dos", "tres"});
  Add(longer);
  EXPECT_EQ(status, KT_MSG_MODULE_COUNT_MISMATCH);
  // Two registrations need two removals.
  EXPECT_EQ(Remove(t), 0);
  EXPECT_STREQ(kt_get_message(&mc, (3 << 16) | 2), "two");
  EXPECT_EQ(Remove(t), 0);
  EXPECT_EQ(kt_get_message(&mc, (3 << 16) | 2), nullptr);
  EXPECT_EQ(Remove(t), -1);
  EXPECT_EQ(Remove(Table(90, {"x"})), -1);
}

TEST_F(Messages, ManyModulesGrowTheArrays) {
  std::vector<std::unique_ptr<Table>> tables;
  for (int m = 5; m < 300; m += 7) {
    tables.push_back(std::make_unique<Table>(m, std::vector<std::string>{"m%d says %d"}));
    ASSERT_EQ(Add(*tables.back()), 0);
  }
  for (int m = 5; m < 300; m += 7)
    EXPECT_EQ(Print((m << 16) | 1, m, 1), "m" + std::to_string(m) + " says 1");
}

TEST_F(Messages, TranslationValidation) {
  Table english(4, {"%d of %d"});
  ASSERT_EQ(Add(english), 0);
  const struct {
    const char* text;
    int status;
  } cases[] = {{"%1 %1", KT_DUPLICATE_REFERENCE}, {"%1 only", KT_OMITTED_HOLE},
               {"%1 %2 %3", KT_HOLE_NOT_PRESENT}, {"%0 %1 %2", KT_HOLE_NOT_PRESENT},
               {"%1 %2 %", KT_ILLEGAL_PER_CENT},  {"%1 %x %2", KT_ILLEGAL_PER_CENT}};
  for (const auto& c : cases) {
    EXPECT_NE(AddLanguage("xx", Language(4, {c.text})), 0);
    EXPECT_EQ(status, c.status) << c.text;
  }
  // A refused table still registers the language name; it shows English.
  EXPECT_NE(AddLanguage("yy", Language(4, {"%3"})), 0);
  EXPECT_EQ(kt_change_language(&mc, "YY"), 0);
  EXPECT_STREQ(kt_get_message(&mc, (4 << 16) | 1), "%d of %d");
  kt_change_language(&mc, nullptr);
  EXPECT_NE(AddLanguage("xx", Language(4, {"%1 %2", "extra"})), 0);
  EXPECT_EQ(status, KT_MSG_MODULE_COUNT_MISMATCH);
  Language accepted(4, {"%2 von %1 (100%%)"});
  EXPECT_EQ(AddLanguage("xx", accepted), 0);
  EXPECT_EQ(AddLanguage("xx", accepted), 0);  // same array
  EXPECT_NE(AddLanguage("XX", Language(4, {"%1 %2"})), 0);
  EXPECT_EQ(status, KT_MSG_MODULE_TABLE_MISMATCH);
}

TEST_F(Messages, TranslationReordersHolesAndLanguageSelection) {
  Table english(4, {"%d of %s", "untranslated %d"});
  ASSERT_EQ(Add(english), 0);
  Language german(4, {"%2 hat %1 (100%%)", nullptr});
  EXPECT_NE(AddLanguage("de_DE", german), 0);  // a null text is refused
  german.texts[1] = "nicht %1";
  ASSERT_EQ(AddLanguage("de_DE", german), 0);
  Language french(4, {"%1 de %2", "non traduit %1"});
  ASSERT_EQ(AddLanguage("fr", french), 0);
  const struct {
    const char* select;
    int result;
    const char* expected;
  } steps[] = {{nullptr, 0, "3 of Anna"},
               {"DE_de", 0, "Anna hat 3 (100%)"},     // whole name, any case
               {"en", 0, "3 of Anna"},                // 2 characters: English
               {"de_DE.UTF-8", 0, "Anna hat 3 (100%)"},  // first 5 characters
               {"fr_CA.ISO-8859-1", 0, "3 de Anna"},  // first 2
               {"ja_JP", 1, "3 de Anna"},             // unchanged
               {nullptr, 0, "3 of Anna"}};
  for (const auto& s : steps) {
    EXPECT_EQ(kt_change_language(&mc, s.select), s.result);
    EXPECT_EQ(Print((4 << 16) | 1, 3, "Anna"), s.expected) << (s.select ? s.select : "null");
  }
  kt_change_language(&mc, "de");
  EXPECT_EQ(Print((4 << 16) | 2, 8), "nicht 8");
  EXPECT_STREQ(kt_get_primary_message(&mc, (4 << 16) | 1), "%d of %s");
}

// Regressions: a translation checked against "%d and %d" whose English table
// was then replaced (1) must not read past the holes of the new text, and
// (2) when the new table is longer, must not be read past its own count
// (a heap over-read); the new entries fall back to English.
TEST_F(Messages, TranslationOutlivingItsEnglishTable) {
  Table english(4, {"%d and %d"});
  ASSERT_EQ(Add(english), 0);
  Language l(4, {"%2 und %1", "BEYOND THE TRANSLATION"});
  l.codes[1] = -1;
  l.module.count = 1;
  ASSERT_EQ(AddLanguage("de", l), 0);
  ASSERT_EQ(Remove(english), 0);
  Table replacement(4, {"just %d", "new %d"});
  ASSERT_EQ(Add(replacement), 0);
  ASSERT_EQ(kt_change_language(&mc, "de"), 0);
  EXPECT_EQ(Print((4 << 16) | 1, 5), " und 5");
  EXPECT_STREQ(kt_get_message(&mc, (4 << 16) | 2), "new %d");
  EXPECT_EQ(Print((4 << 16) | 2, 6), "new 6");
}

struct Location {
  const char* file;
  int line;
};
int PrintLocation(const void* argument, kt_putsn_function putsn, void* data) {
  auto* loc = static_cast<const Location*>(argument);
  std::string s = std::string(loc->file) + ":" + std::to_string(loc->line);
  return putsn(data, s.c_str(), static_cast<int>(s.size()));
}

TEST_F(Messages, HoleKinds) {
  Table t(6, {"[%s]", "[%80d]", "[%-70c]", "at %U: %d", "[%*.*d]"});
  ASSERT_EQ(Add(t), 0);
  std::string longText(5000, 'z');  // strings are uncut, other holes cut at 63
  EXPECT_EQ(Print((6 << 16) | 1, longText.c_str()), "[" + longText + "]");
  EXPECT_EQ(Print((6 << 16) | 2, 42), "[" + std::string(63, ' ') + "]");
  EXPECT_EQ(Print((6 << 16) | 3, 'q'), "[q" + std::string(62, ' ') + "]");
  Location loc{"main.m", 12};
  kt_percent_u_argument u{PrintLocation, &loc};
  EXPECT_EQ(Print((6 << 16) | 4, &u, 5), "at main.m:12: 5");
  EXPECT_EQ(Print((6 << 16) | 5, 6, 3, 42), "[   042]");  // '*' values come first
}

TEST_F(Messages, UnknownCodePrintsBadMessageCodeWithoutRecursion) {
  std::string out;
  EXPECT_EQ(kt_printm(&mc, Append, &out, (77 << 16) | 3), 0);
  EXPECT_EQ(out,
            "Internal Error: Attempt to format a message for an unregistered module 77 entry 3.\n");
  // Without module 0 the explanation is unknown too: nothing is printed and
  // code 13 does not try to explain itself.
  kt_message_table moduleZero = {15, 0, nullptr, nullptr, nullptr, ""};
  ASSERT_EQ(kt_remove_primary_message_table(&status, &mc, &moduleZero), 0);
  std::string none;
  EXPECT_EQ(kt_printm(&mc, Append, &none, (77 << 16) | 3), 0);
  EXPECT_EQ(kt_printm(&mc, Append, &none, KT_BAD_MSG_CODE, 1, 2), 0);
  EXPECT_EQ(none, "\n");  // only the newline after the missing explanation
}

int FailAfter(void* data, const char* /*text*/, int length) {
  int* budget = static_cast<int*>(data);
  return --*budget < 0 ? -4 : length;
}

TEST_F(Messages, NegativePutsnResultStopsPrinting) {
  Table t(6, {"a%db%sc%dd"});
  ASSERT_EQ(Add(t), 0);
  // "a", "1", "b", "x", "c", "2", "d": the call fails at piece budget+1.
  for (int budget = 0; budget <= 7; ++budget) {
    int b = budget;
    EXPECT_EQ(kt_printm(&mc, FailAfter, &b, (6 << 16) | 1, 1, "x", 2), budget < 7 ? -4 : 7);
  }
}

// Differential: random English texts must format exactly as snprintf
// formats the same text with the same arguments. The arguments are always
// (int, double, string, long long, unsigned); hole k of a text takes a
// conversion that fits argument k, and "%%" may appear anywhere.
TEST_F(Messages, RandomMessagesMatchSnprintf) {
  std::mt19937 rng(2024);
  const std::vector<std::vector<const char*>> fits = {
      {"%d", "%5d", "%-8i", "%+d", "%c", "%03d"},
      {"%.3f", "%10.2e", "%g", "%G", "%.0f", "%-12.4lf"},
      {"%s"},
      {"%lld", "%20lld", "%llx", "%jd"},
      {"%u", "%x", "%08X", "%o", "%#x", "%hu"}};
  for (int round = 0; round < 500; ++round) {
    std::string text;
    int holes = static_cast<int>(rng() % 6);
    for (int h = 0; h < holes; ++h) {
      text += "w" + std::to_string(rng() % 100) + (rng() % 4 == 0 ? "%% " : " ");
      const auto& choice = fits[static_cast<size_t>(h)];
      text += choice[rng() % choice.size()];
    }
    text += " end";
    Table t(9, {text});
    ASSERT_EQ(Add(t), 0) << text;
    int i = static_cast<int>(rng() % 200000) - 100000;
    double d = static_cast<double>(static_cast<int>(rng())) / 977.0;
    std::string str(rng() % 90, 'k');
    long long ll = static_cast<long long>(rng()) * 65537LL;
    unsigned u = static_cast<unsigned>(rng());
    char expected[1024];
    std::snprintf(expected, sizeof expected, text.c_str(), i, d, str.c_str(), ll, u);
    std::string out;
    int n = kt_printm(&mc, Append, &out, (9 << 16) | 1, i, d, str.c_str(), ll, u);
    EXPECT_EQ(out, expected) << text;
    EXPECT_EQ(n, static_cast<int>(out.size()));
    ASSERT_EQ(Remove(t), 0);
  }
}

TEST_F(Messages, SprintmCutsAndTerminates) {
  Table t(9, {"%d-%s"});
  ASSERT_EQ(Add(t), 0);
  for (size_t cap : {0u, 1u, 4u, 8u, 9u, 20u}) {
    std::vector<char> buf(cap + 1, '#');
    int r = kt_sprintm(&mc, buf.data(), cap, (9 << 16) | 1, 123, "abcd");
    std::string full = "123-abcd";
    EXPECT_EQ(r, cap == 0 ? -1 : static_cast<int>(std::min(full.size(), cap - 1)));
    if (cap > 0) {
      EXPECT_EQ(buf.data(), full.substr(0, cap - 1));
    }
    EXPECT_EQ(buf[cap], '#') << "wrote past the capacity " << cap;
  }
}

struct Call {
  std::vector<int> values;
};
void Record(void* data, int code, ...) {
  auto* c = static_cast<Call*>(data);
  va_list a;
  va_start(a, code);
  c->values.push_back(code);
  if (code != KT_NO_MEMORY_FOR_MESSAGE_CONTEXT) {
    c->values.push_back(va_arg(a, int));
    c->values.push_back(va_arg(a, int));
  }
  va_end(a);
}

TEST_F(Messages, ExplainingFailures) {
  const struct {
    int result, status;
    std::vector<int> call;
  } cases[] = {{-1, KT_WRONG_CODE, {1}},
               {(5 << 16) | 4, KT_TOO_FEW_STRINGS, {3, 5, 3}},
               {(5 << 16) | 4, KT_WRONG_CODE, {5, 5, 4}},
               {5 << 16, KT_MSG_MODULE_COUNT_MISMATCH, {2, 5, 0}}};
  for (const auto& c : cases) {
    Call call;
    kt_handle_message_context_error(&mc, Record, &call, c.result, c.status);
    EXPECT_EQ(call.values, c.call);
  }
  std::string out;
  kt_print_message_context_error(&mc, Append, &out, (5 << 16) | 3, KT_TOO_MANY_STRINGS);
  EXPECT_EQ(out, "Internal Error: Module 5 has only 2 codes, but the table has more strings than "
                 "this.\n");
}

// Status 1: an allocator that is exhausted from the start.
void* NoMemory(size_t) { return nullptr; }
void* NoMemoryRealloc(void*, size_t) { return nullptr; }

TEST(MessageContext, InitialisationOutOfMemoryIsStatusOne) {
  kt_message_context mc;
  int status = 0;
  EXPECT_EQ(kt_initialize_message_context(&status, &mc, NoMemory, NoMemoryRealloc), -1);
  EXPECT_EQ(status, KT_NO_MEMORY_FOR_MESSAGE_CONTEXT);
  kt_clear_message_context(&mc, ktFree);
}

}  // namespace
