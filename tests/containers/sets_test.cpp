// Sets against std::vector under random operations, walks whose callback
// changes the set, and growable tables.
#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include <gtest/gtest.h>

#include "support/counting_context.h"
#include "kt/containers.h"

namespace {

using kttest::Contexts;

void* Item(int i) { return reinterpret_cast<void*>(static_cast<intptr_t>(i) * 16 + 16); }

std::vector<void*> Contents(const ktSet* set) {
  return std::vector<void*>(set->begin, set->end);
}

// The remembered position always names the element it claims to.
void ExpectCurrentConsistent(const ktSet* set) {
  if (set->current == nullptr) {
    ASSERT_EQ(set->currentIndex, -1);
    return;
  }
  ASSERT_GE(set->currentIndex, 0);
  ASSERT_LT(static_cast<size_t>(set->currentIndex), ktGetNumElementsInSet(set));
  ASSERT_EQ(set->begin[set->currentIndex], set->current);
}

TEST(Sets, ModelBasedRandomOperations) {
  ktSet* set = ktCreateSet();
  std::vector<void*> model;
  std::mt19937 rng(31);
  int nextId = 0;
  auto pickMember = [&]() -> void* { return model[rng() % model.size()]; };
  for (int step = 0; step < 20000; ++step) {
    unsigned op = rng() % 11;
    bool grow = model.size() < 40 || rng() % 2;
    void* fresh = Item(nextId++);  // elements are distinct in this test
    if (op == 0 && grow) {
      ktAddElementToEndOfSet(fresh, set);
      model.push_back(fresh);
    } else if (op == 1 && grow) {
      ktAddElementToSet(fresh, set);
      model.insert(model.begin(), fresh);
    } else if (op == 2 && !model.empty()) {
      void* e = pickMember();
      ktPutElementAtFrontOfSet(e, set);
      model.erase(std::find(model.begin(), model.end(), e));
      model.insert(model.begin(), e);
    } else if (op == 3 && !model.empty()) {
      void* e = pickMember();
      ktRemoveElementFromSet(e, set);
      model.erase(std::find(model.begin(), model.end(), e));
      ktRemoveElementFromSet(e, set);  // absent now: nothing happens
    } else if (op == 4 && grow) {
      void* ref = model.empty() || rng() % 5 == 0 ? nullptr : pickMember();
      ktInsertSetElementAfter(set, ref, fresh);
      auto at = ref ? std::find(model.begin(), model.end(), ref) + 1 : model.end();
      model.insert(at, fresh);
    } else if (op == 5 && grow) {
      void* ref = model.empty() || rng() % 5 == 0 ? nullptr : pickMember();
      ktInsertSetElementBefore(set, ref, fresh);
      auto at = ref ? std::find(model.begin(), model.end(), ref) : model.end();
      model.insert(at, fresh);
    } else if (op == 6) {
      // Step forward from a random member (or the start).
      void* from = model.empty() || rng() % 3 == 0 ? nullptr : pickMember();
      void* got = ktGetNextSetElement(set, from);
      void* want = nullptr;
      if (from == nullptr) {
        want = model.empty() ? nullptr : model.front();
      } else {
        auto it = std::find(model.begin(), model.end(), from) + 1;
        want = it == model.end() ? nullptr : *it;
      }
      ASSERT_EQ(got, want);
    } else if (op == 7) {
      void* from = model.empty() || rng() % 3 == 0 ? nullptr : pickMember();
      void* got = ktGetPrevSetElement(set, from);
      void* want = nullptr;
      if (from == nullptr) {
        want = model.empty() ? nullptr : model.back();
      } else {
        auto it = std::find(model.begin(), model.end(), from);
        want = it == model.begin() ? nullptr : *(it - 1);
      }
      ASSERT_EQ(got, want);
    } else if (op == 8) {
      void* probe = rng() % 2 && !model.empty() ? pickMember() : fresh;
      bool member = std::find(model.begin(), model.end(), probe) != model.end();
      ASSERT_EQ(ktIsElementInSet(probe, set), member ? 1 : 0);
      size_t index = rng() % (model.size() + 2);
      ASSERT_EQ(ktGetSetElementAt(set, index), index < model.size() ? model[index] : nullptr);
    }
    ASSERT_EQ(Contents(set), model);
    ASSERT_NO_FATAL_FAILURE(ExpectCurrentConsistent(set));
  }
  // A full forward then backward traversal through the current element.
  std::vector<void*> forward, backward;
  for (void* e = ktGetNextSetElement(set, nullptr); e; e = ktGetNextSetElement(set, e))
    forward.push_back(e);
  for (void* e = ktGetPrevSetElement(set, nullptr); e; e = ktGetPrevSetElement(set, e))
    backward.push_back(e);
  EXPECT_EQ(forward, model);
  std::reverse(backward.begin(), backward.end());
  EXPECT_EQ(backward, model);
  ktDestroySet(set);
}

TEST(Sets, CurrentElementRulesWithDuplicates) {
  ktSet* set = ktCreateSet();
  EXPECT_EQ(ktGetNextSetElement(set, nullptr), nullptr);
  EXPECT_EQ(ktGetPrevSetElement(set, nullptr), nullptr);
  EXPECT_EQ(ktIsElementInSet(nullptr, set), 0);
  void* a = Item(1);
  void* b = Item(2);
  void* c = Item(3);
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

// State shared with the walk callbacks.
struct Walk {
  ktSet* set = nullptr;
  std::mt19937 rng{41};
  std::map<void*, int> visits;
  std::vector<void*> appended;   // added at the end during the walk
  std::vector<void*> prepended;  // added at the front during the walk
  std::vector<void*> removedUnvisited;
  int nextId = 100000;
};

void ChangeDuringWalk(void* element, void* argument, void*) {
  auto* w = static_cast<Walk*>(argument);
  w->visits[element]++;
  unsigned op = w->rng() % 6;
  if (op == 0) {
    ktRemoveElementFromSet(element, w->set);  // the element being visited
  } else if (op == 1) {
    void* e = Item(w->nextId++);
    ktAddElementToEndOfSet(e, w->set);
    w->appended.push_back(e);
  } else if (op == 2) {
    void* e = Item(w->nextId++);
    ktAddElementToSet(e, w->set);
    w->prepended.push_back(e);
  } else if (op == 3 && ktGetNumElementsInSet(w->set) > 0) {
    // Remove some element; if it was not visited yet it must not be.
    size_t i = w->rng() % ktGetNumElementsInSet(w->set);
    void* e = ktGetSetElementAt(w->set, i);
    if (w->visits.count(e) == 0)
      w->removedUnvisited.push_back(e);
    ktRemoveElementFromSet(e, w->set);
  }
}

TEST(Sets, ForwardWalkSurvivesChangesByItsCallback) {
  for (int round = 0; round < 50; ++round) {
    ktSet* set = ktCreateSet();
    std::vector<void*> original;
    for (int i = 0; i < 60; ++i) {
      original.push_back(Item(i));
      ktAddElementToEndOfSet(Item(i), set);
    }
    Walk w;
    w.set = set;
    w.rng.seed(static_cast<unsigned>(round));
    int calls = ktToEachSetElement(set, ChangeDuringWalk, &w, nullptr);
    EXPECT_EQ(set->walkIndex, -1);
    int total = 0;
    for (auto& [element, count] : w.visits) {
      EXPECT_EQ(count, 1) << "visited twice";
      total += count;
    }
    EXPECT_EQ(calls, total);
    for (void* e : w.prepended)
      EXPECT_EQ(w.visits.count(e), 0u) << "an element added before the walk position";
    for (void* e : w.removedUnvisited)
      EXPECT_EQ(w.visits.count(e), 0u);
    for (void* e : original) {
      bool removedFirst =
          std::find(w.removedUnvisited.begin(), w.removedUnvisited.end(), e) != w.removedUnvisited.end();
      EXPECT_EQ(w.visits.count(e), removedFirst ? 0u : 1u) << "skipped";
    }
    for (void* e : w.appended) {
      bool removedFirst =
          std::find(w.removedUnvisited.begin(), w.removedUnvisited.end(), e) != w.removedUnvisited.end();
      EXPECT_EQ(w.visits.count(e), removedFirst ? 0u : 1u) << "appended element not visited";
    }
    ktDestroySet(set);
  }
}

TEST(Sets, BackwardWalkAndRaisingCallback) {
  ktSet* set = ktCreateSet();
  for (int i = 0; i < 5; ++i)
    ktAddElementToEndOfSet(Item(i), set);
  std::vector<void*> seen;
  auto record = [](void* element, void* argument, void*) {
    static_cast<std::vector<void*>*>(argument)->push_back(element);
  };
  EXPECT_EQ(ktToEachSetElementBackward(set, record, &seen, nullptr), 5);
  EXPECT_EQ(seen, (std::vector<void*>{Item(4), Item(3), Item(2), Item(1), Item(0)}));
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

TEST(Gtable, ColumnsGrowTogether) {
  Contexts c;
  kt_gtable table;
  kt_initialize_gtable(&table, &c.memory, 1, 4);
  double* values = nullptr;
  int32_t* ids = nullptr;
  char* flags = nullptr;
  kt_new_gtable(&table, &values, sizeof(double));
  kt_new_gtable(&table, &ids, sizeof(int32_t));  // doubles the column array
  kt_new_gtable(&table, &flags, 1);
  EXPECT_EQ(table.columnCapacity, 4u);
  ASSERT_NE(values, nullptr);
  std::vector<double> model;
  for (uint32_t row = 0; row < 1000; ++row) {
    uint32_t rows = kt_gtable_add_row(&table);
    ASSERT_EQ(rows, row + 1);
    ASSERT_GT(table.rowCapacity, row);  // reaching the capacity grows it
    ASSERT_EQ(ids[row], 0);             // new rows arrive zeroed
    values[row] = row * 0.5;
    ids[row] = static_cast<int32_t>(row);
    flags[row] = 1;
    model.push_back(row * 0.5);
  }
  for (uint32_t row = 0; row < 1000; ++row) {
    ASSERT_EQ(values[row], model[row]);
    ASSERT_EQ(ids[row], static_cast<int32_t>(row));
  }
  // Rows equal to the capacity double it.
  uint32_t capacity = table.rowCapacity;
  EXPECT_EQ(kt_gtable_set_num_rows(&table, capacity), capacity);
  EXPECT_EQ(table.rowCapacity, capacity * 2);
  // Deleting the first column moves the last one into its place.
  kt_delete_gtable(&table, &values);
  EXPECT_EQ(values, nullptr);
  EXPECT_EQ(table.numColumns, 2u);
  EXPECT_EQ(table.columns[0].variable, reinterpret_cast<void**>(&flags));
  kt_delete_gtable(&table, &values);  // unknown: ignored
  kt_clear_gtable(&table);
  EXPECT_EQ(ids, nullptr);
  EXPECT_EQ(flags, nullptr);
  EXPECT_EQ(c.LiveBlocks(), 0u);
  EXPECT_EQ(c.BadFrees(), 0);
}

TEST(Gtable, ZeroCapacities) {
  Contexts c;
  kt_gtable table;
  kt_initialize_gtable(&table, &c.memory, 0, 0);
  int64_t* column = nullptr;
  kt_new_gtable(&table, &column, sizeof(int64_t));
  EXPECT_EQ(table.columnCapacity, 1u);
  EXPECT_EQ(column, nullptr);  // zero rows: no storage
  EXPECT_EQ(kt_gtable_add_row(&table), 1u);
  ASSERT_NE(column, nullptr);
  EXPECT_EQ(column[0], 0);
  EXPECT_EQ(kt_gtable_set_num_rows(&table, 0), 0u);
  kt_clear_gtable(&table);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

}  // namespace
