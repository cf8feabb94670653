// Message tables: validation statuses, languages, lookup, and formatting
// (checked against snprintf and against a model of the bounded buffer).
#include "kt/messages.h"

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstring>
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

class Messages : public ::testing::Test {
 protected:
  void SetUp() override {
    int status = -7;
    ASSERT_EQ(kt_initialize_message_context(&status, &mc, ktMalloc, ktRealloc), 0);
    EXPECT_EQ(status, 0);
  }
  void TearDown() override { kt_clear_message_context(&mc, ktFree); }

  int Add(const Table& t, int* status) {
    *status = 0;
    return kt_add_primary_message_table(status, &mc, &t.table, ktRealloc);
  }
  // The status of registering one English text as a fresh module, entry 1.
  int EnglishStatus(const std::string& text) {
    int module = nextModule++;
    Table t(module, {text});
    int status = 0;
    int r = Add(t, &status);
    if (r == 0) return 0;
    EXPECT_EQ(r, (module << 16) | 1);
    return status;
  }
  int nextModule = 20;
  std::string Print(int code, ...) {
    std::string out;
    va_list a;
    va_start(a, code);
    kt_vprintm(&mc, Append, &out, code, a);
    va_end(a);
    return out;
  }
  kt_message_context mc;
};

TEST_F(Messages, ModuleZeroIsRegisteredWithItsTexts) {
  EXPECT_STREQ(kt_get_message_mnemonic(&mc, 13), "BAD_MSG_CODE");
  EXPECT_STREQ(kt_get_message_component(&mc, 1), "message_context");
  EXPECT_EQ(Print(KT_WRONG_CODE, 4, 9), "Internal Error: Module 4 has a wrong code at entry 9.");
  EXPECT_EQ(Print(KT_NON_TRIVIAL_PER_CENT, 1, 2),
            "Internal Error: The string for module 1, entry 2, has a %% with a non-trivial "
            "specifier.");
  EXPECT_EQ(kt_get_message(&mc, 16), nullptr);
  EXPECT_EQ(kt_get_message(&mc, 0), nullptr);
  EXPECT_EQ(kt_get_message(&mc, (200 << 16) | 1), nullptr);
}

TEST_F(Messages, EnglishTextValidation) {
  EXPECT_EQ(EnglishStatus("100%% sure, %d items, %s, %-5.2f, %c, %U"), 0);
  EXPECT_EQ(EnglishStatus("ends in %"), KT_STRANDED_PER_CENT);
  EXPECT_EQ(EnglishStatus("bad %1%"), KT_NON_TRIVIAL_PER_CENT);
  EXPECT_EQ(EnglishStatus("bad %-10s"), KT_NON_TRIVIAL_S);
  EXPECT_EQ(EnglishStatus("bad %5U"), KT_INVALID_PERCENT_U);
}

TEST_F(Messages, CodeValidation) {
  int status;
  Table wrong(7, {"a", "b"});
  wrong.codes[1] = (7 << 16) | 5;
  EXPECT_EQ(Add(wrong, &status), (7 << 16) | 2);
  EXPECT_EQ(status, KT_WRONG_CODE);
  Table fewCodes(7, {"a", "b", "c"});
  fewCodes.codes[2] = -1;
  EXPECT_EQ(Add(fewCodes, &status), (7 << 16) | 3);
  EXPECT_EQ(status, KT_TOO_FEW_STRINGS);
  Table noTerminator(7, {"a"});
  noTerminator.codes[1] = 12;
  EXPECT_EQ(Add(noTerminator, &status), (7 << 16) | 2);
  EXPECT_EQ(status, KT_TOO_MANY_STRINGS);
  EXPECT_EQ(kt_get_message(&mc, (7 << 16) | 1), nullptr);  // nothing stored
}

