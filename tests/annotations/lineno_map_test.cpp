// Line and column numbers: the map and the direct scanners against a model
// that replays the text unit by unit, on random texts of LF, CR, CR LF,
// tabs, long and empty lines (bytes and UTF-16 units); the map's arrays
// and allocations through a counting memory context.
#include "kt/annotations.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "kt/contexts.h"
#include "support/counting_context.h"

namespace {

using Place = std::pair<size_t, size_t>;  // line, column

// The place of every offset 0 .. size as the map sees it: a CR LF pair is
// one line end, after its LF.
template <class S>
std::vector<Place> Model(const S& text) {
  std::vector<Place> places{{1, 1}};
  for (size_t i = 0; i < text.size(); ++i) {
    auto [line, column] = places.back();
    bool crOfPair = text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
    if (text[i] == '\n' || (text[i] == '\r' && !crOfPair))
      places.emplace_back(line + 1, 1);
    else
      places.emplace_back(line, text[i] == '\t' ? ((column - 1) / 8 + 1) * 8 + 1 : column + 1);
  }
  return places;
}

// Words, LF, CR, CR LF, LF CR, tabs, runs of empty lines, an occasional
// long line, and `extra` units (high bytes; UTF-16 units that resemble a
// line end or a tab in one byte, which are one column like any other).
template <class S>
S RandomText(std::mt19937& rng, const std::vector<typename S::value_type>& extra) {
  const char* const breaks[] = {"\n", "\r", "\r\n", "\n\r", "\t", "\t\t", "\n\n\n", "\r\r\n"};
  S text;
  for (int pieces = static_cast<int>(rng() % 100); pieces > 0; --pieces) {
    unsigned kind = rng() % 100;
    if (kind < 40)
      for (const char* b = breaks[rng() % 8]; *b != '\0'; ++b)
        text += static_cast<typename S::value_type>(*b);
    else if (kind < 42)
      text.append(200 + rng() % 1500, 'x');
    else if (kind < 55)
      text += extra[rng() % extra.size()];
    else
      text.append(1 + rng() % 12, static_cast<typename S::value_type>('a' + rng() % 26));
  }
  return text;
}

// Scanners see only the text before the offset: a CR just before it is a
// line end even when an LF follows.
template <class S>
void ExpectScannersMatchModel(const S& text) {
  std::vector<Place> places = Model(text);
  for (size_t offset = 0; offset <= text.size(); ++offset) {
    Place want = places[offset];
    if (offset > 0 && offset < text.size() && text[offset - 1] == '\r' && text[offset] == '\n')
      want = {want.first + 1, 1};
    size_t column = 0;
    ASSERT_EQ(Place(kt_line_col(&column, text.data(), offset), column), want) << "@" << offset;
    ASSERT_EQ(kt_buf_line(text.data(), offset), want.first) << "@" << offset;
    ASSERT_EQ(kt_buf_column(text.data(), offset), want.second) << "@" << offset;
  }
}

Place MapPlace(const kt_lineno_map& map, size_t offset) {
  size_t column = 0;
  size_t line = kt_find_line_and_column(&column, &map, offset);
  EXPECT_EQ(kt_find_line_and_column(nullptr, &map, offset), line);
  return {line, column};
}

TEST(LineColumn, RandomTextsAtEveryOffset) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 60; ++round) {
    std::string text = round == 0 ? "" : RandomText<std::string>(rng, {'\x8a', '\xe9', '\0'});
    kt_lineno_map map;
    kt_initialize_lineno_map(&map, ktGetMemoryContext(), text.data(), text.size());
    std::vector<Place> places = Model(text);
    for (size_t offset = 0; offset <= text.size(); ++offset)
      ASSERT_EQ(MapPlace(map, offset), places[offset]) << "map @" << offset;
    for (size_t past : {text.size() + 1, SIZE_MAX}) ASSERT_EQ(MapPlace(map, past), Place(1, 1));
    ExpectScannersMatchModel(text);
    kt_clear_lineno_map(&map);
    ASSERT_EQ(MapPlace(map, text.size() / 2), Place(1, 1)) << "a cleared map";
    kt_clear_lineno_map(&map);  // twice is harmless
  }
  kt_lineno_map zero{};
  EXPECT_EQ(MapPlace(zero, 0), Place(1, 1));
  std::vector<char16_t> extra = {0x010A, 0x0A00, 0x0D0A, 0x0A0D, 0x0909, 0x2028, 0xD83D, 0xDE00};
  for (int round = 0; round < 60; ++round)
    ExpectScannersMatchModel(RandomText<std::u16string>(rng, extra));
}

