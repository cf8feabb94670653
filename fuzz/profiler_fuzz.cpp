// The profiler under event traces decoded from the input, against the
// model of tests/timing/profiler_model.h: entries, exits and lines of eight
// functions, start, suspend, resume, reset, the history switch, clock jumps,
// and memory failures armed to strike a few allocations later. The input
// first picks the skip and line-owner masks, the history capacity and the
// history block size; then three bytes per step.
//
// Checked after every step: the raised code, every field of the profile,
// the stack and the history agree with the model, and the printed text is
// the history warning exactly when the model switched history off. A step
// that runs out of memory must leave a cleared profiler and print the
// message for the logging state it met; the profiler is then initialised
// again. Leaks are left to the sanitizer.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "../tests/timing/profiler_model.h"
#include "kt/errors.h"
#include "kt/memory.h"
#include "kt/messages.h"
#include "kt/profiler.h"

namespace {

using namespace profmodel;

long gFailAfter = -1;  // allocations left before one fails; -1 never
std::string gPrinted;

bool FailNow() { return gFailAfter >= 0 && gFailAfter-- == 0; }
void* Allocate(size_t size) { return FailNow() ? nullptr : std::malloc(size); }
void* Reallocate(void* p, size_t size) { return FailNow() ? nullptr : std::realloc(p, size); }
int Print(void*, const char* text, int length) {
  gPrinted.append(text, static_cast<size_t>(length));
  return length;
}

struct Contexts {
  kt_message_context messages{};
  kt_error_context errors{};
  kt_mem_context memory{};
  Contexts() {
    int status = 0;
    kt_initialize_message_context(&status, &messages, std::malloc, std::realloc);
    kt_initialize_error_context(&status, &errors, &messages, Print, nullptr);
    kt_initialize_memory_context(&memory, &errors, Allocate, Reallocate, std::free);
  }
};

void Fail(const std::string& what) {
  std::fprintf(stderr, "profiler_fuzz: %s\n", what.c_str());
  std::abort();
}

void Start(ktProfiler* p, Model& m, uint32_t capacity, uint32_t blockSize) {
  static Contexts contexts;
  ktProfInitProfiler(p, &contexts.memory, "fuzz", Skip, OwnsLines, nullptr, nullptr);
  p->clock = Clock;
  p->historyCapacity = m.historyCapacity = capacity;
  p->historyBlockSize = blockSize;
  m.clock = gClock;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 5) return 0;
  gSkip[0] = data[0] & data[1], gSkip[1] = data[1] & data[2], gOwner = data[2] | 1;
  uint32_t capacity = 1 + data[3], blockSize = 1 + data[4] % 8;
  gFailAfter = -1, gClock = 0;
  ktProfiler p;
  Model m;
  Start(&p, m, capacity, blockSize);
  for (size_t i = 5; i + 3 <= size; i += 3) {
    const uint8_t* b = data + i;
    if (b[0] % (kOpCount + 1) == kOpCount) {  // arm a failure
      gFailAfter = b[1] % 8;
      continue;
    }
    auto op = static_cast<Op>(b[0] % (kOpCount + 1));
    int32_t value = op == kLine ? static_cast<int8_t>(b[1]) * 4 : b[1];
    Step step = {op, value, b[2]};
    bool logging = p.logging;
    gPrinted.clear();
    int got = ApplyToProfiler(&p, step);
    if (got == KT_OUT_OF_MEMORY) {
      std::string cleared = "Error: Profiler logs have been cleared because a memory allocation failure";
      if (logging) cleared += ";\nProfiler is now disabled";
      if (gPrinted != cleared + "\n") Fail("message after a failure: " + gPrinted);
      Model empty;
      empty.Clear(false), empty.history = p.history;
      if (!Compare(&p, empty).empty()) Fail("not cleared: " + Compare(&p, empty));
      gFailAfter = -1;
      m = Model{};
      Start(&p, m, capacity, blockSize);
      continue;
    }
    uint32_t warnings = m.historyFullPrints;
    if (got != m.Apply(step)) Fail("raised code " + std::to_string(got));
    std::string warning = m.historyFullPrints > warnings ? "Warning: Profiler history table is full\n" : "";
    if (gPrinted != warning) Fail("printed: " + gPrinted);
    std::string difference = Compare(&p, m);
    if (!difference.empty()) Fail(difference + " after step " + std::to_string(i / 3));
  }
  gFailAfter = -1;
  ktProfClearProfiler(&p);
  return 0;
}
