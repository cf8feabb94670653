// kt profile: runs a small built-in program -- a recursive Fibonacci and a
// mutually recursive even/odd test -- whose function entries, exits and
// executed lines are traced through the library's profiler, and prints the
// profile: per function its calls, total and self-inclusive time, callers
// and callees; then the hottest lines.
//
// By default time is virtual, one microsecond per executed line, so the
// figures are the same on every run; --cpu measures process CPU time.
#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "commands.h"
#include "kt/contexts.h"
#include "kt/profiler.h"

namespace kttool {
namespace {

// A function of the built-in program; its address is its function information.
struct Function {
  const char* name;
};
const Function kMain = {"main"};
const Function kFib = {"fib"};
const Function kEven = {"is_even"};
const Function kOdd = {"is_odd"};

double gVirtualSeconds = 0;
double VirtualClock() { return gVirtualSeconds; }

const char* NameOf(void* functionInfo, void*) { return static_cast<Function*>(functionInfo)->name; }

// The interpreter's hooks: each executed line costs a virtual microsecond.
class Tracer {
public:
  explicit Tracer(ktProfiler* profiler) : profiler_(profiler) {}
  void Enter(const Function& f) { ktProfLogFunctionEntry(profiler_, Info(f), nullptr); }
  void Leave(const Function& f) { ktProfLogFunctionExit(profiler_, Info(f), nullptr); }
  void Line(int line) {
    gVirtualSeconds += 1e-6;
    ktProfLogLineNumberEvent(profiler_, line);
  }

private:
  static void* Info(const Function& f) { return const_cast<Function*>(&f); }
  ktProfiler* profiler_;
};

// fib(n):                    lines 10-14
//   10 if n < 2:
//   11   return n
//   12 a = fib(n - 1)
//   13 b = fib(n - 2)
//   14 return a + b
long Fib(Tracer& t, int n) {
  t.Enter(kFib);
  long result = n;
  t.Line(10);
  if (n < 2) {
    t.Line(11);
  } else {
    t.Line(12);
    long a = Fib(t, n - 1);
    t.Line(13);
    long b = Fib(t, n - 2);
    t.Line(14);
    result = a + b;
  }
  t.Leave(kFib);
  return result;
}

// is_even(n): 20 if n == 0: 21 return true; 22 return is_odd(n - 1)
// is_odd(n):  30 if n == 0: 31 return false; 32 return is_even(n - 1)
bool Parity(Tracer& t, int n, bool even) {
  const Function& self = even ? kEven : kOdd;
  int base = even ? 20 : 30;
  t.Enter(self);
  t.Line(base);
  bool result = even;
  if (n == 0) {
    t.Line(base + 1);
  } else {
    t.Line(base + 2);
    result = Parity(t, n - 1, !even);
  }
  t.Leave(self);
  return result;
}

// main: 1 fib(N); 2 is_even(2N + 1); 3 end
void RunProgram(ktProfiler* profiler, int n) {
  Tracer t(profiler);
  t.Enter(kMain);
  t.Line(1);
  Fib(t, n);
  t.Line(2);
  Parity(t, 2 * n + 1, true);
  t.Line(3);
  t.Leave(kMain);
}

// ---- printing -----------------------------------------------------------------

std::vector<ktProfFunctionRecord*> FunctionsInOrder(ktProfiler* p) {
  std::vector<ktProfFunctionRecord*> functions;
  kt_ghash_cursor cursor;
  void* element = nullptr;
  kt_ghash_cursor_init(&p->functionTable, &cursor);
  while (kt_ghash_iterate(&p->functionTable, &cursor, &element, nullptr))
    functions.push_back(static_cast<ktProfFunctionRecord*>(element));
  std::sort(functions.begin(), functions.end(),
            [](auto* a, auto* b) { return a->index < b->index; });
  return functions;
}

// "name(count) ..." oldest link first; "-" for none.
template <class Link, class Target>
std::string LinkList(const ktProfiler* p, const Link* links, Target target) {
  std::vector<std::string> items;
  for (const Link* l = links; l != nullptr; l = l->next) {
    const ktProfFunctionRecord* f = target(l);
    items.insert(items.begin(), std::string(ktProfFunctionInfoToTypename(p, f->functionInfo, f->data)) +
                                    "(" + std::to_string(l->count) + ")");
  }
  std::string text;
  for (const std::string& item : items) text += (text.empty() ? "" : " ") + item;
  return text.empty() ? "-" : text;
}

// Seconds for the table; a sum that cancels to within rounding shows as 0.
double Shown(double seconds) { return std::fabs(seconds) < 5e-7 ? 0.0 : seconds; }

struct HotLine {
  const char* function;
  uint32_t line, count;
  double time;
};

void PrintProfile(ktProfiler* p) {
  std::printf("%-9s %7s %12s %12s  %-24s %s\n", "function", "calls", "total s", "self-incl s",
              "callers", "callees");
  std::vector<HotLine> lines;
  for (ktProfFunctionRecord* f : FunctionsInOrder(p)) {
    const char* name = ktProfFunctionInfoToTypename(p, f->functionInfo, f->data);
    std::string callers = LinkList(p, f->parents, [](auto* l) { return l->parent; });
    std::string callees = LinkList(p, f->children, [](auto* l) { return l->child; });
    std::printf("%-9s %7u %12.6f %12.6f  %-24s %s\n", name, f->callCount, Shown(f->totalTime),
                Shown(f->selfTime), callers.c_str(), callees.c_str());
    for (uint32_t k = 0; k < f->lineCount; ++k) {
      const ktProfLineRecord* r = ktProfLookupLinenumRecord(f, f->firstLine + k);
      if (r->count != 0) lines.push_back({name, f->firstLine + k, r->count, r->time});
    }
  }
  std::stable_sort(lines.begin(), lines.end(),
                   [](const HotLine& a, const HotLine& b) { return a.time > b.time; });
  std::printf("\n%-13s %7s %12s\n", "hottest lines", "count", "time s");
  for (size_t i = 0; i < lines.size() && i < 5; ++i) {
    std::string where = std::string(lines[i].function) + ":" + std::to_string(lines[i].line);
    std::printf("%-13s %7u %12.6f\n", where.c_str(), lines[i].count, Shown(lines[i].time));
  }
}

int Usage() {
  std::printf("Usage: kt profile [--cpu] [N]\n"
              "Profiles a built-in program that computes fib(N) recursively and is_even(2N+1)\n"
              "by mutual recursion (N from 0 to 30, default 10), and prints per function the\n"
              "calls, total time (outermost calls), self-inclusive time (every call), callers\n"
              "and callees, then the five hottest lines. Time is virtual, one microsecond per\n"
              "executed line, unless --cpu asks for process CPU time.\n");
  return 0;
}

}  // namespace

int RunProfile(int argc, char** argv) {
  bool cpu = false;
  int n = 10;
  for (int i = 1; i < argc; ++i) {
    char* end = nullptr;
    if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) return Usage();
    if (std::strcmp(argv[i], "--cpu") == 0) {
      cpu = true;
      continue;
    }
    errno = 0;
    long value = std::strtol(argv[i], &end, 10);
    if (end == argv[i] || *end != '\0' || errno != 0 || value < 0 || value > 30) {
      Complain("profile: '%s' is not a size from 0 to 30 (try 'kt profile --help')", argv[i]);
      return 2;
    }
    n = static_cast<int>(value);
  }
  ktProfiler* p = ktProfNewProfiler(ktGetMemoryContext(), "kt profile", nullptr, nullptr,
                                    nullptr, NameOf);
  if (!cpu) p->clock = VirtualClock;
  ktProfStartLogging(p);
  RunProgram(p, n);
  ktProfSuspendLogging(p);
  if (cpu)
    std::printf("fib(%d), is_even(%d); clock: CPU time, steps of %g s\n", n, 2 * n + 1,
                ktProfCpuTimeGranularity());
  else
    std::printf("fib(%d), is_even(%d); clock: 1 us per executed line\n", n, 2 * n + 1);
  PrintProfile(p);
  ktProfDeleteProfiler(p);
  return 0;
}

}  // namespace kttool