// Known answers, the map and a scanner side by side (they differ only at
// the LF of a CR LF pair).
TEST(LineColumn, KnownAnswers) {
  const struct {
    const char* text;
    size_t offset;
    Place map, scan;
  } cases[] = {{"ab\ncd", 0, {1, 1}, {1, 1}},        {"ab\ncd", 4, {2, 2}, {2, 2}},
               {"ab\r\ncd", 5, {2, 2}, {2, 2}},      {"ab\r\ncd", 3, {1, 4}, {2, 1}},
               {"\tx", 1, {1, 9}, {1, 9}},           {"abc\tx", 4, {1, 9}, {1, 9}},
               {"12345678\tx", 9, {1, 17}, {1, 17}}, {"a\n\r\n\rb", 5, {4, 1}, {4, 1}}};
  for (const auto& c : cases) {
    std::string text = c.text;
    kt_lineno_map map;
    kt_initialize_lineno_map(&map, ktGetMemoryContext(), text.data(), text.size());
    EXPECT_EQ(MapPlace(map, c.offset), c.map) << text << " @" << c.offset;
    size_t column = 0;
    EXPECT_EQ(Place(kt_line_col(&column, text.data(), c.offset), column), c.scan) << text;
    kt_clear_lineno_map(&map);
  }
}

size_t g_reallocations = 0;
void* CountedReallocate(void* p, size_t size) {
  ++g_reallocations;
  return kttest::CountingReallocate(p, size);
}

// The arrays hold exactly the line starts and the tabs, each ended by the
// sentinel length + 1, in blocks fitted to them, grown by doubling (a text
// of nothing but line ends and tabs outgrows both first guesses).
TEST(LinenoMap, ArraysAreFittedDoubledAndEndedBySentinels) {
  kttest::Contexts contexts;
  kt_mem_context memory;
  kt_initialize_memory_context(&memory, &contexts.errors, kttest::CountingAllocate,
                               CountedReallocate, kttest::CountingRelease);
  std::mt19937 rng(3);
  for (int round = 0; round < 20; ++round) {
    std::string text = RandomText<std::string>(rng, {'y'});
    for (int i = 0; round == 0 && i < 100000; ++i) text += "\n\t";
    std::vector<Place> places = Model(text);
    std::vector<uint64_t> starts{0}, tabs;
    for (size_t i = 0; i < text.size(); ++i) {
      if (places[i + 1].first != places[i].first) starts.push_back(i + 1);
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
  EXPECT_EQ(contexts.BadFrees(), 0);
}

// Exhaustion at each allocation of a build raises OUT_OF_MEMORY; the map
// keeps what it got, answers line 1 column 1, and clearing frees it all.
TEST(LinenoMap, ExhaustionAtEachAllocationLeavesAClearableMap) {
  kttest::Contexts contexts;
  std::string text(200, 'a');
  for (size_t i = 0; i < text.size(); i += 3) text[i] = i % 2 ? '\n' : '\t';
  int raised = 0;
  for (long failAfter = 0; failAfter < 64; ++failAfter) {
    kt_lineno_map map;
    kttest::Ledger().failAfter = failAfter;
    int code = contexts.Catch(
        [&] { kt_initialize_lineno_map(&map, &contexts.memory, text.data(), text.size()); });
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
