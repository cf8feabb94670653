// Growable tables: parallel columns held in the caller's own pointer
// variables, grown together as rows are added.
#include <cstring>

#include "kt/containers.h"

namespace {

void** VariableOf(void* columnVariable) { return static_cast<void**>(columnVariable); }

// Re-allocates one column to `capacity` rows, zeroing the rows beyond `old`.
void ResizeColumn(kt_gtable* table, const kt_gtable_column& column, uint64_t old,
                  uint64_t capacity) {
  size_t bytes = static_cast<size_t>(capacity * column.elementSize);
  auto* storage = static_cast<char*>(kt_mem_realloc(table->memoryContext, *column.variable, bytes));
  size_t kept = static_cast<size_t>(old * column.elementSize);
  if (bytes > kept)
    std::memset(storage + kept, 0, bytes - kept);
  *column.variable = storage;
}

}  // namespace

extern "C" void kt_initialize_gtable(kt_gtable* table, kt_mem_context* context,
                                     uint32_t columnCapacity, uint32_t rowCapacity) {
  table->memoryContext = context;
  table->numColumns = 0;
  table->columnCapacity = 0;
  table->numRows = 0;
  table->rowCapacity = rowCapacity;
  table->columns = static_cast<kt_gtable_column*>(
      kt_mem_alloc(context, sizeof(kt_gtable_column) * static_cast<size_t>(columnCapacity)));
  table->columnCapacity = table->columns ? columnCapacity : 0;
}

extern "C" void kt_new_gtable(kt_gtable* table, void* columnVariable, size_t elementSize) {
  if (table->numColumns == table->columnCapacity) {
    // Doubling, from at least one slot (a capacity of 0 would not grow).
    uint32_t capacity = table->columnCapacity ? table->columnCapacity * 2 : 1;
    table->columns = static_cast<kt_gtable_column*>(kt_mem_realloc(
        table->memoryContext, table->columns, sizeof(kt_gtable_column) * capacity));
    table->columnCapacity = capacity;
  }
  void** variable = VariableOf(columnVariable);
  *variable = kt_mem_calloc(table->memoryContext,
                            static_cast<size_t>(table->rowCapacity) * elementSize);
  table->columns[table->numColumns].variable = variable;
  table->columns[table->numColumns].elementSize = elementSize;
  table->numColumns++;
}

extern "C" void kt_delete_gtable(kt_gtable* table, void* columnVariable) {
  void** variable = VariableOf(columnVariable);
  for (uint32_t i = 0; i < table->numColumns; ++i) {
    if (table->columns[i].variable != variable)
      continue;
    if (*variable != nullptr)
      kt_mem_free(table->memoryContext, *variable);
    *variable = nullptr;
    // The last entry takes the freed place: column order is not kept.
    table->columns[i] = table->columns[table->numColumns - 1];
    table->numColumns--;
    return;
  }
}

extern "C" uint32_t kt_gtable_set_num_rows(kt_gtable* table, uint32_t rows) {
  // Reaching the capacity exactly also grows it, so a row index equal to the
  // new count is always addressable.
  if (rows >= table->rowCapacity) {
    uint64_t doubled = 2 * static_cast<uint64_t>(table->rowCapacity);
    if (doubled > UINT32_MAX)
      doubled = UINT32_MAX;
    uint64_t capacity = doubled > rows ? doubled : rows;
    for (uint32_t i = 0; i < table->numColumns; ++i)
      ResizeColumn(table, table->columns[i], table->rowCapacity, capacity);
    table->rowCapacity = static_cast<uint32_t>(capacity);
  }
  table->numRows = rows;
  return rows;
}

extern "C" uint32_t kt_gtable_add_row(kt_gtable* table) {
  return kt_gtable_set_num_rows(table, table->numRows + 1);
}

extern "C" void kt_clear_gtable(kt_gtable* table) {
  for (uint32_t i = 0; i < table->numColumns; ++i) {
    void** variable = table->columns[i].variable;
    if (*variable != nullptr)
      kt_mem_free(table->memoryContext, *variable);
    *variable = nullptr;
  }
  if (table->columns != nullptr)
    kt_mem_free(table->memoryContext, table->columns);
  table->columns = nullptr;
  table->numColumns = 0;
  table->columnCapacity = 0;
  table->numRows = 0;
  table->rowCapacity = 0;
}
