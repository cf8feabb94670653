// kt_fsi: merging, reuse of removed nodes and the AVL shape under the
// pool's typical use. Random operation sequences against std::set, near
// both ends of the 32-bit range, live in fuzz/fsi_fuzz.cpp (which also
// guards the fault where inserting INT32_MAX answered "already a member":
// it must raise KT_ERR_VALUE_OVERFLOW_TYPE and change nothing).
#include <algorithm>
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

size_t FreeListLength(const kt_fsi* set) {
  size_t n = 0;
  for (const kt_fsi_node* node = set->freeNodes; node != nullptr; node = node->left)
    ++n;
  return n;
}

TEST(Fsi, EqualIntervalsMergingAndInexactRemoval) {
  Contexts c;
  kt_fsi set;
  kt_fsi_initialize(&set, &c.memory);
  kt_fsi_insert_interval(&set, 1, 3);
  kt_fsi_insert_interval(&set, 4, 6);
  kt_fsi_insert_interval(&set, 4, 6);    // equal interval: not linked twice
  EXPECT_EQ(kt_fsi_insert(&set, 3), 0);  // closes the gap of one
  EXPECT_EQ(set.root->interval.lower, 1);
  EXPECT_EQ(set.root->interval.upper, 6);
  EXPECT_EQ(set.root->left, nullptr);
  EXPECT_EQ(set.root->right, nullptr);
  EXPECT_EQ(kt_fsi_find_watermark(&set, 6), 0);
  kt_delete_interval(&set, {1, 5});  // not exact: nothing happens
  EXPECT_NE(set.root, nullptr);
  kt_delete_interval(&set, {1, 6});
  EXPECT_EQ(set.root, nullptr);
  EXPECT_EQ(kt_fsi_delete_first(&set), KT_FSI_EMPTY);
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
  // in rising order; the tree must stay an AVL tree of disjoint, ordered
  // runs all the way.
  Contexts c;
  kt_fsi* set = kt_fsi_new(&c.memory);
  auto expectRuns = [&](size_t n) {
    std::vector<kt_fsi_interval> runs;
    CheckSubtree(set->root, nullptr, &runs);
    ASSERT_EQ(runs.size(), n);
    for (size_t i = 1; i < runs.size(); ++i)
      ASSERT_LT(runs[i - 1].upper, runs[i].lower);
  };
  for (int v = 0; v < 3000; v += 3)
    kt_fsi_insert(set, v);
  for (int v = 1; v < 3000; v += 3) {
    kt_fsi_insert(set, v);
    ASSERT_NO_FATAL_FAILURE(expectRuns(1000));
  }
  for (int v = 2999; v >= 2; v -= 3) {
    kt_fsi_insert(set, v);  // closes the gap above, from the top down
    ASSERT_NO_FATAL_FAILURE(expectRuns(1000 - static_cast<size_t>(2999 - v) / 3));
  }
  ASSERT_EQ(set->root->interval.lower, 0);
  ASSERT_EQ(set->root->interval.upper, 3000);
  kt_fsi_delete(set);
  EXPECT_EQ(c.LiveBlocks(), 0u);
}

}  // namespace
