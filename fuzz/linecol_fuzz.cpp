// Line and column numbers of arbitrary bytes, and of the same bytes read as
// 16-bit code units, against a model that replays the text unit by unit.
//
// Checked: the map at every offset and past the end; the direct scanners
// (bytes and units) at offsets taken from the input, each on a copy of
// exactly the text before the offset, so that reading past it is caught.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "kt/annotations.h"
#include "kt/contexts.h"

namespace {

struct Place {
  size_t line;
  size_t column;
};

void Fail(const char* what, size_t offset) {
  std::fprintf(stderr, "linecol_fuzz: %s at offset %zu\n", what, offset);
  std::abort();
}

// The place of every offset 0 .. size as the map sees it (a CR LF pair is
// one line end, after its LF).
template <class T>
std::vector<Place> Model(const T* text, size_t size) {
  std::vector<Place> places{{1, 1}};
  Place p{1, 1};
  for (size_t i = 0; i < size; ++i) {
    bool crOfPair = text[i] == '\r' && i + 1 < size && text[i + 1] == '\n';
    if (text[i] == '\n' || (text[i] == '\r' && !crOfPair))
      p = {p.line + 1, 1};
    else
      p.column = text[i] == '\t' ? ((p.column - 1) / 8 + 1) * 8 + 1 : p.column + 1;
    places.push_back(p);
  }
  return places;
}

// The scanners see only the text before the offset: a CR just before it
// ends a line even when an LF follows.
template <class T>
void CheckScanners(const T* text, size_t size, const std::vector<Place>& places, size_t offset) {
  Place want = places[offset];
  if (offset > 0 && offset < size && text[offset - 1] == '\r' && text[offset] == '\n')
    want = {want.line + 1, 1};
  std::vector<T> prefix(text, text + offset);
  size_t column = 0;
  if (kt_line_col(&column, prefix.data(), offset) != want.line || column != want.column)
    Fail("kt_line_col", offset);
  if (kt_buf_line(prefix.data(), offset) != want.line) Fail("kt_buf_line", offset);
  if (kt_buf_column(prefix.data(), offset) != want.column) Fail("kt_buf_column", offset);
}

void CheckMap(const char* text, size_t size, const std::vector<Place>& places) {
  kt_lineno_map map;
  kt_initialize_lineno_map(&map, ktGetMemoryContext(), text, size);
  size_t column = 0;
  for (size_t offset = 0; offset <= size; ++offset) {
    size_t line = kt_find_line_and_column(&column, &map, offset);
    if (line != places[offset].line || column != places[offset].column) Fail("map", offset);
  }
  if (kt_find_line_and_column(&column, &map, size + 1) != 1 || column != 1)
    Fail("map past the end", size + 1);
  kt_clear_lineno_map(&map);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const char* text = reinterpret_cast<const char*>(data);
  std::vector<Place> places = Model(text, size);
  CheckMap(text, size, places);

  std::vector<char16_t> units(size / 2);
  if (!units.empty()) std::memcpy(units.data(), data, units.size() * 2);
  std::vector<Place> unitPlaces = Model(units.data(), units.size());

  // Offsets from the input's first bytes, and the ends.
  for (size_t k = 0; k < 8 && k < size; ++k) {
    size_t pick = data[k] * 31u + data[size - 1 - k];
    CheckScanners(text, size, places, pick % (size + 1));
    CheckScanners(units.data(), units.size(), unitPlaces, pick % (units.size() + 1));
  }
  CheckScanners(text, size, places, size);
  CheckScanners(units.data(), units.size(), unitPlaces, units.size());
  return 0;
}
