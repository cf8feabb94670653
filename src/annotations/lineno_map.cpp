// The line map: offsets of line starts and tabs of one text, so that a
// lookup is two binary searches and a walk over the tabs before the offset.
#include <cstdint>

#include "kt/annotations.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

// The arrays being filled and their capacities; the map's own fields hold
// the pointers and counts throughout, so that a raise from an allocation
// leaves everything allocated so far reachable for kt_clear_lineno_map.
struct MapBuilder {
  kt_lineno_map* map;
  const unsigned char* text;
  size_t length;
  size_t lineCapacity;
  size_t tabCapacity;
};

uint64_t* Resize(kt_mem_context* memory, uint64_t* array, size_t entries) {
  return static_cast<uint64_t*>(kt_mem_realloc(memory, array, entries * sizeof(uint64_t)));
}

__attribute__((noinline)) void Grow(kt_mem_context* memory, uint64_t** array, size_t* capacity) {
  *capacity *= 2;
  *array = Resize(memory, *array, *capacity);
}

inline void Append(kt_mem_context* memory, uint64_t** array, uint64_t* count, size_t* capacity,
                   uint64_t value) {
  if (*count == *capacity) Grow(memory, array, capacity);
  (*array)[(*count)++] = value;
}

inline void AppendLineStart(MapBuilder& b, uint64_t offset) {
  kt_lineno_map* m = b.map;
  Append(m->memoryContext, &m->lineStarts, &m->lineCount, &b.lineCapacity, offset);
}

inline void AppendTab(MapBuilder& b, uint64_t offset) {
  kt_lineno_map* m = b.map;
  Append(m->memoryContext, &m->tabs, &m->tabCount, &b.tabCapacity, offset);
}

inline bool IsSpecial(unsigned char c) { return c == '\n' || c == '\r' || c == '\t'; }

// Records the LF, CR or tab at `at`; returns the first offset not yet
// consumed (past the LF of a CR LF pair, which is one line end).
inline size_t Record(MapBuilder& b, size_t at) {
  unsigned char c = b.text[at];
  if (c == '\t') {
    AppendTab(b, at);
    return at + 1;
  }
  if (c == '\r' && at + 1 < b.length && b.text[at + 1] == '\n') {
    AppendLineStart(b, at + 2);
    return at + 2;
  }
  AppendLineStart(b, at + 1);
  return at + 1;
}

// Byte by byte from `from`; offsets below `next` were consumed already.
void ScanBytes(MapBuilder& b, size_t from, size_t next) {
  for (size_t at = from; at < b.length; ++at)
    if (at >= next && IsSpecial(b.text[at])) next = Record(b, at);
}

#if defined(__SSE2__)
// Bit i set where byte i of the 16 at `p` is an LF, CR or tab.
inline uint64_t SpecialBits16(const unsigned char* p) {
  const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
  const __m128i hits = _mm_or_si128(
      _mm_or_si128(_mm_cmpeq_epi8(v, _mm_set1_epi8('\n')), _mm_cmpeq_epi8(v, _mm_set1_epi8('\r'))),
      _mm_cmpeq_epi8(v, _mm_set1_epi8('\t')));
  return static_cast<unsigned>(_mm_movemask_epi8(hits));
}

// Sixty-four bytes at a time: one mask of the LF, CR and tab positions per
// block, then one Record per set bit. A block of source text holds one or
// two line ends, so the bit loop runs about once per block.
void Scan(MapBuilder& b) {
  size_t next = 0;
  size_t block = 0;
  for (; block + 64 <= b.length; block += 64) {
    const unsigned char* p = b.text + block;
    uint64_t mask = SpecialBits16(p) | SpecialBits16(p + 16) << 16 | SpecialBits16(p + 32) << 32 |
                    SpecialBits16(p + 48) << 48;
    while (mask != 0) {
      size_t at = block + static_cast<size_t>(__builtin_ctzll(mask));
      mask &= mask - 1;
      if (at >= next) next = Record(b, at);
    }
  }
  ScanBytes(b, block, next);
}
#else
void Scan(MapBuilder& b) { ScanBytes(b, 0, 0); }
#endif

