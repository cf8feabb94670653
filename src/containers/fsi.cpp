// kt_fsi: a set of 32-bit integers kept as disjoint half-open intervals in
// an AVL tree, used as a pool of free numbers.
#include "kt/containers.h"
#include "kt/errors.h"

namespace {

using Node = kt_fsi_node;

// ---- searching ----------------------------------------------------------------

struct Search {
  Node* node;     // the containing node, or the last node visited
  bool contains;
};

Search Find(const kt_fsi* set, int32_t v) {
  Search s{nullptr, false};
  for (Node* node = set->root; node != nullptr;) {
    s.node = node;
    if (v < node->interval.lower) {
      node = node->left;
    } else if (v >= node->interval.upper) {
      node = node->right;
    } else {
      s.contains = true;
      return s;
    }
  }
  return s;
}

Node* Leftmost(Node* node) {
  while (node->left != nullptr)
    node = node->left;
  return node;
}

Node* Rightmost(Node* node) {
  while (node->right != nullptr)
    node = node->right;
  return node;
}

Node* Successor(Node* node) {
  if (node->right != nullptr)
    return Leftmost(node->right);
  Node* parent = node->parent;
  while (parent != nullptr && node == parent->right) {
    node = parent;
    parent = parent->parent;
  }
  return parent;
}

Node* Predecessor(Node* node) {
  if (node->left != nullptr)
    return Rightmost(node->left);
  Node* parent = node->parent;
  while (parent != nullptr && node == parent->left) {
    node = parent;
    parent = parent->parent;
  }
  return parent;
}

// A new interval goes left of a node when both of the node's bounds are
// greater than its own (for disjoint intervals: by lower bound).
bool GoesLeft(const kt_fsi_interval& node, const kt_fsi_interval& fresh) {
  return node.lower > fresh.lower && node.upper > fresh.upper;
}

// ---- rotations (balance = height(right) - height(left)) ------------------------

void ReplaceChild(kt_fsi* set, Node* parent, Node* old, Node* fresh) {
  if (parent == nullptr)
    set->root = fresh;
  else if (parent->left == old)
    parent->left = fresh;
  else
    parent->right = fresh;
}

int Max0(int v) { return v > 0 ? v : 0; }
int Min0(int v) { return v < 0 ? v : 0; }

Node* RotateLeft(kt_fsi* set, Node* x) {
  Node* y = x->right;
  x->right = y->left;
  if (y->left != nullptr)
    y->left->parent = x;
  y->parent = x->parent;
  ReplaceChild(set, x->parent, x, y);
  y->left = x;
  x->parent = y;
  x->balance = x->balance - 1 - Max0(y->balance);
  y->balance = y->balance - 1 + Min0(x->balance);
  return y;
}

Node* RotateRight(kt_fsi* set, Node* x) {
  Node* y = x->left;
  x->left = y->right;
  if (y->right != nullptr)
    y->right->parent = x;
  y->parent = x->parent;
  ReplaceChild(set, x->parent, x, y);
  y->right = x;
  x->parent = y;
  x->balance = x->balance + 1 - Min0(y->balance);
  y->balance = y->balance + 1 + Max0(x->balance);
  return y;
}

// Restores a node whose balance reached +2 or -2 with a single or double
// rotation; returns the subtree's new root.
Node* Restore(kt_fsi* set, Node* node) {
  if (node->balance < 0) {
    if (node->left->balance > 0)
      RotateLeft(set, node->left);
    return RotateRight(set, node);
  }
  if (node->right->balance < 0)
    RotateRight(set, node->right);
  return RotateLeft(set, node);
}

// ---- linking and unlinking ---------------------------------------------------------

Node* TakeNode(kt_fsi* set) {
  Node* node = set->freeNodes;
  if (node != nullptr) {
    set->freeNodes = node->left;
    return node;
  }
  return static_cast<Node*>(kt_mem_alloc(set->memoryContext, sizeof(Node)));
}

void RebalanceAfterInsert(kt_fsi* set, Node* child) {
  for (Node* parent = child->parent; parent != nullptr; child = parent, parent = parent->parent) {
    parent->balance += child == parent->left ? -1 : 1;
    if (parent->balance == 0)
      return;
    if (parent->balance == 2 || parent->balance == -2) {
      Restore(set, parent);
      return;
    }
  }
}

void Link(kt_fsi* set, kt_fsi_interval interval) {
  Node* parent = nullptr;
  bool left = false;
  for (Node* node = set->root; node != nullptr;) {
    if (node->interval.lower == interval.lower && node->interval.upper == interval.upper)
      return;  // an equal interval is not linked twice
    parent = node;
    left = GoesLeft(node->interval, interval);
    node = left ? node->left : node->right;
  }
  Node* fresh = TakeNode(set);
  fresh->interval = interval;
  fresh->balance = 0;
  fresh->left = nullptr;
  fresh->right = nullptr;
  fresh->parent = parent;
  if (parent == nullptr) {
    set->root = fresh;
    return;
  }
  if (left)
    parent->left = fresh;
  else
    parent->right = fresh;
  RebalanceAfterInsert(set, fresh);
}

// Walks up from `node`, whose left (or right) subtree just lost one level.
void RebalanceAfterRemove(kt_fsi* set, Node* node, bool leftShrunk) {
  while (node != nullptr) {
    node->balance += leftShrunk ? 1 : -1;
    if (node->balance == 1 || node->balance == -1)
      return;  // height unchanged
    if (node->balance == 2 || node->balance == -2) {
      Node* sibling = node->balance > 0 ? node->right : node->left;
      int siblingBalance = sibling->balance;
      node = Restore(set, node);
      if (siblingBalance == 0)
        return;  // a single rotation kept the height
    }
    Node* parent = node->parent;
    if (parent == nullptr)
      return;
    leftShrunk = parent->left == node;
    node = parent;
  }
}

// Unlinks `node` and puts it on the free list. A node with two children
// takes its in-order successor's interval, and the successor is unlinked.
void Unlink(kt_fsi* set, Node* node) {
  if (node->left != nullptr && node->right != nullptr) {
    Node* next = Leftmost(node->right);
    node->interval = next->interval;
    node = next;
  }
  Node* child = node->left != nullptr ? node->left : node->right;
  Node* parent = node->parent;
  if (child != nullptr)
    child->parent = parent;
  bool wasLeft = parent != nullptr && parent->left == node;
  ReplaceChild(set, parent, node, child);
  RebalanceAfterRemove(set, parent, wasLeft);
  set->first = nullptr;
  node->left = set->freeNodes;
  node->right = nullptr;
  node->parent = nullptr;
  set->freeNodes = node;
}

void FreeSubtree(kt_fsi* set, Node* node) {
  while (node != nullptr) {
    FreeSubtree(set, node->left);
    Node* right = node->right;
    kt_mem_free(set->memoryContext, node);
    node = right;
  }
}

}  // namespace