TEST_F(Messages, RegisteringTwiceCountsAndMismatchesAreRejected) {
  int status;
  Table t(3, {"one", "two"});
  EXPECT_EQ(Add(t, &status), 0);
  EXPECT_EQ(Add(t, &status), 0);
  Table other(3, {"uno", "dos"});
  EXPECT_EQ(Add(other, &status), 3 << 16);
  EXPECT_EQ(status, KT_MSG_MODULE_TABLE_MISMATCH);
  Table longer(3, {"uno", "dos", "tres"});
  Add(longer, &status);
  EXPECT_EQ(status, KT_MSG_MODULE_COUNT_MISMATCH);
  // Two registrations need two removals.
  EXPECT_EQ(kt_remove_primary_message_table(&status, &mc, &t.table), 0);
  EXPECT_STREQ(kt_get_message(&mc, (3 << 16) | 2), "two");
  EXPECT_EQ(kt_remove_primary_message_table(&status, &mc, &t.table), 0);
  EXPECT_EQ(kt_get_message(&mc, (3 << 16) | 2), nullptr);
  EXPECT_EQ(kt_remove_primary_message_table(&status, &mc, &t.table), -1);
  Table far(90, {"x"});
  EXPECT_EQ(kt_remove_primary_message_table(&status, &mc, &far.table), -1);
}

TEST_F(Messages, ManyModulesGrowTheArrays) {
  std::vector<Table*> tables;
  int status;
  for (int m = 5; m < 300; m += 7) {
    tables.push_back(new Table(m, {"module " + std::to_string(m) + " says %d"}));
    ASSERT_EQ(Add(*tables.back(), &status), 0);
  }
  for (int m = 5; m < 300; m += 7)
    EXPECT_EQ(Print((m << 16) | 1, m), "module " + std::to_string(m) + " says " + std::to_string(m));
  for (Table* t : tables) delete t;
}

// ---- languages ---------------------------------------------------------------

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

TEST_F(Messages, TranslationValidation) {
  Table english(4, {"%d of %d"});
  int status;
  ASSERT_EQ(Add(english, &status), 0);
  auto statusOf = [&](const char* text) {
    Language l(4, {text});
    int s = 0;
    int r = kt_add_language(&s, &mc, "xx", &l.table, ktRealloc);
    return r == 0 ? 0 : s;
  };
  EXPECT_EQ(statusOf("%1 %1"), KT_DUPLICATE_REFERENCE);
  EXPECT_EQ(statusOf("%1 only"), KT_OMITTED_HOLE);
  EXPECT_EQ(statusOf("%1 %2 %3"), KT_HOLE_NOT_PRESENT);
  EXPECT_EQ(statusOf("%0 %1 %2"), KT_HOLE_NOT_PRESENT);
  EXPECT_EQ(statusOf("%1 %2 %"), KT_ILLEGAL_PER_CENT);
  EXPECT_EQ(statusOf("%1 %x %2"), KT_ILLEGAL_PER_CENT);
  // A refused table still registers the language name; it shows English.
  Language refused(4, {"%3"});
  EXPECT_NE(kt_add_language(&status, &mc, "yy", &refused.table, ktRealloc), 0);
  EXPECT_EQ(kt_change_language(&mc, "YY"), 0);
  EXPECT_STREQ(kt_get_message(&mc, (4 << 16) | 1), "%d of %d");
  kt_change_language(&mc, nullptr);
  Language wrongCount(4, {"%1 %2", "extra"});
  EXPECT_NE(kt_add_language(&status, &mc, "xx", &wrongCount.table, ktRealloc), 0);
  EXPECT_EQ(status, KT_MSG_MODULE_COUNT_MISMATCH);
  Language accepted(4, {"%2 von %1 (100%%)"});
  EXPECT_EQ(kt_add_language(&status, &mc, "xx", &accepted.table, ktRealloc), 0);
  EXPECT_EQ(kt_add_language(&status, &mc, "xx", &accepted.table, ktRealloc), 0);  // same array
  Language other(4, {"%1 %2"});
  EXPECT_NE(kt_add_language(&status, &mc, "XX", &other.table, ktRealloc), 0);
  EXPECT_EQ(status, KT_MSG_MODULE_TABLE_MISMATCH);
}

