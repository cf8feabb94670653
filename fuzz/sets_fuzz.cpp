// Sets against std::vector and growable tables against per-column byte
// strings, under operation sequences decoded from the input.
//
// Checked after every step: the set's elements equal the model; stepping
// forward or backward from a member (or from either end) gives the model's
// neighbour; membership and indexed access agree; the remembered current
// position names the element it claims; walks visit the model in order.
// Every live column of the table holds the model's bytes over its whole
// row capacity (new rows zeroed), and the table lists exactly the live
// columns.
#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "kt/containers.h"
#include "kt/contexts.h"

namespace {

void Fail(const char* what) {
  std::fprintf(stderr, "sets_fuzz: %s\n", what);
  std::abort();
}

void* Item(int i) { return reinterpret_cast<void*>(static_cast<intptr_t>(i) * 16); }

void Record(void* element, void* seen, void*) {
  static_cast<std::vector<void*>*>(seen)->push_back(element);
}

void CheckWalks(ktSet* set, const std::vector<void*>& model) {
  std::vector<void*> seen;
  int calls = ktToEachSetElementBackward(set, Record, &seen, nullptr);
  std::reverse(seen.begin(), seen.end());
  if (calls != static_cast<int>(model.size()) || seen != model || set->walkIndex != -1)
    Fail("backward walk");
  seen.clear();
  if (ktToEachSetElement(set, Record, &seen, nullptr) != calls || seen != model)
    Fail("forward walk");
}

// One step on the set; elements are distinct.
void SetStep(FuzzedDataProvider& in, ktSet* set, std::vector<void*>& model, int& nextId) {
  void* fresh = Item(nextId++);
  size_t pick = in.ConsumeIntegralInRange<size_t>(0, model.empty() ? 0 : model.size() - 1);
  void* member = model.empty() ? nullptr : model[pick];
  void* reference = in.ConsumeBool() ? member : nullptr;  // a member, or null
  auto at = [&](void* e) { return std::find(model.begin(), model.end(), e); };
  auto placeOf = [&](void* e) { return e ? at(e) - model.begin() : -1; };
  long r = placeOf(reference);
  int op = in.ConsumeIntegralInRange<int>(0, 9);
  if (op == 0) {
    ktAddElementToEndOfSet(fresh, set);
    model.push_back(fresh);
  } else if (op == 1) {
    ktAddElementToSet(fresh, set);
    model.insert(model.begin(), fresh);
  } else if (op == 2 && member) {
    ktPutElementAtFrontOfSet(member, set);
    model.erase(at(member));
    model.insert(model.begin(), member);
  } else if (op == 3) {
    ktRemoveElementFromSet(member ? member : fresh, set);  // absent: nothing happens
    if (member)
      model.erase(at(member));
  } else if (op == 4 || op == 5) {
    auto place = r < 0 ? model.end() : model.begin() + r + (op == 4);
    if (op == 4)
      ktInsertSetElementAfter(set, reference, fresh);
    else
      ktInsertSetElementBefore(set, reference, fresh);
    model.insert(place, fresh);
  } else if (op == 6) {
    size_t next = r < 0 ? 0 : static_cast<size_t>(r) + 1;
    if (ktGetNextSetElement(set, reference) != (next < model.size() ? model[next] : nullptr))
      Fail("next element");
  } else if (op == 7) {
    long prev = r < 0 ? static_cast<long>(model.size()) - 1 : r - 1;
    if (ktGetPrevSetElement(set, reference) != (prev >= 0 ? model[prev] : nullptr))
      Fail("previous element");
  } else if (op == 8) {
    size_t i = in.ConsumeIntegralInRange<size_t>(0, model.size() + 1);
    if (ktIsElementInSet(reference ? reference : fresh, set) != (reference != nullptr) ||
        ktGetSetElementAt(set, i) != (i < model.size() ? model[i] : nullptr))
      Fail("membership or indexed access");
  } else if (op == 9) {
    CheckWalks(set, model);
  }
  if (std::vector<void*>(set->begin, set->end) != model) Fail("elements differ");
  if (set->current ? set->begin[set->currentIndex] != set->current : set->currentIndex != -1)
    Fail("current position");
}

struct Columns {
  void* variable[4] = {};
  size_t size[4] = {};
  bool live[4] = {};
  std::string bytes[4];  // the model of each column over the row capacity
  uint32_t capacity = 0;
};

void TableStep(FuzzedDataProvider& in, kt_gtable* table, Columns& m) {
  int c = in.ConsumeIntegralInRange<int>(0, 3);
  int op = in.ConsumeIntegralInRange<int>(0, 4);
  uint32_t rows = table->numRows;  // the row count expected after the step
  if (op == 0 && !m.live[c]) {
    m.size[c] = in.ConsumeIntegralInRange<size_t>(1, 12);
    kt_new_gtable(table, &m.variable[c], m.size[c]);
    m.live[c] = true;
    m.bytes[c].assign(m.capacity * m.size[c], '\0');
  } else if (op == 1) {
    kt_delete_gtable(table, &m.variable[c]);  // a column that is not live is ignored
    if (m.variable[c] != nullptr) Fail("deleted column variable");
    m.live[c] = false;
  } else if (op == 2 || op == 3) {
    rows = op == 2 ? rows + 1 : in.ConsumeIntegralInRange<uint32_t>(0, 2 * rows + 3);
    if ((op == 2 ? kt_gtable_add_row(table) : kt_gtable_set_num_rows(table, rows)) != rows)
      Fail("row count answer");
    if (rows >= m.capacity) {  // reaching the capacity exactly grows it too
      m.capacity = std::max(2 * m.capacity, rows);
      for (int k = 0; k < 4; ++k)
        m.bytes[k].resize(m.capacity * m.size[k], '\0');
    }
  } else if (op == 4 && m.live[c] && rows > 0) {
    size_t at = in.ConsumeIntegralInRange<size_t>(0, rows * m.size[c] - 1);
    char byte = in.ConsumeIntegral<char>();
    static_cast<char*>(m.variable[c])[at] = byte;
    m.bytes[c][at] = byte;
  }
  uint32_t count = 0;
  for (int k = 0; k < 4; ++k) {
    if (m.live[k] && !m.bytes[k].empty() &&
        std::memcmp(m.variable[k], m.bytes[k].data(), m.bytes[k].size()) != 0)
      Fail("column contents");
    count += m.live[k];
  }
  for (uint32_t i = 0; i < table->numColumns; ++i) {
    ptrdiff_t k = table->columns[i].variable - m.variable;
    if (k < 0 || k >= 4 || !m.live[k]) Fail("a column entry that is not live");
  }
  if (table->numRows != rows || table->rowCapacity != m.capacity || table->numColumns != count)
    Fail("table shape");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider in(data, size);
  ktSet* set = ktCreateSet();
  std::vector<void*> model;
  int nextId = 1;
  kt_gtable table;
  Columns columns;
  columns.capacity = in.ConsumeIntegralInRange<uint32_t>(0, 4);
  kt_initialize_gtable(&table, ktGetMemoryContext(), in.ConsumeIntegralInRange<uint32_t>(0, 2),
                       columns.capacity);
  while (in.remaining_bytes() > 0) {
    if (in.ConsumeBool())
      SetStep(in, set, model, nextId);
    else
      TableStep(in, &table, columns);
  }
  ktDestroySet(set);
  kt_clear_gtable(&table);
  return 0;
}
