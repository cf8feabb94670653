// Sets with duplicate elements, walks whose callback changes the set, and
// growable tables. Random operation sequences against std models live in
// fuzz/sets_fuzz.cpp.
#include <map>
#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "support/counting_context.h"
#include "kt/containers.h"

namespace {

using kttest::Contexts;

void* Item(int i) { return reinterpret_cast<void*>(static_cast<intptr_t>(i) * 16 + 16); }

std::vector<void*> Contents(const ktSet* set) { return std::vector<void*>(set->begin, set->end); }

TEST(Sets, CurrentElementRulesWithDuplicates) {
  ktSet* set = ktCreateSet();
  EXPECT_EQ(ktGetNextSetElement(set, nullptr), nullptr);
  EXPECT_EQ(ktGetPrevSetElement(set, nullptr), nullptr);
  EXPECT_EQ(ktIsElementInSet(nullptr, set), 0);
  void *a = Item(1), *b = Item(2), *c = Item(3);
  for (void* e : {a, b, a, c})
    ktAddElementToEndOfSet(e, set);
  // Walk to the second `a` through the current position.
  EXPECT_EQ(ktGetNextSetElement(set, nullptr), a);
  EXPECT_EQ(ktGetNextSetElement(set, a), b);
  EXPECT_EQ(ktGetNextSetElement(set, b), a);
  EXPECT_EQ(set->currentIndex, 2);
  // The current `a` is found by position, not by first occurrence.
  ktInsertSetElementAfter(set, a, Item(9));
  EXPECT_EQ(Contents(set), (std::vector<void*>{a, b, a, Item(9), c}));
  ktInsertSetElementBefore(set, a, Item(8));
  EXPECT_EQ(Contents(set), (std::vector<void*>{a, b, Item(8), a, Item(9), c}));
  EXPECT_EQ(set->currentIndex, 3);
  // An element not in the set: the current element comes back unchanged.
  EXPECT_EQ(ktGetNextSetElement(set, Item(77)), a);
  EXPECT_EQ(ktGetPrevSetElement(set, Item(77)), a);
  // Removing the current value resets the position.
  ktRemoveElementFromSet(a, set);
  EXPECT_EQ(set->current, nullptr);
  EXPECT_EQ(set->currentIndex, -1);
  // A null reference appends and resets the current element.
  EXPECT_EQ(ktGetNextSetElement(set, nullptr), b);
  ktInsertSetElementAfter(set, nullptr, Item(5));
  EXPECT_EQ(set->current, nullptr);
  EXPECT_EQ(Contents(set).back(), Item(5));
  EXPECT_EQ(ktGetSetElementAt(set, ktGetNumElementsInSet(set)), nullptr);
  // Past the end and before the start.
  EXPECT_EQ(ktGetNextSetElement(set, Item(5)), nullptr);
  EXPECT_EQ(ktGetPrevSetElement(set, b), nullptr);
  EXPECT_EQ(set->current, nullptr);
  ktDestroyNonEmptySet(set);
  ktDestroySet(nullptr);
}

// State shared with the walk callback. `expected` holds the elements the
// walk must visit once each: those present at its start and those appended,
// less those removed before their turn; never those added at the front.
struct Walk {
  ktSet* set = nullptr;
  std::mt19937 rng;
  std::map<void*, int> visits;
  std::set<void*> expected;
  int nextId = 100000;
};

void ChangeDuringWalk(void* element, void* argument, void*) {
  auto* w = static_cast<Walk*>(argument);
  w->visits[element]++;
  unsigned op = w->rng() % 6;
  if (op == 0) {
    ktRemoveElementFromSet(element, w->set);  // the element being visited
  } else if (op == 1) {
    w->expected.insert(Item(w->nextId));
    ktAddElementToEndOfSet(Item(w->nextId++), w->set);
  } else if (op == 2) {
    ktAddElementToSet(Item(w->nextId++), w->set);  // before the walk position
  } else if (op == 3 && ktGetNumElementsInSet(w->set) > 0) {
    void* e = ktGetSetElementAt(w->set, w->rng() % ktGetNumElementsInSet(w->set));
    if (w->visits.count(e) == 0)
      w->expected.erase(e);
    ktRemoveElementFromSet(e, w->set);
  }
}

TEST(Sets, ForwardWalkSurvivesChangesByItsCallback) {
  for (unsigned round = 0; round < 50; ++round) {
    Walk w;
    w.set = ktCreateSet();
    w.rng.seed(round);
    for (int i = 0; i < 60; ++i) {
      w.expected.insert(Item(i));
      ktAddElementToEndOfSet(Item(i), w.set);
    }
    int calls = ktToEachSetElement(w.set, ChangeDuringWalk, &w, nullptr);
    EXPECT_EQ(w.set->walkIndex, -1);
    std::set<void*> visited;
    for (auto& [element, count] : w.visits) {
      EXPECT_EQ(count, 1) << "visited twice";
      visited.insert(element);
    }
    EXPECT_EQ(visited, w.expected);
    EXPECT_EQ(calls, static_cast<int>(w.visits.size()));
    ktDestroySet(w.set);
  }
}

TEST(Sets, RaisingOrEmptyingCallbackEndsTheWalk) {
  ktSet* set = ktCreateSet();
  for (int i = 0; i < 5; ++i)
    ktAddElementToEndOfSet(Item(i), set);
  // A callback that throws leaves no walk running.
  auto raise = [](void* element, void*, void*) {
    if (element == Item(2))
      throw 42;
  };
  EXPECT_THROW(ktToEachSetElement(set, raise, nullptr, nullptr), int);
  EXPECT_EQ(set->walkIndex, -1);
  EXPECT_THROW(ktToEachSetElementBackward(set, raise, nullptr, nullptr), int);
  EXPECT_EQ(set->walkIndex, -1);
  // A backward walk whose callback empties the set stops cleanly.
  auto clearAll = [](void*, void* argument, void*) {
    auto* s = static_cast<ktSet*>(argument);
    while (ktGetNumElementsInSet(s) > 0)
      ktRemoveElementFromSet(ktGetSetElementAt(s, 0), s);
  };
  EXPECT_EQ(ktToEachSetElementBackward(set, clearAll, set, nullptr), 1);
  EXPECT_EQ(ktToEachSetElement(set, clearAll, set, nullptr), 0);
  ktDestroySet(set);
}

// Growth, zeroing and removal under random sequences are in the fuzz target.
TEST(Gtable, CapacitiesDoubleAndRemovalMovesTheLastColumn) {
  Contexts c;
  kt_gtable table;
  kt_initialize_gtable(&table, &c.memory, 0, 0);
  double* values = nullptr;
  int32_t* ids = nullptr;
  char* flags = nullptr;
  kt_new_gtable(&table, &values, sizeof(double));
  EXPECT_EQ(table.columnCapacity, 1u);  // a capacity of 0 doubles from one slot
  kt_new_gtable(&table, &ids, sizeof(int32_t));
  kt_new_gtable(&table, &flags, 1);
  EXPECT_EQ(table.columnCapacity, 4u);
  EXPECT_EQ(kt_gtable_add_row(&table), 1u);  // max(2 * 0, 1)
  EXPECT_EQ(table.rowCapacity, 1u);
  EXPECT_EQ(kt_gtable_set_num_rows(&table, 1), 1u);  // rows equal to the capacity double it
  EXPECT_EQ(table.rowCapacity, 2u);
  kt_delete_gtable(&table, &values);  // the last column takes the first place
  EXPECT_EQ(table.numColumns, 2u);
  EXPECT_EQ(table.columns[0].variable, reinterpret_cast<void**>(&flags));
  kt_clear_gtable(&table);
  EXPECT_EQ(ids, nullptr);
  EXPECT_EQ(c.LiveBlocks(), 0u);
  EXPECT_EQ(c.BadFrees(), 0);
}

}  // namespace
