// The profiler's event steps: function entry and exit, line events, the
// growth of a function's line table, and history events. Each exported
// step runs under kt_try_catch with the profiler's catch function, so a
// raise inside leaves a cleared profiler, never a half-updated one.
#include <cstdint>
#include <cstring>

#include "kt/profiler.h"
#include "timing/profiler.h"

static_assert(sizeof(ktProfLineRecord) == 24, "line records are 24 bytes");

namespace {

using kt::internal::CatchProfilerError;

// Frame arguments; the profiler comes first, as the catch function reads it.
struct EventArguments {
  ktProfiler* profiler;
  void* functionInfo;
  void* data;
};

struct LineArguments {
  ktProfiler* profiler;
  int32_t line;
};

// ktProfIsInitialized, inline for the event calls.
inline bool IsReady(const ktProfiler* p) {
  return p != nullptr && p->functionTable.buckets != nullptr;
}

template <class T>
T* Allocate(ktProfiler* p, size_t bytes = sizeof(T)) {
  return static_cast<T*>(kt_mem_alloc(p->memoryContext, bytes));
}

// ---- calls between functions ---------------------------------------------------

ktProfFunctionRecord* FindOrCreateFunction(ktProfiler* p, void* functionInfo, void* data) {
  void* key[2] = {functionInfo, data};
  void* element = nullptr;
  int existed = kt_ghash_insert_element(&p->functionTable, key, &element);
  auto* record = static_cast<ktProfFunctionRecord*>(element);
  if (!existed)
    record->index = p->functionCount++;
  return record;
}

// A repeated call finds its callee among the caller's links, without
// hashing: the table matches on the function information alone, and so
// does this search.
ktProfChildLink* ChildByInfo(ktProfFunctionRecord* caller, void* functionInfo) {
  for (ktProfChildLink* link = caller->children; link != nullptr; link = link->next)
    if (link->child->functionInfo == functionInfo)
      return link;
  return nullptr;
}

// The link of `list` that leads to `other`, or a new one at the front.
template <class Link>
Link* FindOrAddLink(ktProfiler* p, Link** list, ktProfFunctionRecord* Link::*target,
                    ktProfFunctionRecord* other) {
  for (Link* link = *list; link != nullptr; link = link->next)
    if (link->*target == other)
      return link;
  auto* link = Allocate<Link>(p);
  *link = Link{};
  link->next = *list;
  link->*target = other;
  *list = link;
  return link;
}

ktProfChildLink* ChildLink(ktProfiler* p, ktProfFunctionRecord* caller,
                           ktProfFunctionRecord* child) {
  return FindOrAddLink(p, &caller->children, &ktProfChildLink::child, child);
}

ktProfParentLink* ParentLink(ktProfiler* p, ktProfFunctionRecord* callee,
                             ktProfFunctionRecord* parent) {
  return FindOrAddLink(p, &callee->parents, &ktProfParentLink::parent, parent);
}

// ---- history -----------------------------------------------------------------------

void RecordHistoryEvent(ktProfiler* p, ktProfFunctionRecord* record, uint32_t exit) {
  ktProfHistoryBlock* block = p->historyBlocks;
  if (block == nullptr || block->count == block->capacity) {
    uint32_t capacity = p->historyBlockSize > 0 ? p->historyBlockSize : 1;
    size_t bytes = sizeof(ktProfHistoryBlock) + capacity * sizeof(ktProfHistoryEvent);
    block = Allocate<ktProfHistoryBlock>(p, bytes);
    *block = {p->historyBlocks, 0, capacity, reinterpret_cast<ktProfHistoryEvent*>(block + 1)};
    p->historyBlocks = block;
  }
  block->events[block->count++] = {record, exit, p->now};
  p->historyCount++;
  if (p->historyCount >= p->historyCapacity) {
    // Printed, not raised: the measurement goes on without history.
    p->history = 0;
    kt_error_print(p->errorContext, KT_PROFILE_HISTORY_FULL);
  }
}

// ---- line tables ---------------------------------------------------------------------

size_t LineBytes(uint64_t records) { return static_cast<size_t>(records) * sizeof(ktProfLineRecord); }

// A line table whose record count does not fit the 32-bit capacity cannot
// be made: that is exhaustion too.
uint32_t CheckedCapacity(ktProfiler* p, uint64_t records) {
  if (records > UINT32_MAX)
    kt_error(p->errorContext, KT_OUT_OF_MEMORY);
  return static_cast<uint32_t>(records);
}

ktProfLineRecord* MakeFirstLineTable(ktProfiler* p, ktProfFunctionRecord* f, uint32_t line) {
  f->lines = static_cast<ktProfLineRecord*>(
      kt_mem_calloc(p->memoryContext, LineBytes(KT_PROF_FIRST_LINE_TABLE)));
  f->lineCapacity = KT_PROF_FIRST_LINE_TABLE;
  f->lineCount = 1;
  f->firstLine = line;
  f->lastLine = line;
  return f->lines;
}

// The table grows at the front by exactly the missing lines; the records
// move up and the front is zero-filled.
ktProfLineRecord* GrowLineTableFront(ktProfiler* p, ktProfFunctionRecord* f, uint32_t line) {
  uint32_t missing = f->firstLine - line;
  uint32_t capacity = CheckedCapacity(p, uint64_t{f->lineCapacity} + missing);
  auto* lines = static_cast<ktProfLineRecord*>(
      kt_mem_realloc(p->memoryContext, f->lines, LineBytes(capacity)));
  std::memmove(lines + missing, lines, LineBytes(f->lineCapacity));
  std::memset(lines, 0, LineBytes(missing));
  f->lines = lines;
  f->lineCapacity = capacity;
  f->lineCount += missing;
  f->firstLine = line;
  return lines;
}

// Beyond the last line the table needs line + 1 - first records; when the
// capacity is short it becomes twice that need, the new tail zero-filled.
ktProfLineRecord* GrowLineTableBack(ktProfiler* p, ktProfFunctionRecord* f, uint32_t line) {
  uint64_t need = uint64_t{line} + 1 - f->firstLine;
  if (f->lineCapacity < need) {
    uint32_t capacity = CheckedCapacity(p, 2 * need);
    auto* lines = static_cast<ktProfLineRecord*>(
        kt_mem_realloc(p->memoryContext, f->lines, LineBytes(capacity)));
    std::memset(lines + f->lineCapacity, 0, LineBytes(capacity - f->lineCapacity));
    f->lines = lines;
    f->lineCapacity = capacity;
  }
  f->lastLine = line;
  f->lineCount = static_cast<uint32_t>(need);
  return f->lines + (line - f->firstLine);
}

// The record of `line`, growing the table to cover it.
ktProfLineRecord* LineRecordFor(ktProfiler* p, ktProfFunctionRecord* f, uint32_t line) {
  if (f->lines == nullptr)
    return MakeFirstLineTable(p, f, line);
  if (line < f->firstLine)
    return GrowLineTableFront(p, f, line);
  if (line <= f->lastLine)
    return f->lines + (line - f->firstLine);
  return GrowLineTableBack(p, f, line);
}

// Ends an open line: adds the clock reading to the line's record. A line
// the table does not cover is left alone (it was started in another
// function's table, see the line step).
void EndLine(const ktProfiler* p, ktProfFunctionRecord* f, uint32_t line) {
  if (f->lines == nullptr || line < f->firstLine || line > f->lastLine)
    return;
  f->lines[line - f->firstLine].time += p->now;
}

// ---- the steps -------------------------------------------------------------------------

void EntryStep(kt_error_context*, void* data) {
  auto* a = static_cast<EventArguments*>(data);
  ktProfiler* p = a->profiler;
  bool outermost = p->depth == 0;
  p->depth++;
  if (p->skip(a->functionInfo, a->data, outermost))
    return;
  p->now = p->clock();
  ktProfFunctionRecord* caller = p->stack != nullptr ? p->stack->function : nullptr;
  ktProfChildLink* child = caller != nullptr ? ChildByInfo(caller, a->functionInfo) : nullptr;
  ktProfFunctionRecord* record =
      child != nullptr ? child->child : FindOrCreateFunction(p, a->functionInfo, a->data);
  if (caller != nullptr) {
    if (child == nullptr)
      child = ChildLink(p, caller, record);
    child->count++;
    child->time -= p->now;
    ParentLink(p, record, caller)->count++;
  }
  auto* entry = Allocate<ktProfStackEntry>(p);
  *entry = {p->stack, 0, record};
  p->stack = entry;
  record->callCount++;
  if (++record->activeCount == 1)
    record->totalTime -= p->now;  // total time counts the outermost call only
  record->selfTime -= p->now;
  if (p->history)
    RecordHistoryEvent(p, record, 0);
}

void ExitStep(kt_error_context*, void* data) {
  auto* a = static_cast<EventArguments*>(data);
  ktProfiler* p = a->profiler;
  if (p->stack == nullptr)
    return;
  bool outermost = p->depth == 1;
  p->depth--;
  if (p->skip(a->functionInfo, a->data, outermost))
    return;
  p->now = p->clock();
  // The stack, not the arguments, decides which function exits.
  ktProfStackEntry* top = p->stack;
  ktProfFunctionRecord* record = top->function;
  uint32_t line = top->line;
  p->stack = top->next;
  kt_mem_free(p->memoryContext, top);
  if (line != 0)
    EndLine(p, record, line);
  if (p->stack != nullptr)
    ChildLink(p, p->stack->function, record)->time += p->now;
  if (record->activeCount > 1) {
    record->activeCount--;
    record->selfTime += p->now;
  } else {
    record->totalTime += p->now;
    record->selfTime += p->now;
    record->activeCount--;
  }
  if (p->history)
    RecordHistoryEvent(p, record, 1);
}

void LineStep(kt_error_context*, void* data) {
  auto* a = static_cast<LineArguments*>(data);
  ktProfiler* p = a->profiler;
  ktProfStackEntry* owner = p->stack;
  while (owner != nullptr && !p->lineOwner(owner->function->functionInfo, owner->function->data))
    owner = owner->next;
  if (owner == nullptr)
    return;
  p->now = p->clock();
  ktProfStackEntry* top = p->stack;
  // Deliberately the previous line is read from the TOP entry and ended in
  // the OWNER's table, even when the owner lies deeper; profiles have
  // always been charged this way.
  if (top->line != 0)
    EndLine(p, owner->function, top->line);
  uint32_t line = a->line < 0 ? 0u - static_cast<uint32_t>(a->line) : static_cast<uint32_t>(a->line);
  ktProfLineRecord* record = LineRecordFor(p, owner->function, line);
  record->count++;
  record->time -= p->now;
  top->line = line;
}

}  // namespace

extern "C" void ktProfLogFunctionEntry(ktProfiler* profiler, void* functionInfo, void* data) {
  if (!IsReady(profiler))
    return;
  EventArguments a = {profiler, functionInfo, data};
  kt_try_catch(profiler->errorContext, &a, EntryStep, CatchProfilerError);
}

extern "C" void ktProfLogFunctionExit(ktProfiler* profiler, void* functionInfo, void* data) {
  if (!IsReady(profiler))
    return;
  EventArguments a = {profiler, functionInfo, data};
  kt_try_catch(profiler->errorContext, &a, ExitStep, CatchProfilerError);
}

extern "C" void ktProfLogLineNumberEvent(ktProfiler* profiler, int32_t line) {
  if (!IsReady(profiler))
    return;
  LineArguments a = {profiler, line};
  kt_try_catch(profiler->errorContext, &a, LineStep, CatchProfilerError);
}

extern "C" ktProfLineRecord* ktProfLookupLinenumRecord(ktProfFunctionRecord* function,
                                                      uint32_t line) {
  return function->lines + (line - function->firstLine);
}
