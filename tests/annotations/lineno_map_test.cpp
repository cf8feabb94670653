// Line and column numbers: known answers for the map and the direct
// scanners (bytes and UTF-16 units); the map's arrays on random texts of
// LF, CR, CR LF, tabs, long and empty lines, and its allocations, through a
// counting memory context. Every offset of arbitrary text against a model
// is fuzz/linecol_fuzz.cpp's.
#include "kt/annotations.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "kt/contexts.h"
#include "support/counting_context.h"

namespace {

using Place = std::pair<size_t, size_t>;  // line, column

// Words, LF, CR, CR LF, LF CR, tabs, runs of empty lines, an occasional
// long line, and high bytes.
std::string RandomText(std::mt19937& rng) {
  const char* const pieces[] = {"\n", "\r", "\r\n", "\n\r",     "\t",
                                "\t\t", "\n\n\n", "\r\r\n", "\x8a\xe9"};
  std::string text;
  for (int n = static_cast<int>(rng() % 100); n > 0; --n) {
    unsigned kind = rng() % 100;
    if (kind < 50) text += pieces[rng() % 9];
    else if (kind < 52) text.append(200 + rng() % 1500, 'x');
    else text.append(1 + rng() % 12, static_cast<char>('a' + rng() % 26));
  }
  return text;
}

Place MapPlace(const kt_lineno_map& map, size_t offset) {
  size_t column = 0;
  size_t line = kt_find_line_and_column(&column, &map, offset);
  EXPECT_EQ(kt_find_line_and_column(nullptr, &map, offset), line);
  return {line, column};
}

// The three scanners agree; they see only the text before the offset.
template <class Unit>
Place Scan(const std::basic_string<Unit>& text, size_t offset) {
  size_t column = 0;
  Place place(kt_line_col(&column, text.data(), offset), column);
  EXPECT_EQ(kt_buf_line(text.data(), offset), place.first);
  EXPECT_EQ(kt_buf_column(text.data(), offset), place.second);
  return place;
}

// The map and the scanners side by side (they differ only at the LF of a
// CR LF pair: a CR just before the offset ends a line for a scanner); the
// map past the end, cleared, and zeroed.
TEST(LineColumn, KnownAnswers) {
  const struct {
    const char* text;
    size_t offset;
    Place map, scan;
  } cases[] = {{"ab\ncd", 0, {1, 1}, {1, 1}},        {"ab\ncd", 4, {2, 2}, {2, 2}},
               {"ab\r\ncd", 5, {2, 2}, {2, 2}},      {"ab\r\ncd", 3, {1, 4}, {2, 1}},
               {"\tx", 1, {1, 9}, {1, 9}},           {"abc\tx", 4, {1, 9}, {1, 9}},
               {"12345678\tx", 9, {1, 17}, {1, 17}}, {"a\n\r\n\rb", 5, {4, 1}, {4, 1}},
               {"", 0, {1, 1}, {1, 1}}};
  for (const auto& c : cases) {
    std::string text = c.text;
    SCOPED_TRACE(testing::PrintToString(text) + " @" + std::to_string(c.offset));
    kt_lineno_map map;
    kt_initialize_lineno_map(&map, ktGetMemoryContext(), text.data(), text.size());
    EXPECT_EQ(MapPlace(map, c.offset), c.map);
    for (size_t past : {text.size() + 1, SIZE_MAX}) EXPECT_EQ(MapPlace(map, past), Place(1, 1));
    kt_clear_lineno_map(&map);
    EXPECT_EQ(MapPlace(map, c.offset), Place(1, 1)) << "a cleared map";
    kt_clear_lineno_map(&map);  // twice is harmless
    EXPECT_EQ(Scan(text, c.offset), c.scan);
    EXPECT_EQ(Scan(std::u16string(text.begin(), text.end()), c.offset), c.scan);
  }
  kt_lineno_map zero{};
  EXPECT_EQ(MapPlace(zero, 0), Place(1, 1));
  // Units that hold a line end or a tab in one byte are one column.
  EXPECT_EQ(Scan(std::u16string(u"\u010A\u0A00\u0D0A\u0909\u2028x"), 6), Place(1, 7));
}

size_t g_reallocations = 0;
void* CountedReallocate(void* p, size_t size) {
  ++g_reallocations;
  return kttest::CountingReallocate(p, size);
}

// The arrays hold exactly the line starts and the tabs, each ended by the
// sentinel length + 1, in blocks fitted to them, grown by doubling (a text
// of nothing but line ends and tabs outgrows both first guesses). After
// exhaustion at any allocation of a build (OUT_OF_MEMORY) the map keeps
// what it got, answers line 1 column 1, and clearing frees it all.
TEST(LinenoMap, ArraysAreFittedDoubledAndFreedAfterExhaustion) {
  kttest::Contexts contexts;
  kt_mem_context memory;
  kt_initialize_memory_context(&memory, &contexts.errors, kttest::CountingAllocate,
                               CountedReallocate, kttest::CountingRelease);
  std::mt19937 rng(3);
  for (int round = 0; round < 20; ++round) {
    std::string text = RandomText(rng);
    for (int i = 0; round == 0 && i < 100000; ++i) text += "\n\t";
    std::vector<uint64_t> starts{0}, tabs;  // a CR LF pair ends a line after its LF
    for (size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '\n' || (text[i] == '\r' && text[i + 1] != '\n')) starts.push_back(i + 1);
      if (text[i] == '\t') tabs.push_back(i);
    }
    starts.push_back(text.size() + 1);
    tabs.push_back(text.size() + 1);

    g_reallocations = 0;
    kt_lineno_map map;
    kt_initialize_lineno_map(&map, &memory, text.data(), text.size());
    EXPECT_LT(g_reallocations, 40u);
    ASSERT_EQ(std::vector<uint64_t>(map.lineStarts, map.lineStarts + map.lineCount), starts);
    ASSERT_EQ(std::vector<uint64_t>(map.tabs, map.tabs + map.tabCount), tabs);
    EXPECT_EQ(kttest::Ledger().live[map.lineStarts], starts.size() * sizeof(uint64_t));
    EXPECT_EQ(kttest::Ledger().live[map.tabs], tabs.size() * sizeof(uint64_t));
    kt_clear_lineno_map(&map);
    EXPECT_EQ(contexts.LiveBlocks(), 0u);
  }
  std::string text(200, 'a');
  for (size_t i = 0; i < text.size(); i += 3) text[i] = i % 2 ? '\n' : '\t';
  int raised = 0;
  for (long failAfter = 0; failAfter < 64; ++failAfter) {
    kt_lineno_map map;
    kttest::Ledger().failAfter = failAfter;
    int code = contexts.Catch([&] { kt_initialize_lineno_map(&map, &memory, text.data(), text.size()); });
    kttest::Ledger().failAfter = -1;
    if (code != 0) {
      ++raised;
      EXPECT_EQ(code, KT_OUT_OF_MEMORY);
      EXPECT_EQ(MapPlace(map, 7), Place(1, 1));
    }
    kt_clear_lineno_map(&map);
    ASSERT_EQ(contexts.LiveBlocks(), 0u) << "after failing allocation " << failAfter;
  }
  EXPECT_GT(raised, 4);
  EXPECT_EQ(contexts.BadFrees(), 0);
}

}  // namespace
