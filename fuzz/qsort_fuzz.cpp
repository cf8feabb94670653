// kt_qsort with fuzzed element sizes, contents and comparisons, consistent
// or not. Input: element size, count, comparison mode, comparison bytes,
// then the elements.
//
// Checked: the array is allocated at its exact size, so any access outside
// it is caught by the sanitizer, and the comparison aborts on an address
// that is not an element of the array; the array keeps the same multiset
// of elements whatever the comparison answers; with a consistent
// comparison the result is sorted.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kt/containers.h"

namespace {

void Fail(const char* what) {
  std::fprintf(stderr, "qsort_fuzz: %s\n", what);
  std::abort();
}

struct Comparison {
  const char* begin;
  size_t size;
  int count;
  int mode;
  size_t width;                 // bytes compared, at most the size
  std::vector<int8_t> answers;  // for the answer-stream mode
  size_t next = 0;
};

int CompareBytes(const Comparison& c, const void* a, const void* b) {
  return std::memcmp(a, b, c.width);
}

int Compare(void* context, const void* a, const void* b) {
  auto* c = static_cast<Comparison*>(context);
  for (const void* e : {a, b}) {
    long offset = static_cast<const char*>(e) - c->begin;
    if (offset < 0 || offset >= static_cast<long>(c->size) * c->count ||
        offset % static_cast<long>(c->size) != 0)
      Fail("comparison handed an address outside the array");
  }
  int order = CompareBytes(*c, a, b);
  switch (c->mode) {
    case 0: return order;                   // consistent
    case 1: return order < 0 ? 1 : (order > 0 ? -1 : 0);  // consistent, descending
    case 2: return order > 0;               // only 0 and 1
    case 3: return c->answers.empty() ? 1 : c->answers[0];  // constant
    case 4: {                               // an answer stream from the input
      if (c->answers.empty())
        return 0;
      return c->answers[c->next++ % c->answers.size()];
    }
    default: {                              // cyclic on the first byte: not transitive
      int d = (static_cast<unsigned char>(*static_cast<const char*>(a)) -
               static_cast<unsigned char>(*static_cast<const char*>(b)) + 300) % 3;
      return d == 0 ? 0 : (d == 1 ? 1 : -1);
    }
  }
}

std::vector<std::string> Elements(const char* array, int count, size_t size) {
  std::vector<std::string> out;
  for (int i = 0; i < count; ++i)
    out.emplace_back(array + static_cast<size_t>(i) * size, size);
  std::sort(out.begin(), out.end());
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  size_t elementSize = in.ConsumeBool() ? in.ConsumeIntegralInRange<size_t>(1, 16)
                                        : in.ConsumeIntegralInRange<size_t>(17, 300);
  int count = in.ConsumeIntegralInRange<int>(0, 600);
  Comparison c{nullptr, elementSize, count, in.ConsumeIntegralInRange<int>(0, 5),
               in.ConsumeIntegralInRange<size_t>(1, elementSize), {}};
  size_t answers = in.ConsumeIntegralInRange<size_t>(0, 64);
  for (size_t i = 0; i < answers; ++i)
    c.answers.push_back(static_cast<int8_t>(in.ConsumeIntegralInRange<int>(-2, 2)));
  // The elements: the rest of the input repeated (a short input still gives
  // many equal elements), in an array of exactly the needed size.
  std::vector<uint8_t> rest = in.ConsumeRemainingBytes<uint8_t>();
  size_t bytes = static_cast<size_t>(count) * elementSize;
  char* array = static_cast<char*>(std::malloc(bytes ? bytes : 1));
  for (size_t i = 0; i < bytes; ++i)
    array[i] = static_cast<char>(rest.empty() ? i % 7 : rest[i % rest.size()] + i / rest.size());
  c.begin = array;
  std::vector<std::string> before = Elements(array, count, elementSize);
  kt_qsort(array, count, elementSize, &c, Compare);
  if (Elements(array, count, elementSize) != before) Fail("the multiset of elements changed");
  if (c.mode <= 1) {
    for (int i = 1; i < count; ++i) {
      int order = CompareBytes(c, array + (i - 1) * elementSize, array + i * elementSize);
      if (c.mode == 0 ? order > 0 : order < 0) Fail("not sorted under a consistent comparison");
    }
  }
  std::free(array);
  return 0;
}
