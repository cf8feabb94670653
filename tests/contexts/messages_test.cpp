// Message tables: validation statuses, languages, lookup, and formatting
// (checked against snprintf). fuzz/messages_fuzz.cpp covers kt_sprintm at
// every capacity, random table shapes and the grammar of conversions.
#include "kt/messages.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <random>
#include <string>
#include <vector>

#include "support/counting_context.h"

namespace {

constexpr int Code(int module, int entry) { return module << 16 | entry; }

using kttest::AppendToString;

// One module's table built at run time, usable as a primary table (its
// texts double as mnemonics) and as a language table.
struct Table {
  std::vector<const char*> texts;
  std::vector<int> codes;
  int modules[2];
  kt_message_table primary{};
  kt_language_module module{};
  kt_language_table language{};
  Table(int m, std::vector<const char*> t) : texts(std::move(t)), modules{m, -1} {
    for (size_t i = 0; i < texts.size(); ++i) codes.push_back(Code(m, static_cast<int>(i + 1)));
    codes.push_back(-1);
    int n = static_cast<int>(texts.size());
    primary = {n, m, codes.data(), texts.data(), texts.data(), "test"};
    module = {codes.data(), texts.data(), n};
    language = {modules, &module};
  }
};

// A text and the status its registration leaves.
struct TextStatus {
  const char* text;
  int status;
};

class Messages : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(kt_initialize_message_context(&status, &mc, ktMalloc, ktRealloc), 0);
    EXPECT_EQ(status, 0);
  }
  void TearDown() override { kt_clear_message_context(&mc, ktFree); }

  int Add(const Table& t) {
    return kt_add_primary_message_table(&status, &mc, &t.primary, ktRealloc);
  }
  int Remove(const Table& t) { return kt_remove_primary_message_table(&status, &mc, &t.primary); }
  int AddLanguage(const char* name, const Table& t) {
    return kt_add_language(&status, &mc, name, &t.language, ktRealloc);
  }
  std::string Print(int code, ...) {
    std::string out;
    va_list a;
    va_start(a, code);
    kt_vprintm(&mc, AppendToString, &out, code, a);
    va_end(a);
    return out;
  }
  kt_message_context mc;
  int status = -7;
};

TEST_F(Messages, ModuleZeroIsRegisteredWithItsTexts) {
  EXPECT_STREQ(kt_get_message_mnemonic(&mc, 13), "BAD_MSG_CODE");
  EXPECT_STREQ(kt_get_message_component(&mc, 1), "message_context");
  EXPECT_EQ(Print(KT_WRONG_CODE, 4, 9), "Internal Error: Module 4 has a wrong code at entry 9.");
  for (int unknown : {16, 0, Code(200, 1)}) EXPECT_EQ(kt_get_message(&mc, unknown), nullptr);
  char id[2048];
  EXPECT_STREQ(kt_make_message_identifier(id, &mc, KT_OMITTED_HOLE), "ZENTRA:OMITTED_HOLE");
  EXPECT_STREQ(kt_make_message_identifier(id, &mc, 999), "ZENTRA:BAD_MSG_CODE");
}

// Includes the regression for conversions the C formatter reads as its own
// ("%Sd", "%lc", "%m...", positional, mismatched lengths): they passed
// registration and then crashed kt_printm with an argument of another type.
// A refused text stays registered and prints as it stands.
TEST_F(Messages, EnglishTextValidation) {
  const TextStatus cases[] = {
      {"100%% sure, %d items, %s, %-5.2f, %c, %U", 0},
      {"%-8.3lf %lld %hhx %zu %*.*d %p %n %'d %#o %03o %Lf %.f %+ d %qd %jx %td %lu", 0},
      {"ends in %", KT_STRANDED_PER_CENT}, {"bad %1%", KT_NON_TRIVIAL_PER_CENT},
      {"bad %-10s", KT_NON_TRIVIAL_S},     {"bad %ls", KT_NON_TRIVIAL_S},
      {"bad %5U", KT_INVALID_PERCENT_U},   {"%Sd %C", KT_STRANDED_PER_CENT},
      {"%lc", KT_STRANDED_PER_CENT},       {"%md %2$d", KT_STRANDED_PER_CENT},
      {"%llf %Ld", KT_STRANDED_PER_CENT},  {"%hp %***d", KT_STRANDED_PER_CENT}};
  int module = 19;
  for (const auto& c : cases) {
    Table t(++module, {c.text});
    EXPECT_EQ(Add(t), c.status ? Code(module, 1) : 0) << c.text;
    EXPECT_EQ(status, c.status) << c.text;
    EXPECT_TRUE(c.status == 0 || Print(Code(module, 1), 7) == c.text) << c.text;
  }
}