// Fits an array to its entries plus the sentinel, and appends the sentinel.
void Seal(kt_mem_context* memory, uint64_t** array, uint64_t* count, uint64_t sentinel) {
  *array = Resize(memory, *array, *count + 1);
  (*array)[(*count)++] = sentinel;
}

bool IsBuilt(const kt_lineno_map* map) {
  uint64_t end = map->length + 1;
  return map->lineStarts != nullptr && map->lineCount > 0 && map->tabs != nullptr &&
         map->tabCount > 0 && map->lineStarts[map->lineCount - 1] == end &&
         map->tabs[map->tabCount - 1] == end;
}

// Index of the last of the `count` (at least 1) ascending entries below
// `key`, or -1 when there is none. Branch-free: each halving step moves by
// a mask instead of a jump that random lookups would mispredict.
ptrdiff_t LastBelow(const uint64_t* entries, size_t count, uint64_t key) {
  const uint64_t* base = entries;
  for (size_t n = count; n > 1; n -= n / 2) {
    size_t half = n / 2;
    base += half & (0 - static_cast<size_t>(base[half] < key));
  }
  return (base - entries) - (*base < key ? 0 : 1);
}

// Index of the line holding `offset`: the last start at or below it (the
// offset is at most the length, so offset + 1 does not wrap).
size_t LineIndex(const kt_lineno_map* map, uint64_t offset) {
  return static_cast<size_t>(LastBelow(map->lineStarts, map->lineCount, offset + 1));
}

// Column of `offset` in the line starting at `start`: the stretches between
// tabs count one per byte, each tab moves to the next multiple of 8.
size_t ColumnInLine(const kt_lineno_map* map, uint64_t start, uint64_t offset) {
  if (offset == start) return 1;
  // The first tab at or after the line start.
  const uint64_t* tab = map->tabs + LastBelow(map->tabs, map->tabCount, start) + 1;
  uint64_t c = 0;
  uint64_t at = start;
  for (; *tab < offset; ++tab) {  // the sentinel, length + 1, ends the walk
    c += *tab - at;
    c = (c + 8) - (c + 8) % 8;
    at = *tab + 1;
  }
  return static_cast<size_t>(c + (offset - at) + 1);
}

}  // namespace

extern "C" {

void kt_initialize_lineno_map(kt_lineno_map* map, kt_mem_context* memoryContext, const char* text,
                              size_t length) {
  *map = kt_lineno_map{memoryContext, 0, nullptr, 0, nullptr, length};
  MapBuilder b = {map, reinterpret_cast<const unsigned char*>(text), length, length / 8 + 3,
                  (length / 8) / 3 + 1};
  map->lineStarts = Resize(memoryContext, nullptr, b.lineCapacity);
  map->tabs = Resize(memoryContext, nullptr, b.tabCapacity);
  AppendLineStart(b, 0);
  Scan(b);
  Seal(memoryContext, &map->lineStarts, &map->lineCount, length + 1);
  Seal(memoryContext, &map->tabs, &map->tabCount, length + 1);
}

void kt_clear_lineno_map(kt_lineno_map* map) {
  if (map->lineStarts != nullptr) kt_mem_free(map->memoryContext, map->lineStarts);
  if (map->tabs != nullptr) kt_mem_free(map->memoryContext, map->tabs);
  map->lineStarts = nullptr;
  map->tabs = nullptr;
  map->lineCount = 0;
  map->tabCount = 0;
}

size_t kt_find_line_and_column(size_t* column, const kt_lineno_map* map, size_t offset) {
  if (offset > map->length || !IsBuilt(map)) {
    if (column != nullptr) *column = 1;
    return 1;
  }
  size_t line = LineIndex(map, offset);
  if (column != nullptr) *column = ColumnInLine(map, map->lineStarts[line], offset);
  return line + 1;
}

}  // extern "C"
