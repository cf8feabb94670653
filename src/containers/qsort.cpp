// kt_qsort: quicksort with a caller context handed to the comparison.
//
// Every scan is bounded by the part being sorted and elements only ever
// move by exchange, so a comparison that is not a consistent three-way
// order (one that answers only 0 and 1, is not transitive, or is random)
// leaves the elements in some order but never reads or writes outside the
// array and never loses or duplicates an element.
#include <cstdint>
#include <cstring>

#include "kt/containers.h"
#include "kt/contexts.h"

namespace {

template <typename Word>
void SwapWords(char* a, char* b) {
  Word x, y;
  std::memcpy(&x, a, sizeof x);
  std::memcpy(&y, b, sizeof y);
  std::memcpy(a, &y, sizeof y);
  std::memcpy(b, &x, sizeof x);
}

struct Sorter {
  char* base;
  size_t size;
  void* context;
  kt_compare_function compare;
  char* temporary;  // one element, for exchanges

  char* at(long i) const { return base + static_cast<size_t>(i) * size; }

  int cmp(long a, long b) const { return compare(context, at(a), at(b)); }

  void swap(long a, long b) const {
    if (a == b)
      return;
    // Common scalar sizes go through a register instead of the temporary.
    if (size == 8) {
      SwapWords<uint64_t>(at(a), at(b));
      return;
    }
    if (size == 4) {
      SwapWords<uint32_t>(at(a), at(b));
      return;
    }
    std::memcpy(temporary, at(a), size);
    std::memcpy(at(a), at(b), size);
    std::memcpy(at(b), temporary, size);
  }

  // Orders first, middle and last so that the middle holds their median.
  void medianOfThree(long lo, long mid, long hi) const {
    if (cmp(mid, lo) < 0)
      swap(mid, lo);
    if (cmp(hi, lo) < 0)
      swap(hi, lo);
    if (cmp(hi, mid) < 0)
      swap(hi, mid);
  }

  // Partitions [lo, hi] (at least four elements) around the median of
  // three, parked at hi - 1; returns the pivot's final place, which lies
  // strictly inside (lo, hi). With a consistent comparison the scans stop
  // at the pivot and at lo by themselves; the index bounds keep any other
  // comparison inside the part.
  long partition(long lo, long hi) const {
    long mid = lo + (hi - lo) / 2;
    medianOfThree(lo, mid, hi);
    long pivot = hi - 1;
    swap(mid, pivot);
    long i = lo;
    long j = pivot;
    for (;;) {
      while (++i < pivot && cmp(i, pivot) < 0) {
      }
      while (--j > lo && cmp(j, pivot) > 0) {
      }
      if (i >= j)
        break;
      swap(i, j);
    }
    swap(i, pivot);
    return i;
  }

  // Sorts [lo, hi]: recursion on the smaller part, a loop on the larger,
  // so the stack stays logarithmic.
  void sort(long lo, long hi) const {
    while (hi - lo >= 3) {
      long p = partition(lo, hi);
      if (p - lo < hi - p) {
        sort(lo, p - 1);
        lo = p + 1;
      } else {
        sort(p + 1, hi);
        hi = p - 1;
      }
    }
    if (hi - lo == 2) {
      medianOfThree(lo, lo + 1, hi);
    } else if (hi - lo == 1 && cmp(hi, lo) < 0) {
      swap(lo, hi);
    }
  }
};

}  // namespace

extern "C" void kt_qsort(void* base, int count, size_t size, void* context,
                         kt_compare_function compare) {
  if (count < 2 || size == 0)
    return;
  // The temporary element always comes from the default memory context, so
  // a host that counts or limits that context sees it; exhaustion raises
  // OUT_OF_MEMORY there before anything moves.
  kt_mem_context* memory = ktGetMemoryContext();
  auto* temporary = static_cast<char*>(kt_mem_alloc(memory, size));
  Sorter sorter{static_cast<char*>(base), size, context, compare, temporary};
  try {
    sorter.sort(0, count - 1);
  } catch (...) {
    kt_mem_free(memory, temporary);
    throw;
  }
  kt_mem_free(memory, temporary);
}
