// Sets: ordered sequences of element pointers with a remembered current
// position and walks that survive changes made by their own callback.
#include <cstring>

#include "kt/containers.h"

namespace {

constexpr int64_t kNone = -1;

size_t SizeOf(const ktSet* set) { return static_cast<size_t>(set->end - set->begin); }

void ResetCurrent(ktSet* set) {
  set->current = nullptr;
  set->currentIndex = kNone;
}

void MakeCurrent(ktSet* set, size_t index) {
  set->current = set->begin[index];
  set->currentIndex = static_cast<int64_t>(index);
}

// Index of the first occurrence of `element`, or -1.
int64_t FindFirst(const ktSet* set, const void* element) {
  size_t n = SizeOf(set);
  for (size_t i = 0; i < n; ++i)
    if (set->begin[i] == element)
      return static_cast<int64_t>(i);
  return kNone;
}

// Storage grows by doubling, at least one slot, as a standard vector does.
void Grow(ktSet* set) {
  size_t size = SizeOf(set);
  size_t capacity = static_cast<size_t>(set->capacityEnd - set->begin);
  size_t fresh = capacity ? capacity * 2 : 1;
  auto* storage = static_cast<void**>(ktReallocWithCheck(set->begin, fresh * sizeof(void*)));
  set->begin = storage;
  set->end = storage + size;
  set->capacityEnd = storage + fresh;
}

// A running walk index and a set current index at or above p follow the
// elements they refer to.
void AdjustIndexes(ktSet* set, size_t p, int delta) {
  if (set->walkIndex != -1 && set->walkIndex >= static_cast<int64_t>(p))
    set->walkIndex += delta;
  if (set->currentIndex != kNone && set->currentIndex >= static_cast<int64_t>(p))
    set->currentIndex += delta;
}

void InsertAt(ktSet* set, size_t p, void* element) {
  if (set->end == set->capacityEnd)
    Grow(set);
  std::memmove(set->begin + p + 1, set->begin + p, (SizeOf(set) - p) * sizeof(void*));
  set->begin[p] = element;
  set->end++;
  AdjustIndexes(set, p, +1);
}

void EraseAt(ktSet* set, size_t p) {
  std::memmove(set->begin + p, set->begin + p + 1, (SizeOf(set) - p - 1) * sizeof(void*));
  set->end--;
  AdjustIndexes(set, p, -1);
}

// Where an insertion relative to `reference` goes: the current position
// when the reference is the current element, else its first occurrence;
// -1 when it is not in the set.
int64_t ReferencePosition(const ktSet* set, const void* reference) {
  if (reference == set->current && set->currentIndex != kNone)
    return set->currentIndex;
  return FindFirst(set, reference);
}

// Resets the walk index on every way out, also when the callback raises.
struct WalkGuard {
  ktSet* set;
  ~WalkGuard() { set->walkIndex = -1; }
};

}  // namespace

extern "C" ktSet* ktCreateSet(void) {
  auto* set = static_cast<ktSet*>(ktMallocWithCheck(sizeof(ktSet)));
  set->begin = nullptr;
  set->end = nullptr;
  set->capacityEnd = nullptr;
  ResetCurrent(set);
  set->walkIndex = -1;
  return set;
}

extern "C" void ktDestroySet(ktSet* set) {
  if (set == nullptr)
    return;
  ktFree(set->begin);
  ktFree(set);
}

extern "C" void ktDestroyNonEmptySet(ktSet* set) { ktDestroySet(set); }

extern "C" size_t ktGetNumElementsInSet(const ktSet* set) { return SizeOf(set); }

extern "C" int ktIsElementInSet(void* element, ktSet* set) {
  if (element == nullptr)
    return 0;
  if (element == set->current)
    return 1;
  for (void** p = set->end; p != set->begin;)
    if (*--p == element)
      return 1;
  return 0;
}

extern "C" int ktAddElementToEndOfSet(void* element, ktSet* set) {
  InsertAt(set, SizeOf(set), element);
  return 1;
}

extern "C" int ktAddElementToSet(void* element, ktSet* set) {
  InsertAt(set, 0, element);
  return 1;
}

