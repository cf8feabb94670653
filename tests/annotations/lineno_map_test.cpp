// Line and column numbers: the map and the direct scanners against a
// model that replays the text one unit at a time, on random texts of LF,
// CR, CR LF, tabs, long and empty lines (bytes and UTF-16 code units);
// the map's arrays and allocations through a counting memory context.
#include "kt/annotations.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "kt/contexts.h"
#include "support/counting_context.h"

namespace {

struct Place {
  size_t line;
  size_t column;
  bool operator==(const Place& o) const { return line == o.line && column == o.column; }
};

std::ostream& operator<<(std::ostream& os, const Place& p) {
  return os << p.line << ":" << p.column;
}

// The place of every offset 0 .. size as the map sees it: a CR LF pair is
// one line end, after its LF.
template <class S>
std::vector<Place> ModelPlaces(const S& text) {
  std::vector<Place> places{{1, 1}};
  Place p{1, 1};
  for (size_t i = 0; i < text.size(); ++i) {
    auto u = text[i];
    bool crOfPair = u == '\r' && i + 1 < text.size() && text[i + 1] == '\n';
    if (u == '\n' || (u == '\r' && !crOfPair))
      p = {p.line + 1, 1};
    else if (u == '\t')
      p.column = ((p.column - 1) / 8 + 1) * 8 + 1;
    else
      ++p.column;
    places.push_back(p);
  }
  return places;
}

// A scanner sees only the text before the offset: the place of the end of
// that prefix, which differs from the map at the LF of a CR LF pair.
template <class S>
Place ModelScan(const S& text, const std::vector<Place>& places, size_t offset) {
  if (offset > 0 && offset < text.size() && text[offset - 1] == '\r' && text[offset] == '\n')
    return {places[offset].line + 1, 1};
  return places[offset];
}

// Random source-like text: words, LF, CR, CR LF, LF CR, tabs, runs of empty
// lines, an occasional long line, and `extra` units (high bytes, or UTF-16
// units that only resemble line ends and tabs in one byte).
template <class S>
S RandomText(std::mt19937& rng, const std::vector<typename S::value_type>& extra) {
  const char* const breaks[] = {"\n", "\r", "\r\n", "\n\r", "\t", "\t\t", "\n\n\n", "\r\r\n"};
  S text;
  int pieces = static_cast<int>(rng() % 100);
  for (int i = 0; i < pieces; ++i) {
    unsigned kind = rng() % 100;
    if (kind < 40) {
      for (const char* b = breaks[rng() % 8]; *b != '\0'; ++b) text += static_cast<typename S::value_type>(*b);
    } else if (kind < 42) {
      text.append(200 + rng() % 1500, 'x');
    } else if (kind < 55) {
      text += extra[rng() % extra.size()];
    } else {
      text.append(1 + rng() % 12, static_cast<typename S::value_type>('a' + rng() % 26));
    }
  }
  return text;
}

// Checks kt_line_col, kt_buf_line and kt_buf_column at every offset.
template <class S>
void ExpectScannersMatchModel(const S& text) {
  std::vector<Place> places = ModelPlaces(text);
  for (size_t offset = 0; offset <= text.size(); ++offset) {
    Place want = ModelScan(text, places, offset);
    size_t column = 0;
    Place got{kt_line_col(&column, text.data(), offset), column};
    ASSERT_EQ(got, want) << "kt_line_col at " << offset;
    ASSERT_EQ(kt_buf_line(text.data(), offset), want.line) << "at " << offset;
    ASSERT_EQ(kt_buf_column(text.data(), offset), want.column) << "at " << offset;
  }
}

Place MapPlace(const kt_lineno_map& map, size_t offset) {
  size_t column = 0;
  size_t line = kt_find_line_and_column(&column, &map, offset);
  EXPECT_EQ(kt_find_line_and_column(nullptr, &map, offset), line);
  return {line, column};
}

void ExpectMapMatchesModel(const kt_lineno_map& map, const std::string& text) {
  std::vector<Place> places = ModelPlaces(text);
  for (size_t offset = 0; offset <= text.size(); ++offset)
    ASSERT_EQ(MapPlace(map, offset), places[offset]) << "map at " << offset;
  for (size_t past : {text.size() + 1, text.size() + 4096, SIZE_MAX})
    ASSERT_EQ(MapPlace(map, past), (Place{1, 1})) << "past the end";
}

kt_lineno_map BuildMap(const std::string& text) {
  kt_lineno_map map;
  kt_initialize_lineno_map(&map, ktGetMemoryContext(), text.data(), text.size());
  return map;
}

TEST(LinenoMap, RandomTextsAtEveryOffset) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 60; ++round) {
    std::string text = RandomText<std::string>(rng, {'\x8a', '\x8d', '\x89', '\xe9', '\0', '\v'});
    kt_lineno_map map = BuildMap(text);
    ExpectMapMatchesModel(map, text);
    ExpectScannersMatchModel(text);
    kt_clear_lineno_map(&map);
    ASSERT_EQ(MapPlace(map, text.size() / 2), (Place{1, 1})) << "a cleared map";
    kt_clear_lineno_map(&map);  // twice is harmless
  }
}

TEST(LineScan, RandomUtf16TextsAtEveryOffset) {
  std::mt19937 rng(7);
  // Units whose low or high byte is LF, CR or tab, LINE SEPARATOR, a
  // surrogate pair's halves: all one column each, none a line end.
  std::vector<char16_t> extra = {0x010A, 0x0A00, 0x0D0A, 0x0A0D, 0x0909, 0x2028, 0xD83D, 0xDE00};
  for (int round = 0; round < 60; ++round) ExpectScannersMatchModel(RandomText<std::u16string>(rng, extra));
}

