// kt_fsi against std::set<int>: after every operation the tree holds
// disjoint, fully merged intervals in a valid AVL shape, and removed nodes
// are reused before anything new is allocated.
#include <algorithm>
#include <random>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "support/counting_context.h"
#include "kt/containers.h"

namespace {

using kttest::Contexts;

// Checks links, order and balance of the subtree; returns its height.
int CheckSubtree(const kt_fsi_node* node, const kt_fsi_node* parent,
                 std::vector<kt_fsi_interval>* inOrder) {
  if (node == nullptr)
    return 0;
  EXPECT_EQ(node->parent, parent);
  int left = CheckSubtree(node->left, node, inOrder);
  inOrder->push_back(node->interval);
  int right = CheckSubtree(node->right, node, inOrder);
  EXPECT_EQ(node->balance, right - left) << node->interval.lower;
  EXPECT_LE(std::abs(right - left), 1);
  return 1 + std::max(left, right);
}

// The tree equals the model as a list of maximal runs.
void ExpectMatchesModel(const kt_fsi* set, const std::set<int>& model) {
  std::vector<kt_fsi_interval> intervals;
  CheckSubtree(set->root, nullptr, &intervals);
  std::vector<kt_fsi_interval> runs;
  for (int v : model) {
    if (!runs.empty() && runs.back().upper == v)
      runs.back().upper = v + 1;
    else
      runs.push_back({v, v + 1});
  }
  ASSERT_EQ(intervals.size(), runs.size());
  for (size_t i = 0; i < runs.size(); ++i) {
    ASSERT_EQ(intervals[i].lower, runs[i].lower) << i;
    ASSERT_EQ(intervals[i].upper, runs[i].upper) << i;
  }
}

size_t FreeListLength(const kt_fsi* set) {
  size_t n = 0;
  for (const kt_fsi_node* node = set->freeNodes; node != nullptr; node = node->left)
    ++n;
  return n;
}

TEST(Fsi, ModelBasedRandomOperations) {
  Contexts c;
  kt_fsi* set = kt_fsi_new(&c.memory);
  std::set<int> model;
  std::mt19937 rng(21);
  for (int step = 0; step < 40000; ++step) {
    bool filling = (step / 4000) % 2 == 0;
    unsigned op = rng() % 100;
    if (op < (filling ? 70u : 35u)) {
      int v = static_cast<int>(rng() % 2000) - 1000;
      int expected = model.count(v) ? 1 : 0;
      size_t freeBefore = FreeListLength(set);
      size_t allocationsBefore = kttest::Ledger().allocations;
      ASSERT_EQ(kt_fsi_insert(set, v), expected);
      model.insert(v);
      // A node comes from the free list while one is there.
      if (freeBefore > 0) {
        ASSERT_EQ(kttest::Ledger().allocations, allocationsBefore);
      }
    } else if (op < 97) {
      if (model.empty()) {
        ASSERT_EQ(kt_fsi_delete_first(set), KT_FSI_EMPTY);
      } else {
        ASSERT_EQ(kt_fsi_delete_first(set), *model.begin());
        model.erase(model.begin());
      }
    } else if (!model.empty()) {
      // The watermark below a member's end of run.
      auto it = model.begin();
      std::advance(it, rng() % model.size());
      int limit = *it + 1;
      int expected = *it;
      while (model.count(expected))
        --expected;
      ASSERT_EQ(kt_fsi_find_watermark(set, limit), expected);
    }
    ASSERT_NO_FATAL_FAILURE(ExpectMatchesModel(set, model));
  }
  // Everything allocated is either in the tree or on the free list.
  kt_fsi_delete(set);
  EXPECT_EQ(c.LiveBlocks(), 0u);
  EXPECT_EQ(c.BadFrees(), 0);
}

TEST(Fsi, MergesAndFirstMember) {
  Contexts c;
  kt_fsi set;
  kt_fsi_initialize(&set, &c.memory);
  EXPECT_EQ(kt_fsi_insert(&set, 5), 0);
  EXPECT_EQ(kt_fsi_insert(&set, 5), 1);
  EXPECT_EQ(set.root->interval.lower, 5);
  EXPECT_EQ(set.root->interval.upper, 6);
  EXPECT_EQ(kt_fsi_delete_first(&set), 5);
  EXPECT_EQ(set.root, nullptr);
  EXPECT_EQ(kt_fsi_delete_first(&set), KT_FSI_EMPTY);

  kt_fsi_insert_interval(&set, 1, 3);
  kt_fsi_insert_interval(&set, 4, 6);
  kt_fsi_insert_interval(&set, 4, 6);  // equal interval: not linked twice
  EXPECT_EQ(kt_fsi_insert(&set, 3), 0);
  ASSERT_NE(set.root, nullptr);
  EXPECT_EQ(set.root->interval.lower, 1);
  EXPECT_EQ(set.root->interval.upper, 6);
  EXPECT_EQ(set.root->left, nullptr);
  EXPECT_EQ(set.root->right, nullptr);

  kt_fsi_clear(&set);
  kt_fsi_insert_interval(&set, 5, 8);
  EXPECT_EQ(kt_fsi_delete_first(&set), 5);
  EXPECT_EQ(set.root->interval.lower, 6);
  kt_fsi_clear(&set);
  kt_fsi_insert_interval(&set, 3, 10);
  EXPECT_EQ(kt_fsi_find_watermark(&set, 10), 2);
  kt_delete_interval(&set, {3, 9});  // not exact: nothing happens
  EXPECT_NE(set.root, nullptr);
  kt_delete_interval(&set, {3, 10});
  EXPECT_EQ(set.root, nullptr);
  // Boundaries of the 32-bit range.
  EXPECT_EQ(kt_fsi_insert(&set, INT32_MAX), 1);
  EXPECT_EQ(kt_fsi_insert(&set, INT32_MIN), 0);
  EXPECT_EQ(kt_fsi_insert(&set, INT32_MAX - 1), 0);
  EXPECT_EQ(kt_fsi_delete_first(&set), INT32_MIN);
  EXPECT_EQ(kt_fsi_delete_first(&set), INT32_MAX - 1);
  kt_fsi_clear(&set);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

TEST(Fsi, RemovedNodesAreReused) {
  Contexts c;
  kt_fsi set;
  kt_fsi_initialize(&set, &c.memory);
  for (int v = 0; v < 200; v += 2)
    kt_fsi_insert(&set, v);  // 100 separate runs
  size_t allocated = kttest::Ledger().allocations;
  for (int i = 0; i < 100; ++i)
    kt_fsi_delete_first(&set);
  EXPECT_EQ(FreeListLength(&set), 100u);
  for (int v = 1000; v < 1200; v += 2)
    kt_fsi_insert(&set, v);
  EXPECT_EQ(kttest::Ledger().allocations, allocated);
  EXPECT_EQ(FreeListLength(&set), 0u);
  kt_fsi_clear(&set);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

TEST(Fsi, PoolOfNumbersStaysBalancedWhenAscending) {
  // The use as a pool: hand out numbers from the low end and put them back
  // in rising order; the tree must stay an AVL tree all the way.
  Contexts c;
  kt_fsi* set = kt_fsi_new(&c.memory);
  std::set<int> model;
  for (int v = 0; v < 3000; v += 3) {
    kt_fsi_insert(set, v);
    model.insert(v);
  }
  ASSERT_NO_FATAL_FAILURE(ExpectMatchesModel(set, model));
  for (int v = 1; v < 3000; v += 3) {
    kt_fsi_insert(set, v);
    model.insert(v);
    ASSERT_NO_FATAL_FAILURE(ExpectMatchesModel(set, model));
  }
  for (int v = 2999; v >= 2; v -= 3) {
    kt_fsi_insert(set, v);
    model.insert(v);
    ASSERT_NO_FATAL_FAILURE(ExpectMatchesModel(set, model));
  }
  ASSERT_EQ(set->root->interval.lower, 0);
  ASSERT_EQ(set->root->interval.upper, 3000);
  kt_fsi_delete(set);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

}  // namespace
