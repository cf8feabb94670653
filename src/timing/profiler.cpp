// The profiler record: its message table, initialisation and clearing,
// the logging and history switches, failure handling, and the helpers.
// The entry, exit and line steps live in profiler_steps.cpp.
#include "timing/profiler.h"

#include <cstring>

#include "kt/clocks.h"
#include "kt/hashing.h"
#include "kt/profiler.h"

namespace {

// ---- message table (module 28) ------------------------------------------------

const int kProfilerCodes[] = {KT_PROFILE_INVALID_ARGUMENTS, KT_PROFILE_OUT_OF_MEMORY1,
                              KT_PROFILE_OUT_OF_MEMORY2,    KT_PROFILE_HISTORY_FULL,
                              KT_PROFILE_HISTORY_ERROR,     KT_PROFILE_NO_FILE_RECORD,
                              -1};
const char* const kProfilerMnemonics[] = {"PROFILE_INVALID_ARGUMENTS", "PROFILE_OUT_OF_MEMORY1",
                                          "PROFILE_OUT_OF_MEMORY2",    "PROFILE_HISTORY_FULL",
                                          "PROFILE_HISTORY_ERROR",     "PROFILE_NO_FILE_RECORD"};
const char* const kProfilerTexts[] = {
    "Internal Error: Invalid arguments passed to function.",
    ("Error: Profiler logs have been cleared because a memory allocation failure;\n"
     "Profiler is now disabled"),
    "Error: Profiler logs have been cleared because a memory allocation failure",
    "Warning: Profiler history table is full",
    "Error: Cannot enable history tracking unless profiling is suspended",
    "Internal Warning: Function %s has no file record"};
const kt_message_table kProfilerTable = {6, 28, kProfilerCodes, kProfilerMnemonics,
                                         kProfilerTexts, "profiler"};

// Pointer-keyed tables keep their load between these bounds.
constexpr float kLowerLoad = 0.1f;
constexpr float kUpperLoad = 0.5f;

// ---- default callbacks ------------------------------------------------------------

bool NeverSkip(void*, void*, bool) { return false; }
bool AlwaysOwnsLines(void*, void*) { return true; }
void* SameFunctionInfo(void* functionInfo, void*) { return functionInfo; }

// The in-house system library would report the processor's maximum
// frequency; there is no such service here, so it is unknown (1).
uint64_t MaximumProcessorFrequency() { return 1; }

// ---- function records as table elements ---------------------------------------------

// Copy-key callback: a new element gets the key and an empty record, so an
// element is never half-made, even if the table's growth raises right after
// it was linked in.
void MakeFunctionRecord(void*, void* destination, const void* key) {
  auto* record = static_cast<ktProfFunctionRecord*>(destination);
  std::memset(record, 0, sizeof *record);
  std::memcpy(&record->functionInfo, key, sizeof record->functionInfo);
  std::memcpy(&record->data, static_cast<const char*>(key) + sizeof(void*), sizeof record->data);
  record->firstLine = KT_PROF_NO_LINE;
}

// Delete-key callback: releases what a record owns.
void ReleaseFunctionRecord(void* context, void* element) {
  kt_mem_context* memory = static_cast<ktProfiler*>(context)->memoryContext;
  auto* record = static_cast<ktProfFunctionRecord*>(element);
  kt_mem_free(memory, record->lines);
  for (ktProfChildLink* link = record->children; link != nullptr;) {
    ktProfChildLink* next = link->next;
    kt_mem_free(memory, link);
    link = next;
  }
  for (ktProfParentLink* link = record->parents; link != nullptr;) {
    ktProfParentLink* next = link->next;
    kt_mem_free(memory, link);
    link = next;
  }
}

void InitializeFunctionTable(ktProfiler* p) {
  kt_initialize_ghash_table(&p->functionTable, p->memoryContext, kt_ghash_hash_ptr_key,
                            kt_ghash_compare_ptr_keys, MakeFunctionRecord, ReleaseFunctionRecord,
                            nullptr, nullptr, 2 * sizeof(void*), 0, 0,
                            sizeof(ktProfFunctionRecord), p, p->initialTableSize, kLowerLoad,
                            kUpperLoad);
}

// ---- clearing -----------------------------------------------------------------------------

void ReleaseHistoryAndStack(ktProfiler* p) {
  while (p->historyBlocks != nullptr) {
    ktProfHistoryBlock* next = p->historyBlocks->next;
    kt_mem_free(p->memoryContext, p->historyBlocks);
    p->historyBlocks = next;
  }
  while (p->stack != nullptr) {
    ktProfStackEntry* next = p->stack->next;
    kt_mem_free(p->memoryContext, p->stack);
    p->stack = next;
  }
}

void ZeroCounters(ktProfiler* p) {
  p->functionCount = 0;
  p->historyCount = 0;
  p->depth = 0;
  p->logging = 0;
  p->now = 0.0;
}

// ---- frames ----------------------------------------------------------------------------------

void ResetThenLog(kt_error_context*, void* data) {
  ktProfiler* p = *static_cast<ktProfiler**>(data);
  ktProfResetProfiler(p);
  p->logging = 1;
}

void InitializeRecord(ktProfiler* p, kt_mem_context* memory, const char* name,
                      ktProfSkipFunction skip, ktProfLineOwnerFunction lineOwner,
                      ktProfFunctionInfoMap map, ktProfTypenameFunction typeName) {
  std::memset(p, 0, sizeof *p);
  p->memoryContext = memory;
  p->errorContext = memory->errorContext;
  p->messageContext = p->errorContext->messageContext;
  p->historyCapacity = KT_PROF_HISTORY_CAPACITY;
  p->historyBlockSize = KT_PROF_HISTORY_BLOCK_SIZE;
  p->clock = ktCPUtime;
  p->skip = skip ? skip : NeverSkip;
  p->lineOwner = lineOwner ? lineOwner : AlwaysOwnsLines;
  p->mapFunctionInfo = map ? map : SameFunctionInfo;
  p->typeName = typeName;
  // The table stays zeroed (absent) until it is built, so that clearing
  // after a failure below releases only what exists.
  p->name = kt_mem_strdup(memory, name ? name : "");
  p->initialTableSize = KT_PROF_INITIAL_TABLE_SIZE;
  p->processorFrequency = MaximumProcessorFrequency();
  InitializeFunctionTable(p);
}

}  // namespace