// Code checks. Regression: a table was checked before it was stored, so a
// malformed one was left unregistered; it must stay registered and counted
// like any other: the same array again counts, a differing table is
// refused, and removals undo the registrations.
TEST_F(Messages, RefusedPrimaryTableStaysRegisteredAndCounted) {
  // codes[at] = code
  const struct { std::vector<const char*> texts; size_t at; int code, result, status; } cases[] = {
      {{"a", "b"}, 1, Code(8, 5), Code(8, 2), KT_WRONG_CODE},
      {{"a", "b", "c"}, 2, -1, Code(8, 3), KT_TOO_FEW_STRINGS},
      {{"a"}, 1, 12, Code(8, 2), KT_TOO_MANY_STRINGS}};
  for (const auto& c : cases) {
    Table t(8, c.texts), other(8, c.texts), longer(8, {"a", "b", "c", "d"});
    t.codes[c.at] = c.code;
    EXPECT_EQ(Add(t), c.result);
    EXPECT_EQ(status, c.status);
    ASSERT_STREQ(kt_get_message(&mc, Code(8, 1)), "a");
    EXPECT_EQ(Add(t), 0);
    EXPECT_EQ(Add(other), Code(8, 0));
    EXPECT_EQ(status, KT_MSG_MODULE_TABLE_MISMATCH);
    EXPECT_EQ(Add(longer), Code(8, 0));
    EXPECT_EQ(status, KT_MSG_MODULE_COUNT_MISMATCH);
    EXPECT_EQ(Remove(t), 0);
    EXPECT_STREQ(kt_get_message_mnemonic(&mc, Code(8, 1)), "a");
    EXPECT_EQ(Remove(t), 0);
    EXPECT_EQ(kt_get_message(&mc, Code(8, 1)), nullptr);
    EXPECT_EQ(Remove(t), -1);
  }
  EXPECT_EQ(Remove(Table(90, {"x"})), -1);
}

TEST_F(Messages, ManyModulesGrowTheArrays) {
  std::vector<Table> tables;
  tables.reserve(50);
  for (int m = 5; m < 300; m += 7) {
    ASSERT_EQ(Add(tables.emplace_back(m, std::vector<const char*>{"m%d says %d"})), 0);
  }
  for (int m = 5; m < 300; m += 7)
    EXPECT_EQ(Print(Code(m, 1), m, 1), "m" + std::to_string(m) + " says 1");
}

TEST_F(Messages, TranslationValidation) {
  Table english(4, {"%d of %d"});
  ASSERT_EQ(Add(english), 0);
  const TextStatus cases[] = {
      {"%1 %1", KT_DUPLICATE_REFERENCE}, {"%1 only", KT_OMITTED_HOLE},
      {"%1 %2 %3", KT_HOLE_NOT_PRESENT}, {"%0 %1 %2", KT_HOLE_NOT_PRESENT},
      {"%1 %2 %", KT_ILLEGAL_PER_CENT},  {"%1 %x %2", KT_ILLEGAL_PER_CENT}};
  for (const auto& c : cases) {
    EXPECT_NE(AddLanguage("xx", Table(4, {c.text})), 0);
    EXPECT_EQ(status, c.status) << c.text;
  }
  // A refused table still registers the language name; it shows English.
  EXPECT_NE(AddLanguage("yy", Table(4, {"%3"})), 0);
  EXPECT_EQ(kt_change_language(&mc, "YY"), 0);
  EXPECT_STREQ(kt_get_message(&mc, Code(4, 1)), "%d of %d");
  EXPECT_NE(AddLanguage("xx", Table(4, {"%1 %2", "extra"})), 0);
  EXPECT_EQ(status, KT_MSG_MODULE_COUNT_MISMATCH);
  Table accepted(4, {"%2 von %1 (100%%)"});
  EXPECT_EQ(AddLanguage("xx", accepted), 0);
  EXPECT_EQ(AddLanguage("xx", accepted), 0);  // same array
  EXPECT_NE(AddLanguage("XX", Table(4, {"%1 %2"})), 0);
  EXPECT_EQ(status, KT_MSG_MODULE_TABLE_MISMATCH);
}