// Known answers, the two ways side by side (they differ only at the LF of
// a CR LF pair).
TEST(LineColumn, KnownAnswers) {
  struct Case {
    const char* text;
    size_t offset;
    Place map;
    Place scan;
  } cases[] = {
      {"ab\ncd", 0, {1, 1}, {1, 1}},     {"ab\ncd", 4, {2, 2}, {2, 2}},
      {"ab\r\ncd", 5, {2, 2}, {2, 2}},   {"ab\r\ncd", 3, {1, 4}, {2, 1}},
      {"\tx", 1, {1, 9}, {1, 9}},        {"abc\tx", 4, {1, 9}, {1, 9}},
      {"12345678\tx", 9, {1, 17}, {1, 17}}, {"a\rb", 2, {2, 1}, {2, 1}},
      {"a\n\r\n\rb", 5, {4, 1}, {4, 1}}, {"ab\r", 3, {2, 1}, {2, 1}},
  };
  for (const Case& c : cases) {
    std::string text = c.text;
    kt_lineno_map map = BuildMap(text);
    EXPECT_EQ(MapPlace(map, c.offset), c.map) << text << " @" << c.offset;
    size_t column = 0;
    EXPECT_EQ((Place{kt_line_col(&column, text.data(), c.offset), column}), c.scan)
        << text << " @" << c.offset;
    kt_clear_lineno_map(&map);
  }
}

// The arrays hold exactly the line starts and tabs, each ended by the
// sentinel length + 1, in blocks fitted to their entries; clearing frees
// both.
TEST(LinenoMap, ArraysAreFittedAndEndedBySentinels) {
  kttest::Contexts contexts;
  std::mt19937 rng(3);
  for (int round = 0; round < 20; ++round) {
    std::string text = RandomText<std::string>(rng, {'y'});
    std::vector<Place> places = ModelPlaces(text);
    std::vector<uint64_t> starts{0}, tabs;
    for (size_t i = 0; i < text.size(); ++i) {
      if (places[i + 1].line != places[i].line) starts.push_back(i + 1);
      if (text[i] == '\t') tabs.push_back(i);
    }
    starts.push_back(text.size() + 1);
    tabs.push_back(text.size() + 1);

    kt_lineno_map map;
    kt_initialize_lineno_map(&map, &contexts.memory, text.data(), text.size());
    EXPECT_EQ(map.memoryContext, &contexts.memory);
    EXPECT_EQ(map.length, text.size());
    ASSERT_EQ(std::vector<uint64_t>(map.lineStarts, map.lineStarts + map.lineCount), starts);
    ASSERT_EQ(std::vector<uint64_t>(map.tabs, map.tabs + map.tabCount), tabs);
    EXPECT_EQ(contexts.LiveBlocks(), 2u);
    EXPECT_EQ(kttest::Ledger().live[map.lineStarts], starts.size() * sizeof(uint64_t));
    EXPECT_EQ(kttest::Ledger().live[map.tabs], tabs.size() * sizeof(uint64_t));
    kt_clear_lineno_map(&map);
    EXPECT_EQ(map.lineStarts, nullptr);
    EXPECT_EQ(map.tabs, nullptr);
    EXPECT_EQ(contexts.LiveBlocks(), 0u);
  }
  EXPECT_EQ(contexts.BadFrees(), 0);
}

size_t g_reallocations = 0;
void* CountedReallocate(void* p, size_t size) {
  ++g_reallocations;
  return kttest::CountingReallocate(p, size);
}

// A text of nothing but line ends and tabs outgrows both first guesses
// many times over; the arrays must double, not creep.
TEST(LinenoMap, ArraysGrowGeometrically) {
  kttest::Contexts contexts;
  kt_mem_context memory;
  kt_initialize_memory_context(&memory, &contexts.errors, kttest::CountingAllocate,
                               CountedReallocate, kttest::CountingRelease);
  std::string text;
  for (int i = 0; i < 100000; ++i) text += "\n\t";
  g_reallocations = 0;
  kt_lineno_map map;
  kt_initialize_lineno_map(&map, &memory, text.data(), text.size());
  EXPECT_LT(g_reallocations, 40u);
  EXPECT_EQ(map.lineCount, 100002u);
  EXPECT_EQ(map.tabCount, 100001u);
  EXPECT_EQ(MapPlace(map, text.size()), (Place{100001, 9}));
  kt_clear_lineno_map(&map);
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
    int code = contexts.Catch([&] {
      kt_initialize_lineno_map(&map, &contexts.memory, text.data(), text.size());
    });
    kttest::Ledger().failAfter = -1;
    if (code == 0) {
      ExpectMapMatchesModel(map, text);
    } else {
      ++raised;
      EXPECT_EQ(code, KT_OUT_OF_MEMORY);
      EXPECT_EQ(MapPlace(map, 7), (Place{1, 1}));
    }
    kt_clear_lineno_map(&map);
    ASSERT_EQ(contexts.LiveBlocks(), 0u) << "after failing allocation " << failAfter;
  }
  EXPECT_GT(raised, 4);
  EXPECT_EQ(contexts.BadFrees(), 0);
}

TEST(LinenoMap, EmptyTextAndZeroFilledMap) {
  kt_lineno_map map = BuildMap("");
  EXPECT_EQ(map.lineCount, 2u);
  EXPECT_EQ(MapPlace(map, 0), (Place{1, 1}));
  kt_clear_lineno_map(&map);
  kt_lineno_map zero{};
  EXPECT_EQ(MapPlace(zero, 0), (Place{1, 1}));
  kt_clear_lineno_map(&zero);
}

}  // namespace