namespace kt::internal {

int CatchProfilerError(kt_error_context* context, void* data, int code, va_list) {
  ktProfiler* p = data != nullptr ? *static_cast<ktProfiler**>(data) : nullptr;
  if (code == KT_OUT_OF_MEMORY) {
    if (p != nullptr)
      ktProfHandleMemoryFailure(p);
    else
      kt_error_print(context, KT_PROFILE_OUT_OF_MEMORY1);
  } else if (p != nullptr) {
    ktProfClearProfiler(p);
  }
  return 0;
}

}  // namespace kt::internal

// ---- lifecycle ------------------------------------------------------------------------------------

extern "C" void ktProfInitProfiler(ktProfiler* profiler, kt_mem_context* memoryContext,
                                   const char* name, ktProfSkipFunction skip,
                                   ktProfLineOwnerFunction lineOwner,
                                   ktProfFunctionInfoMap mapFunctionInfo,
                                   ktProfTypenameFunction typeName) {
  kt_mem_add_primary_message_table(memoryContext, &kProfilerTable);
  try {
    InitializeRecord(profiler, memoryContext, name, skip, lineOwner, mapFunctionInfo, typeName);
  } catch (...) {
    ktProfClearProfiler(profiler);
    throw;
  }
}

extern "C" ktProfiler* ktProfNewProfiler(kt_mem_context* memoryContext, const char* name,
                                         ktProfSkipFunction skip,
                                         ktProfLineOwnerFunction lineOwner,
                                         ktProfFunctionInfoMap mapFunctionInfo,
                                         ktProfTypenameFunction typeName) {
  auto* p = static_cast<ktProfiler*>(kt_mem_alloc(memoryContext, sizeof(ktProfiler)));
  try {
    ktProfInitProfiler(p, memoryContext, name, skip, lineOwner, mapFunctionInfo, typeName);
  } catch (...) {
    kt_mem_free(memoryContext, p);
    throw;
  }
  return p;
}