extern "C" int ktPutElementAtFrontOfSet(void* element, ktSet* set) {
  ktRemoveElementFromSet(element, set);
  return ktAddElementToSet(element, set);
}

extern "C" void ktRemoveElementFromSet(void* element, ktSet* set) {
  int64_t i = FindFirst(set, element);
  if (i == kNone)
    return;
  if (element == set->current)
    ResetCurrent(set);
  EraseAt(set, static_cast<size_t>(i));
}

extern "C" int ktInsertSetElementAfter(ktSet* set, void* reference, void* element) {
  if (reference == nullptr) {
    ResetCurrent(set);
    InsertAt(set, SizeOf(set), element);
    return 1;
  }
  int64_t i = ReferencePosition(set, reference);
  // A reference that is not in the set appends.
  size_t p = i == kNone ? SizeOf(set) : static_cast<size_t>(i) + 1;
  InsertAt(set, p, element);
  return 1;
}

extern "C" int ktInsertSetElementBefore(ktSet* set, void* reference, void* element) {
  int64_t i = reference ? ReferencePosition(set, reference) : kNone;
  size_t p = i == kNone ? SizeOf(set) : static_cast<size_t>(i);
  InsertAt(set, p, element);
  return 1;
}

extern "C" void* ktGetSetElementAt(const ktSet* set, size_t index) {
  return index < SizeOf(set) ? set->begin[index] : nullptr;
}

extern "C" void* ktGetNextSetElement(ktSet* set, void* element) {
  size_t n = SizeOf(set);
  if (element == nullptr) {
    if (n == 0) {
      ResetCurrent(set);
      return nullptr;
    }
    MakeCurrent(set, 0);
    return set->current;
  }
  if (element == set->current) {
    size_t next = static_cast<size_t>(set->currentIndex) + 1;
    if (next >= n) {
      ResetCurrent(set);
      return nullptr;
    }
    MakeCurrent(set, next);
    return set->current;
  }
  int64_t i = FindFirst(set, element);
  if (i == kNone)
    return set->current;  // unknown element: the current one, unchanged
  if (static_cast<size_t>(i) + 1 == n) {
    ResetCurrent(set);
    return nullptr;
  }
  MakeCurrent(set, static_cast<size_t>(i) + 1);
  return set->current;
}

extern "C" void* ktGetPrevSetElement(ktSet* set, void* element) {
  size_t n = SizeOf(set);
  if (element == nullptr) {
    if (n == 0)
      return nullptr;
    MakeCurrent(set, n - 1);
    return set->current;
  }
  if (element == set->current) {
    if (set->currentIndex == 0) {
      ResetCurrent(set);
      return nullptr;
    }
    MakeCurrent(set, static_cast<size_t>(set->currentIndex) - 1);
    return set->current;
  }
  int64_t i = FindFirst(set, element);
  if (i == kNone)
    return set->current;
  if (i == 0) {
    ResetCurrent(set);
    return nullptr;
  }
  MakeCurrent(set, static_cast<size_t>(i) - 1);
  return set->current;
}

extern "C" int ktToEachSetElement(ktSet* set, ktSetElementFunction function, void* argument1,
                                  void* argument2) {
  WalkGuard guard{set};
  int calls = 0;
  // The size is read again after every call and the walk index, which
  // insertions and removals adjust, says where to continue.
  for (int64_t i = 0; i < static_cast<int64_t>(SizeOf(set)); i = set->walkIndex + 1) {
    set->walkIndex = static_cast<int32_t>(i);
    function(set->begin[i], argument1, argument2);
    ++calls;
  }
  return calls;
}

extern "C" int ktToEachSetElementBackward(ktSet* set, ktSetElementFunction function,
                                          void* argument1, void* argument2) {
  WalkGuard guard{set};
  int calls = 0;
  for (int64_t i = static_cast<int64_t>(SizeOf(set)) - 1; i >= 0; i = set->walkIndex - 1) {
    if (i >= static_cast<int64_t>(SizeOf(set)))
      i = static_cast<int64_t>(SizeOf(set)) - 1;  // the callback shortened the set
    if (i < 0)
      break;
    set->walkIndex = static_cast<int32_t>(i);
    function(set->begin[i], argument1, argument2);
    ++calls;
  }
  return calls;
}