// ---- interface -----------------------------------------------------------------------

extern "C" void kt_fsi_initialize(kt_fsi* set, kt_mem_context* context) {
  set->memoryContext = context;
  set->first = nullptr;
  set->root = nullptr;
  set->freeNodes = nullptr;
}

extern "C" kt_fsi* kt_fsi_new(kt_mem_context* context) {
  auto* set = static_cast<kt_fsi*>(kt_mem_alloc(context, sizeof(kt_fsi)));
  kt_fsi_initialize(set, context);
  return set;
}

extern "C" void kt_fsi_clear(kt_fsi* set) {
  FreeSubtree(set, set->root);
  while (set->freeNodes != nullptr) {
    Node* next = set->freeNodes->left;
    kt_mem_free(set->memoryContext, set->freeNodes);
    set->freeNodes = next;
  }
  set->root = nullptr;
  set->first = nullptr;
}

extern "C" void kt_fsi_delete(kt_fsi* set) {
  if (set == nullptr)
    return;
  kt_fsi_clear(set);
  kt_mem_free(set->memoryContext, set);
}

extern "C" int kt_fsi_insert(kt_fsi* set, int32_t v) {
  // A run holding INT32_MAX would need the excluded upper bound 2^31, which
  // an interval's signed 32-bit bound cannot hold: refuse rather than claim
  // membership.
  if (v == INT32_MAX)
    kt_error(set->memoryContext->errorContext, KT_ERR_VALUE_OVERFLOW_TYPE, "int32_t",
             "kt_fsi_interval", __FILE__, __LINE__,
             "kt_fsi_insert: 2147483647 has no excluded upper bound");
  set->first = nullptr;
  if (set->root == nullptr) {
    Link(set, {v, v + 1});
    return 0;
  }
  Search s = Find(set, v);
  if (s.contains)
    return 1;
  // The neighbours on both sides of v: the node where the search ended and
  // its in-order neighbour.
  Node* before = v < s.node->interval.lower ? Predecessor(s.node) : s.node;
  Node* after = v < s.node->interval.lower ? s.node : Successor(s.node);
  bool joinsBefore = before != nullptr && before->interval.upper == v;
  bool joinsAfter = after != nullptr && after->interval.lower == v + 1;
  if (joinsBefore && joinsAfter) {
    // The gap of one closes and both runs become one: the upper run's node
    // is unlinked and the lower one spans both (the same set of intervals
    // and free-list count as unlinking both and linking the union).
    // Unlinking moves at most the upper run's successor, never the lower run.
    int32_t upper = after->interval.upper;
    kt_delete_interval(set, after->interval);
    before->interval.upper = upper;
  } else if (joinsBefore) {
    before->interval.upper = v + 1;
  } else if (joinsAfter) {
    after->interval.lower = v;
  } else {
    Link(set, {v, v + 1});
  }
  set->first = nullptr;
  return 0;
}

extern "C" void kt_fsi_insert_interval(kt_fsi* set, int32_t lower, int32_t upper) {
  set->first = nullptr;
  Link(set, {lower, upper});
}

extern "C" void kt_delete_interval(kt_fsi* set, kt_fsi_interval interval) {
  for (Node* node = set->root; node != nullptr;) {
    if (node->interval.lower == interval.lower && node->interval.upper == interval.upper) {
      Unlink(set, node);
      return;
    }
    node = GoesLeft(node->interval, interval) ? node->left : node->right;
  }
}

extern "C" int32_t kt_fsi_delete_first(kt_fsi* set) {
  if (set->root == nullptr)
    return KT_FSI_EMPTY;
  Node* first = set->first != nullptr ? set->first : Leftmost(set->root);
  set->first = first;
  int32_t lo = first->interval.lower;
  int32_t next = static_cast<int32_t>(static_cast<uint32_t>(lo) + 1u);
  if (next != first->interval.upper)
    first->interval.lower = next;
  else
    Unlink(set, first);
  return lo;
}

extern "C" int32_t kt_fsi_find_watermark(kt_fsi* set, int32_t limit) {
  int32_t v = static_cast<int32_t>(static_cast<uint32_t>(limit) - 1u);
  Search s = Find(set, v);
  if (s.node == nullptr)
    return v;
  return static_cast<int32_t>(static_cast<uint32_t>(s.node->interval.lower) - 1u);
}