TEST_F(Messages, TranslationReordersHolesAndLanguageSelection) {
  Table english(4, {"%d of %s", "untranslated %d"});
  int status;
  ASSERT_EQ(Add(english, &status), 0);
  Language german(4, {"%2 hat %1 (100%%)", "unübersetzt %1"});
  german.texts[1] = nullptr;  // restored below; a null text is refused
  EXPECT_NE(kt_add_language(&status, &mc, "de_DE", &german.table, ktRealloc), 0);
  german.texts[1] = "nicht %1";
  ASSERT_EQ(kt_add_language(&status, &mc, "de_DE", &german.table, ktRealloc), 0);
  Language french(4, {"%1 de %2", "non traduit %1"});
  ASSERT_EQ(kt_add_language(&status, &mc, "fr", &french.table, ktRealloc), 0);

  EXPECT_EQ(Print((4 << 16) | 1, 3, "Anna"), "3 of Anna");
  EXPECT_EQ(kt_change_language(&mc, "DE_de"), 0);  // whole name, any case
  EXPECT_EQ(Print((4 << 16) | 1, 3, "Anna"), "Anna hat 3 (100%)");
  EXPECT_STREQ(kt_get_primary_message(&mc, (4 << 16) | 1), "%d of %s");
  EXPECT_EQ(kt_change_language(&mc, "en"), 0);  // 2 characters: English
  EXPECT_EQ(Print((4 << 16) | 1, 3, "Anna"), "3 of Anna");
  EXPECT_EQ(kt_change_language(&mc, "de_DE.UTF-8"), 0);  // first 5 characters
  EXPECT_EQ(Print((4 << 16) | 2, 8), "nicht 8");
  EXPECT_EQ(kt_change_language(&mc, "fr_CA.ISO-8859-1"), 0);  // first 2
  EXPECT_EQ(Print((4 << 16) | 1, 3, "Anna"), "3 de Anna");
  EXPECT_EQ(kt_change_language(&mc, "ja_JP"), 1);  // unchanged
  EXPECT_EQ(Print((4 << 16) | 1, 3, "Anna"), "3 de Anna");
  EXPECT_EQ(kt_change_language(&mc, nullptr), 0);
  EXPECT_EQ(Print((4 << 16) | 1, 3, "Anna"), "3 of Anna");
}

// Regression: a translation checked against a two-hole English text, whose
// English table was then replaced by one with fewer holes, must not read
// past the holes of the new text.
TEST_F(Messages, TranslationOutlivingItsEnglishTableReadsNoStaleHoles) {
  Table english(4, {"%d and %d"});
  int status;
  ASSERT_EQ(Add(english, &status), 0);
  Language l(4, {"%2 und %1"});
  ASSERT_EQ(kt_add_language(&status, &mc, "de", &l.table, ktRealloc), 0);
  ASSERT_EQ(kt_remove_primary_message_table(&status, &mc, &english.table), 0);
  Table replacement(4, {"just %d"});
  ASSERT_EQ(Add(replacement, &status), 0);
  ASSERT_EQ(kt_change_language(&mc, "de"), 0);
  EXPECT_EQ(Print((4 << 16) | 1, 5), " und 5");
}

// ---- formatting ----------------------------------------------------------------