extern "C" void ktProfDeleteProfiler(ktProfiler* profiler) {
  if (profiler == nullptr)
    return;
  ktProfClearProfiler(profiler);
  kt_mem_free(profiler->memoryContext, profiler);
}

extern "C" void ktProfClearProfiler(ktProfiler* profiler) {
  kt_mem_free(profiler->memoryContext, profiler->name);
  profiler->name = nullptr;
  kt_clear_ghash_table(&profiler->functionTable);
  ReleaseHistoryAndStack(profiler);
  ZeroCounters(profiler);
}

extern "C" void ktProfResetProfiler(ktProfiler* profiler) {
  if (!ktProfIsInitialized(profiler))
    return;
  // The table first: should it fail to shrink, the flags still tell the
  // catch function whether logging was on.
  kt_ghash_empty(&profiler->functionTable, static_cast<int32_t>(profiler->initialTableSize));
  ReleaseHistoryAndStack(profiler);
  ZeroCounters(profiler);
}

extern "C" bool ktProfIsInitialized(const ktProfiler* profiler) {
  return profiler != nullptr && profiler->functionTable.buckets != nullptr;
}

extern "C" const char* ktProfProfilerName(const ktProfiler* profiler) { return profiler->name; }

// ---- switching ------------------------------------------------------------------------------------

extern "C" void ktProfStartLogging(ktProfiler* profiler) {
  if (!ktProfIsInitialized(profiler))
    return;
  kt_try_catch(profiler->errorContext, &profiler, ResetThenLog, kt::internal::CatchProfilerError);
}

extern "C" void ktProfSuspendLogging(ktProfiler* profiler) {
  if (!profiler->logging)
    return;
  while (profiler->stack != nullptr) {
    ktProfStackEntry* top = profiler->stack;
    ktProfLogFunctionExit(profiler, top->function->functionInfo, top->function->data);
    if (profiler->stack == top)
      break;  // the skip callback refused this exit
  }
  profiler->logging = 0;
}

extern "C" void ktProfResumeLogging(ktProfiler* profiler) { profiler->logging = 1; }

extern "C" void ktProfEnableHistoryTracking(ktProfiler* profiler, bool on) {
  if (!on) {
    profiler->history = 0;
    return;
  }
  if (profiler->logging && !profiler->history)
    kt_error(profiler->errorContext, KT_PROFILE_HISTORY_ERROR);
  profiler->history = 1;
}

extern "C" bool ktProfIsHistoryTrackingEnabled(const ktProfiler* profiler) {
  return profiler->history != 0;
}

extern "C" bool ktProfIsLineNumberLoggingEnabled(const ktProfiler* profiler) {
  return profiler->logging != 0;
}

extern "C" bool ktProfIsFunctionLoggingEnabled(const ktProfiler* profiler) {
  return profiler->logging != 0;
}

extern "C" uint32_t ktProfNumberOfEventRecords(const ktProfiler* profiler) {
  uint32_t events = 0;
  for (const ktProfHistoryBlock* block = profiler->historyBlocks; block != nullptr;
       block = block->next)
    events += block->count;
  return events;
}

// ---- failures and helpers ------------------------------------------------------------------------

extern "C" void ktProfHandleMemoryFailure(ktProfiler* profiler) {
  int wasLogging = profiler->logging ? 1 : 0;
  ktProfClearProfiler(profiler);
  // 0x1C0003 minus the flag: 0x1C0002 adds that the profiler is now off.
  kt_error_print(profiler->errorContext, KT_PROFILE_OUT_OF_MEMORY2 - wasLogging);
}

extern "C" double ktProfCpuTimeGranularity(void) {
  double t0 = ktCPUtime();
  double t1 = ktCPUtime();
  while (t1 <= t0)
    t1 = ktCPUtime();
  // The first step began before t0 was read: measure the next one whole.
  double t2 = ktCPUtime();
  while (t2 <= t1)
    t2 = ktCPUtime();
  return t2 - t1;
}

extern "C" const char* ktProfFunctionInfoToTypename(const ktProfiler* profiler,
                                                    void* functionInfo, void* data) {
  if (profiler->typeName == nullptr)
    return nullptr;
  return profiler->typeName(functionInfo, data);
}