TEST_F(Messages, TranslationReordersHolesAndLanguageSelection) {
  Table english(4, {"%d of %s", "untranslated %d"});
  ASSERT_EQ(Add(english), 0);
  Table german(4, {"%2 hat %1 (100%%)", nullptr}), french(4, {"%1 de %2", "non traduit %1"});
  EXPECT_NE(AddLanguage("de_DE", german), 0);  // a null text is refused
  german.texts[1] = "nicht %1";
  ASSERT_EQ(AddLanguage("de_DE", german), 0);
  ASSERT_EQ(AddLanguage("fr", french), 0);
  const struct { const char* select; int result; const char* expected; } steps[] = {
      {nullptr, 0, "3 of Anna"},
      {"DE_de", 0, "Anna hat 3 (100%)"},        // whole name, any case
      {"en", 0, "3 of Anna"},                   // 2 characters: English
      {"de_DE.UTF-8", 0, "Anna hat 3 (100%)"},  // first 5 characters
      {"fr_CA.ISO-8859-1", 0, "3 de Anna"},     // first 2
      {"ja_JP", 1, "3 de Anna"},                // unchanged
      {nullptr, 0, "3 of Anna"}};
  for (const auto& s : steps) {
    EXPECT_EQ(kt_change_language(&mc, s.select), s.result);
    EXPECT_EQ(Print(Code(4, 1), 3, "Anna"), s.expected) << (s.select ? s.select : "null");
  }
  kt_change_language(&mc, "de");
  EXPECT_EQ(Print(Code(4, 2), 8), "nicht 8");
  EXPECT_STREQ(kt_get_primary_message(&mc, Code(4, 1)), "%d of %s");
}

// Regressions: a translation checked against "%d and %d" whose English table
// was then replaced must not read past the holes of the new text, and, when
// the new table is longer, must not be read past its own count (a heap
// over-read): the new entries fall back to English.
TEST_F(Messages, TranslationOutlivingItsEnglishTable) {
  Table english(4, {"%d and %d"}), german(4, {"%2 und %1", "BEYOND THE TRANSLATION"});
  ASSERT_EQ(Add(english), 0);
  german.codes[1] = -1;
  german.module.count = 1;
  ASSERT_EQ(AddLanguage("de", german), 0);
  ASSERT_EQ(Remove(english), 0);
  Table replacement(4, {"just %d", "new %d"});
  ASSERT_EQ(Add(replacement), 0);
  ASSERT_EQ(kt_change_language(&mc, "de"), 0);
  EXPECT_EQ(Print(Code(4, 1), 5), " und 5");
  EXPECT_STREQ(kt_get_message(&mc, Code(4, 2)), "new %d");
  EXPECT_EQ(Print(Code(4, 2), 6), "new 6");
}

int PrintLocation(const void* argument, kt_putsn_function putsn, void* data) {
  std::string s = static_cast<const char*>(argument) + std::string(":12");
  return putsn(data, s.c_str(), static_cast<int>(s.size()));
}

