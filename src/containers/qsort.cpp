// kt_qsort: quicksort with a caller context handed to the comparison.
#include <cstring>

#include "kt/containers.h"

namespace {

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
    std::memcpy(temporary, at(a), size);
    std::memcpy(at(a), at(b), size);
    std::memcpy(at(b), temporary, size);
  }

  // Orders first, middle and last so that the middle holds their median;
  // the outer two then act as sentinels for the partition scans.
  void medianOfThree(long lo, long mid, long hi) const {
    if (cmp(mid, lo) < 0)
      swap(mid, lo);
    if (cmp(hi, lo) < 0)
      swap(hi, lo);
    if (cmp(hi, mid) < 0)
      swap(hi, mid);
  }

  // Partitions [lo, hi] (at least four elements) around the median of
  // three; returns the pivot's final place.
  long partition(long lo, long hi) const {
    long mid = lo + (hi - lo) / 2;
    medianOfThree(lo, mid, hi);
    swap(mid, hi - 1);  // park the pivot next to the upper sentinel
    long pivot = hi - 1;
    long i = lo;
    long j = hi - 1;
    for (;;) {
      while (cmp(++i, pivot) < 0) {
      }
      while (cmp(--j, pivot) > 0) {
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
  // One temporary element for the exchanges; small elements use the stack.
  char local[256];
  char* temporary = size <= sizeof local ? local : static_cast<char*>(ktMallocWithCheck(size));
  Sorter sorter{static_cast<char*>(base), size, context, compare, temporary};
  try {
    sorter.sort(0, count - 1);
  } catch (...) {
    if (temporary != local)
      ktFree(temporary);
    throw;
  }
  if (temporary != local)
    ktFree(temporary);
}