TEST_F(Messages, StringHolesAreUncutNumericHolesCutAt63) {
  Table t(6, {"[%s]", "[%80d]", "[%-70c]"});
  int status;
  ASSERT_EQ(Add(t, &status), 0);
  std::string longText(5000, 'z');
  EXPECT_EQ(Print((6 << 16) | 1, longText.c_str()), "[" + longText + "]");
  EXPECT_EQ(Print((6 << 16) | 2, 42), "[" + std::string(63, ' ') + "]");
  EXPECT_EQ(Print((6 << 16) | 3, 'q'), "[q" + std::string(62, ' ') + "]");
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

TEST_F(Messages, PercentUPrintsThroughItsCallback) {
  Table t(6, {"at %U: %d"});
  int status;
  ASSERT_EQ(Add(t, &status), 0);
  Location loc{"main.m", 12};
  kt_percent_u_argument u{PrintLocation, &loc};
  EXPECT_EQ(Print((6 << 16) | 1, &u, 5), "at main.m:12: 5");
}

TEST_F(Messages, UnknownCodePrintsBadMessageCodeWithoutRecursion) {
  std::string out;
  EXPECT_EQ(kt_printm(&mc, Append, &out, (77 << 16) | 3), 0);
  EXPECT_EQ(out,
            "Internal Error: Attempt to format a message for an unregistered module 77 entry 3.\n");
  // Without module 0 the explanation is unknown too: nothing is printed and
  // code 13 does not try to explain itself.
  kt_message_table moduleZero = {15, 0, nullptr, nullptr, nullptr, ""};
  int status;
  ASSERT_EQ(kt_remove_primary_message_table(&status, &mc, &moduleZero), 0);
  std::string none;
  EXPECT_EQ(kt_printm(&mc, Append, &none, (77 << 16) | 3), 0);
  EXPECT_EQ(kt_printm(&mc, Append, &none, KT_BAD_MSG_CODE, 1, 2), 0);
  EXPECT_EQ(none, "\n");  // only the newline after the missing explanation
}

int FailAfter(void* data, const char* text, int length) {
  int* budget = static_cast<int*>(data);
  (void)text;
  if (--*budget < 0) return -4;
  return length;
}

TEST_F(Messages, NegativePutsnResultStopsPrinting) {
  Table t(6, {"a%db%sc%dd"});
  int status;
  ASSERT_EQ(Add(t, &status), 0);
  for (int budget = 0; budget < 7; ++budget) {
    int b = budget;
    // "a", "1", "b", "x", "c", "2", "d": the call fails at piece budget+1.
    int r = kt_printm(&mc, FailAfter, &b, (6 << 16) | 1, 1, "x", 2);
    EXPECT_EQ(r, -4);
  }
  int plenty = 100;
  EXPECT_EQ(kt_printm(&mc, FailAfter, &plenty, (6 << 16) | 1, 1, "x", 2), 7);
}

// Differential: random English texts must format exactly as snprintf
// formats the same text with the same arguments. The arguments are always
// (int, double, string, long long, unsigned); hole k of a text takes a
// conversion that fits argument k, and "%%" may appear anywhere.
TEST_F(Messages, RandomMessagesMatchSnprintf) {
  std::mt19937 rng(2024);
  const std::vector<std::vector<const char*>> fits = {
      {"%d", "%5d", "%-8i", "%+d", "%c", "%03d"},
      {"%.3f", "%10.2e", "%g", "%G", "%.0f", "%-12.4f"},
      {"%s"},
      {"%lld", "%20lld", "%llx"},
      {"%u", "%x", "%08X", "%o", "%#x"}};
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
    int status;
    ASSERT_EQ(Add(t, &status), 0) << text;
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
    // kt_sprintm at every capacity: the text cut to capacity - 1 and always
    // terminated; capacity 0 stores nothing and returns -1.
    size_t len = out.size();
    for (size_t cap = 0; cap <= len + 2; cap += (cap < 4 || cap + 4 > len ? 1 : 7)) {
      std::vector<char> buf(cap + 1, '#');
      int r = kt_sprintm(&mc, buf.data(), cap, (9 << 16) | 1, i, d, str.c_str(), ll, u);
      if (cap == 0) {
        EXPECT_EQ(r, -1);
        EXPECT_EQ(buf[0], '#');
        continue;
      }
      size_t stored = len < cap - 1 ? len : cap - 1;
      EXPECT_EQ(r, static_cast<int>(stored)) << cap;
      EXPECT_EQ(std::string(buf.data()), out.substr(0, stored)) << cap;
      EXPECT_EQ(buf[cap], '#') << "wrote past the capacity " << cap;
    }
    ASSERT_EQ(kt_remove_primary_message_table(&status, &mc, &t.table), 0);
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
  Call c;
  kt_handle_message_context_error(&mc, Record, &c, -1, KT_WRONG_CODE);
  EXPECT_EQ(c.values, (std::vector<int>{1}));
  c.values.clear();
  kt_handle_message_context_error(&mc, Record, &c, (5 << 16) | 4, KT_TOO_FEW_STRINGS);
  EXPECT_EQ(c.values, (std::vector<int>{3, 5, 3}));
  c.values.clear();
  kt_handle_message_context_error(&mc, Record, &c, (5 << 16) | 4, KT_WRONG_CODE);
  EXPECT_EQ(c.values, (std::vector<int>{5, 5, 4}));
  c.values.clear();
  kt_handle_message_context_error(&mc, Record, &c, 5 << 16, KT_MSG_MODULE_COUNT_MISMATCH);
  EXPECT_EQ(c.values, (std::vector<int>{2, 5, 0}));
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

TEST(MessageContext, IdentifiersAreMade) {
  kt_message_context mc;
  int status;
  ASSERT_EQ(kt_initialize_message_context(&status, &mc, ktMalloc, ktRealloc), 0);
  char id[2048];
  EXPECT_STREQ(kt_make_message_identifier(id, &mc, KT_OMITTED_HOLE), "ZENTRA:OMITTED_HOLE");
  EXPECT_STREQ(kt_make_message_identifier(id, &mc, 999), "ZENTRA:BAD_MSG_CODE");
  kt_clear_message_context(&mc, ktFree);
}

}  // namespace