TEST_F(Messages, HoleKinds) {
  Table t(6, {"[%s]", "[%80d]", "[%-70c]", "at %U: %d", "[%*.*d]"});
  ASSERT_EQ(Add(t), 0);
  std::string longText(5000, 'z');  // strings are uncut, other holes cut at 63
  EXPECT_EQ(Print(Code(6, 1), longText.c_str()), "[" + longText + "]");
  EXPECT_EQ(Print(Code(6, 2), 42), "[" + std::string(63, ' ') + "]");
  EXPECT_EQ(Print(Code(6, 3), 'q'), "[q" + std::string(62, ' ') + "]");
  kt_percent_u_argument u{PrintLocation, "main.m"};
  EXPECT_EQ(Print(Code(6, 4), &u, 5), "at main.m:12: 5");
  EXPECT_EQ(Print(Code(6, 5), 6, 3, 42), "[   042]");  // '*' values come first
}

TEST_F(Messages, UnknownCodePrintsBadMessageCodeWithoutRecursion) {
  std::string out;
  EXPECT_EQ(kt_printm(&mc, AppendToString, &out, Code(77, 3)), 0);
  EXPECT_EQ(out,
            "Internal Error: Attempt to format a message for an unregistered module 77 entry 3.\n");
  // Without module 0 the explanation is unknown too: nothing is printed and
  // code 13 does not try to explain itself.
  kt_message_table moduleZero = {15, 0, nullptr, nullptr, nullptr, ""};
  ASSERT_EQ(kt_remove_primary_message_table(&status, &mc, &moduleZero), 0);
  std::string none;
  EXPECT_EQ(kt_printm(&mc, AppendToString, &none, Code(77, 3)), 0);
  EXPECT_EQ(kt_printm(&mc, AppendToString, &none, KT_BAD_MSG_CODE, 1, 2), 0);
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
    EXPECT_EQ(kt_printm(&mc, FailAfter, &b, Code(6, 1), 1, "x", 2), budget < 7 ? -4 : 7);
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
    for (size_t h = 0, holes = rng() % 6; h < holes; ++h) {
      text += "w" + std::to_string(rng() % 100) + (rng() % 4 == 0 ? "%% " : " ");
      text += fits[h][rng() % fits[h].size()];
    }
    text += " end";
    Table t(9, {text.c_str()});
    ASSERT_EQ(Add(t), 0) << text;
    int i = static_cast<int>(rng() % 200000) - 100000;
    double d = static_cast<double>(static_cast<int>(rng())) / 977.0;
    std::string str(rng() % 90, 'k');
    long long ll = static_cast<long long>(rng()) * 65537LL;
    unsigned u = static_cast<unsigned>(rng());
    char expected[1024];
    std::snprintf(expected, sizeof expected, text.c_str(), i, d, str.c_str(), ll, u);
    std::string out;
    int n = kt_printm(&mc, AppendToString, &out, Code(9, 1), i, d, str.c_str(), ll, u);
    EXPECT_EQ(out, expected) << text;
    EXPECT_EQ(n, static_cast<int>(out.size()));
    ASSERT_EQ(Remove(t), 0);
  }
}

void Record(void* data, int code, ...) {
  auto* call = static_cast<std::vector<int>*>(data);
  va_list a;
  va_start(a, code);
  call->push_back(code);
  for (int k = code == KT_NO_MEMORY_FOR_MESSAGE_CONTEXT ? 2 : 0; k < 2; ++k)
    call->push_back(va_arg(a, int));
  va_end(a);
}

TEST_F(Messages, ExplainingFailures) {
  const struct { int result, status; std::vector<int> call; } cases[] = {
      {-1, KT_WRONG_CODE, {1}},
      {Code(5, 4), KT_TOO_FEW_STRINGS, {3, 5, 3}},
      {Code(5, 4), KT_WRONG_CODE, {5, 5, 4}},
      {Code(5, 0), KT_MSG_MODULE_COUNT_MISMATCH, {2, 5, 0}}};
  for (const auto& c : cases) {
    std::vector<int> call;
    kt_handle_message_context_error(&mc, Record, &call, c.result, c.status);
    EXPECT_EQ(call, c.call);
  }
  std::string out;
  kt_print_message_context_error(&mc, AppendToString, &out, Code(5, 3), KT_TOO_MANY_STRINGS);
  EXPECT_EQ(out, "Internal Error: Module 5 has only 2 codes, but the table has more strings than "
                 "this.\n");
}

}  // namespace
