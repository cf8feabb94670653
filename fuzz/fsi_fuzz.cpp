// kt_fsi against std::set<int32_t> under operation sequences decoded from
// the input, with numbers drawn near INT32_MIN, zero and INT32_MAX.
//
// Checked after every step: the tree is a valid AVL tree whose in-order
// intervals are exactly the model's maximal runs; a node is taken from the
// free list before anything is allocated; answers of insert, delete_first
// and find_watermark match the model; inserting INT32_MAX raises
// KT_ERR_VALUE_OVERFLOW_TYPE and changes nothing.
#include <fuzzer/FuzzedDataProvider.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <vector>

#include "kt/containers.h"
#include "kt/contexts.h"

namespace {

void Fail(const char* what) {
  std::fprintf(stderr, "fsi_fuzz: %s\n", what);
  std::abort();
}

size_t g_allocations = 0;
void* CountingAllocate(size_t size) {
  ++g_allocations;
  return std::malloc(size);
}

int Height(const kt_fsi_node* node, const kt_fsi_node* parent, std::vector<kt_fsi_interval>* out) {
  if (node == nullptr)
    return 0;
  if (node->parent != parent) Fail("parent link");
  int left = Height(node->left, node, out);
  out->push_back(node->interval);
  int right = Height(node->right, node, out);
  if (node->balance != right - left || right - left > 1 || left - right > 1) Fail("balance");
  return 1 + (left > right ? left : right);
}

std::vector<kt_fsi_interval> Runs(const std::set<int32_t>& model) {
  std::vector<kt_fsi_interval> runs;
  for (int32_t v : model) {
    if (!runs.empty() && runs.back().upper == v)
      runs.back().upper = v + 1;  // v < INT32_MAX: never a member
    else
      runs.push_back({v, v + 1});
  }
  return runs;
}

void Check(const kt_fsi* set, const std::set<int32_t>& model) {
  std::vector<kt_fsi_interval> tree;
  Height(set->root, nullptr, &tree);
  std::vector<kt_fsi_interval> runs = Runs(model);
  if (tree.size() != runs.size()) Fail("number of runs");
  for (size_t i = 0; i < runs.size(); ++i)
    if (tree[i].lower != runs[i].lower || tree[i].upper != runs[i].upper) Fail("runs differ");
}

int32_t Number(FuzzedDataProvider& in) {
  static const int64_t kBases[] = {INT32_MIN, -40, INT32_MAX - 63};
  int64_t base = kBases[in.ConsumeIntegralInRange<int>(0, 2)];
  return static_cast<int32_t>(base + in.ConsumeIntegralInRange<int>(0, 63));
}

int InsertCatching(kt_fsi* set, int32_t v) {
  struct Call { kt_fsi* set; int32_t v; } call{set, v};
  auto body = [](kt_error_context*, void* data) {
    auto* c = static_cast<Call*>(data);
    kt_fsi_insert(c->set, c->v);
  };
  auto accept = [](kt_error_context*, void*, int, va_list) { return 1; };
  return kt_try_catch(ktGetErrorContext(), &call, body, accept);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static kt_mem_context memory;
  if (memory.allocate == nullptr)
    kt_initialize_memory_context(&memory, ktGetErrorContext(), CountingAllocate, std::realloc,
                                 std::free);
  FuzzedDataProvider in(data, size);
  kt_fsi* set = kt_fsi_new(&memory);
  std::set<int32_t> model;
  while (in.remaining_bytes() > 0) {
    int op = in.ConsumeIntegralInRange<int>(0, 5);
    int32_t v = Number(in);
    if (op <= 2 && v == INT32_MAX) {
      if (InsertCatching(set, v) != KT_ERR_VALUE_OVERFLOW_TYPE) Fail("INT32_MAX not refused");
    } else if (op <= 2) {
      bool reuses = set->freeNodes != nullptr;
      size_t before = g_allocations;
      if (kt_fsi_insert(set, v) != (model.count(v) ? 1 : 0)) Fail("insert answer");
      model.insert(v);
      if (reuses && g_allocations != before) Fail("allocated while the free list had a node");
    } else if (op == 3) {
      int32_t first = kt_fsi_delete_first(set);
      if (first != (model.empty() ? KT_FSI_EMPTY : *model.begin())) Fail("delete_first");
      if (!model.empty())
        model.erase(model.begin());
    } else if (op == 4 && !model.empty()) {
      // The watermark below a member's successor: one below the run's start.
      auto member = model.lower_bound(v);
      if (member == model.end())
        member = model.begin();
      int32_t start = *member;
      while (start != INT32_MIN && model.count(start - 1))
        --start;
      int32_t expected = static_cast<int32_t>(static_cast<uint32_t>(start) - 1u);
      if (kt_fsi_find_watermark(set, *member + 1) != expected) Fail("watermark");
    } else if (op == 5) {
      // A whole run linked directly, kept apart from every member so that
      // the runs stay maximal; or an exact run removed again.
      std::vector<kt_fsi_interval> runs = Runs(model);
      int64_t end = int64_t{v} + in.ConsumeIntegralInRange<int>(1, 4);
      int32_t upper = static_cast<int32_t>(end > INT32_MAX ? INT32_MAX : end);
      bool apart = upper > v && model.lower_bound(v == INT32_MIN ? v : v - 1) ==
                                    model.upper_bound(upper);
      if (in.ConsumeBool() && !runs.empty()) {
        kt_fsi_interval run = runs[in.ConsumeIntegralInRange<size_t>(0, runs.size() - 1)];
        kt_delete_interval(set, run);
        model.erase(model.lower_bound(run.lower), model.lower_bound(run.upper));
      } else if (apart) {
        kt_fsi_insert_interval(set, v, upper);
        for (int32_t k = v; k < upper; ++k)
          model.insert(k);
      }
    }
    Check(set, model);
  }
  kt_fsi_delete(set);
  return 0;
}
