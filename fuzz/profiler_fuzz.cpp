// The profiler under event traces decoded from the input, against the
// model of tests/timing/profiler_model.h: entries, exits and lines of eight
// functions, start, suspend, resume, reset, the history switch, clock jumps,
// and memory failures armed to strike a few allocations later. The input
// first picks the skip and line-owner masks, the history capacity and the
// history block size; then three bytes per step.
//
// Checked after every step (profmodel::Check): the raised code, every field
// of the profile, the stack and the history agree with the model, and the
// history warning is printed exactly when the model switched history off.
// A step that runs out of memory must leave a cleared profiler and print
// the message for the logging state it met; the profiler is then
// initialised again. Leaks are left to the sanitizer.
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

void Start(ktProfiler* p, Model& m, uint32_t capacity, uint32_t blockSize) {
  static Contexts contexts;
  gFailAfter = -1;
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
  gClock = 0;
  ktProfiler p;
  Model m;
  Start(&p, m, capacity, blockSize);
  for (size_t i = 5; i + 3 <= size; i += 3) {
    const uint8_t* b = data + i;
    auto op = static_cast<Op>(b[0] % (kOpCount + 1));
    if (op == kOpCount) {  // arm a failure
      gFailAfter = b[1] % 8;
      continue;
    }
    int32_t value = op == kLine ? static_cast<int8_t>(b[1]) * 4 : op == kJump ? b[1] : b[1] % 8;
    bool failed = false;
    std::string difference = Check(&p, m, {op, value, b[2]}, gPrinted, &failed);
    if (!difference.empty()) {
      std::fprintf(stderr, "profiler_fuzz: %s after step %zu\n", difference.c_str(), i / 3);
      std::abort();
    }
    if (failed) m = Model{}, Start(&p, m, capacity, blockSize);
  }
  gFailAfter = -1;
  ktProfClearProfiler(&p);
  return 0;
}
