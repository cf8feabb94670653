// A model of the profiler's accounting for the profiler tests and the
// fuzz target: event traces applied to a profiler and to the model, and a
// comparison of every field the profile exposes. The model keeps its own
// shape (maps keyed by function information, a vector stack, a flat event
// list) and shares nothing with the library but the host callbacks.
//
// Functions are the addresses kFunctions[i]; the skip callback skips
// function i < 32 when bit i of gSkip[outermost] is set, the line-owner
// callback refuses function i < 32 when bit i of gOwner is clear. The clock
// adds 1 per reading; a Jump step moves it further.
#ifndef KT_TESTS_TIMING_PROFILER_MODEL_H
#define KT_TESTS_TIMING_PROFILER_MODEL_H

#include <cstdint>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kt/profiler.h"

namespace profmodel {

inline char kFunctions[256];
inline char kData[2];
inline uint32_t gSkip[2] = {0, 0};  // [outermost]
inline uint32_t gOwner = ~0u;
inline double gClock = 0;

inline unsigned IndexOf(const void* f) { return static_cast<unsigned>(static_cast<const char*>(f) - kFunctions); }
inline bool Bit(uint32_t mask, const void* f) { return IndexOf(f) < 32 && (mask >> IndexOf(f) & 1); }
inline bool Skip(void* f, void*, bool outermost) { return Bit(gSkip[outermost], f); }
inline bool OwnsLines(void* f, void*) { return IndexOf(f) >= 32 || Bit(gOwner, f); }
inline double Clock() { return gClock += 1; }

inline const std::string kCleared =
    "Error: Profiler logs have been cleared because a memory allocation failure";
inline const std::string kDisabled = kCleared + ";\nProfiler is now disabled";
inline const std::string kHistoryFull = "Warning: Profiler history table is full\n";

enum Op : uint8_t { kEntry, kExit, kLine, kStart, kSuspend, kResume, kHistoryOn, kHistoryOff,
                    kReset, kJump, kOpCount };
// value: the function index (entry, exit), line, or clock jump; data: the
// data word index (entry, exit).
struct Step { Op op; int32_t value, data; };
struct Link { void* other; uint32_t count; double time; };  // time: children only

struct Function {
  void* data = nullptr;
  uint32_t index = 0, calls = 0, active = 0;
  double total = 0, self = 0;
  uint32_t first = KT_PROF_NO_LINE, last = 0;
  uint64_t capacity = 0;
  std::map<uint32_t, std::pair<uint32_t, double>> lines;  // line -> (count, time)
  std::vector<Link> children, parents;                    // oldest first

  static Link& To(std::vector<Link>& links, void* other) {
    for (Link& l : links)
      if (l.other == other) return l;
    return links.emplace_back(Link{other, 0, 0});
  }
  bool Covers(uint32_t line) const { return capacity != 0 && line >= first && line <= last; }
  void Cover(uint32_t line) {  // the growth rule
    if (capacity == 0) {
      first = last = line, capacity = KT_PROF_FIRST_LINE_TABLE;
    } else if (line < first) {
      capacity += first - line, first = line;
    } else if (line > last) {
      uint64_t need = uint64_t{line} + 1 - first;
      if (capacity < need) capacity = 2 * need;
      last = line;
    }
  }
};

struct Event { void* function; uint32_t exit; double time; };

struct Model {
  std::map<void*, Function> functions;
  std::vector<std::pair<void*, uint32_t>> stack;  // (function, line), top last
  std::vector<Event> events;
  uint32_t depth = 0, historyCount = 0, historyFullPrints = 0;
  uint32_t historyCapacity = KT_PROF_HISTORY_CAPACITY;
  bool logging = false, history = false, initialized = true;
  double clock = 0, now = 0;

  void Record(void* f, uint32_t exit) {
    if (!history) return;
    events.push_back({f, exit, now});
    if (++historyCount >= historyCapacity) history = false, ++historyFullPrints;
  }
  void Entry(void* f, void* data) {
    if (Skip(f, data, depth++ == 0)) return;
    now = clock += 1;
    if (!functions.count(f)) functions[f].data = data, functions[f].index = uint32_t(functions.size() - 1);
    Function& callee = functions[f];
    if (!stack.empty()) {
      Link& child = Function::To(functions[stack.back().first].children, f);
      child.count++, child.time -= now;
      Function::To(callee.parents, stack.back().first).count++;
    }
    stack.push_back({f, 0});
    callee.calls++, callee.self -= now;
    if (callee.active++ == 0) callee.total -= now;
    Record(f, 0);
  }
  void Exit(void* f, void* data) {
    if (stack.empty() || Skip(f, data, depth-- == 1)) return;
    now = clock += 1;
    auto [top, line] = stack.back();
    stack.pop_back();
    Function& callee = functions[top];
    if (line != 0 && callee.Covers(line)) callee.lines[line].second += now;
    if (!stack.empty()) Function::To(functions[stack.back().first].children, top).time += now;
    callee.self += now;
    if (callee.active-- == 1) callee.total += now;
    Record(top, 1);
  }
  void LineEvent(int32_t n) {
    auto owner = stack.rbegin();
    while (owner != stack.rend() && !OwnsLines(owner->first, nullptr)) ++owner;
    if (owner == stack.rend()) return;
    now = clock += 1;
    Function& f = functions[owner->first];
    uint32_t previous = stack.back().second;
    if (previous != 0 && f.Covers(previous)) f.lines[previous].second += now;
    uint32_t line = n < 0 ? 0u - static_cast<uint32_t>(n) : static_cast<uint32_t>(n);
    f.Cover(line);
    f.lines[line].first++, f.lines[line].second -= now;
    stack.back().second = line;
  }
  void Clear(bool keepInitialized) {
    functions.clear(), stack.clear(), events.clear();
    depth = historyCount = 0, logging = false, now = 0, initialized = keepInitialized;
  }
  int Apply(const Step& s) {  // returns the error code the step raises
    void *f = &kFunctions[s.value & 255], *data = &kData[s.data & 1];
    bool on = initialized;
    switch (s.op) {
      case kEntry: if (on) Entry(f, data); break;
      case kExit: if (on) Exit(f, data); break;
      case kLine: if (on) LineEvent(s.value); break;
      case kStart: if (on) Clear(true), logging = true; break;
      case kReset: if (on) Clear(true); break;
      case kSuspend:
        for (size_t n = stack.size(); logging && n > 0 && n == stack.size(); --n)
          Exit(stack.back().first, functions[stack.back().first].data);
        logging = false;
        break;
      case kResume: logging = true; break;
      case kHistoryOn:
        if (logging && !history) return KT_PROFILE_HISTORY_ERROR;
        history = true;
        break;
      case kHistoryOff: history = false; break;
      default: clock += s.value;
    }
    return 0;
  }
};

// Runs the step on the profiler under a frame that accepts every error;
// returns 0 or the raised code.
inline int ApplyToProfiler(ktProfiler* p, const Step& s) {
  struct Call { ktProfiler* p; const Step* s; } call = {p, &s};
  auto body = [](kt_error_context*, void* data) {
    auto [q, step] = *static_cast<Call*>(data);
    void *f = &kFunctions[step->value & 255], *d = &kData[step->data & 1];
    switch (step->op) {
      case kEntry: ktProfLogFunctionEntry(q, f, d); break;
      case kExit: ktProfLogFunctionExit(q, f, d); break;
      case kLine: ktProfLogLineNumberEvent(q, step->value); break;
      case kStart: ktProfStartLogging(q); break;
      case kReset: ktProfResetProfiler(q); break;
      case kSuspend: ktProfSuspendLogging(q); break;
      case kResume: ktProfResumeLogging(q); break;
      case kHistoryOn: ktProfEnableHistoryTracking(q, true); break;
      case kHistoryOff: ktProfEnableHistoryTracking(q, false); break;
      default: gClock += step->value;
    }
  };
  auto accept = [](kt_error_context*, void*, int, va_list) { return 1; };
  return kt_try_catch(p->errorContext, &call, body, accept);
}

// The first difference between profiler and model, or "" when they agree.
inline std::string Compare(const ktProfiler* p, const Model& m) {
  std::ostringstream d;
  auto check = [&d](bool same, const char* what, auto where) {
    if (!same && d.tellp() == 0) d << what << " differs (" << where << ")";
  };
  check(ktProfIsInitialized(p) == m.initialized, "initialised", 0);
  check(p->depth == m.depth && p->logging == m.logging && p->history == m.history, "flags", p->depth);
  check(p->now == m.now && p->historyCount == m.historyCount, "now/history count", p->now);
  check(p->functionCount == m.functions.size(), "function count", p->functionCount);
  if (!m.initialized) return d.str();
  // A library list (newest first) against a model vector (oldest first).
  auto sameList = [&check](auto* head, const auto& want, const char* what, auto same) {
    auto w = want.rbegin();
    for (auto* l = head; l != nullptr; l = l->next, ++w)
      check(w != want.rend() && same(l, *w), what, want.rend() - w);
    check(w == want.rend(), what, want.size());
  };
  kt_ghash_cursor cursor;
  void* element;
  auto* table = const_cast<kt_ghash_table*>(&p->functionTable);
  kt_ghash_cursor_init(table, &cursor);
  while (kt_ghash_iterate(table, &cursor, &element, nullptr) && d.tellp() == 0) {
    auto* r = static_cast<ktProfFunctionRecord*>(element);
    unsigned i = IndexOf(r->functionInfo);
    auto it = m.functions.find(r->functionInfo);
    check(it != m.functions.end(), "function", i);
    if (it == m.functions.end()) break;
    const Function& f = it->second;
    check(r->data == f.data && r->index == f.index && r->callCount == f.calls, "key/index/calls", i);
    check(r->activeCount == f.active && r->totalTime == f.total && r->selfTime == f.self, "times", i);
    check(r->firstLine == f.first && r->lineCapacity == f.capacity &&
              r->lastLine == (f.capacity ? f.last : 0) &&
              r->lineCount == (f.capacity ? f.last + 1 - f.first : 0),
          "line range", i);
    for (uint32_t k = 0; k < r->lineCapacity && d.tellp() == 0; ++k) {
      auto line = f.lines.find(f.first + k);
      auto want = line == f.lines.end() ? std::pair<uint32_t, double>() : line->second;
      const ktProfLineRecord& got = r->lines[k];
      check(got.count == want.first && got.time == want.second && !got.unused1 && !got.unused2,
            "line record", f.first + k);
    }
    sameList(r->children, f.children, "child links", [](auto* l, const Link& want) {
      return l->child->functionInfo == want.other && l->count == want.count && l->time == want.time;
    });
    sameList(r->parents, f.parents, "parent links", [](auto* l, const Link& want) {
      return l->parent->functionInfo == want.other && l->count == want.count;
    });
  }
  sameList(p->stack, m.stack, "stack", [](auto* e, auto& want) {
    return e->function->functionInfo == want.first && e->line == want.second;
  });
  std::vector<const ktProfHistoryBlock*> blocks;  // oldest first
  for (const ktProfHistoryBlock* b = p->historyBlocks; b != nullptr; b = b->next)
    blocks.insert(blocks.begin(), b);
  size_t n = 0;
  for (const ktProfHistoryBlock* b : blocks) {
    check(b->count == p->historyBlockSize || b == blocks.back(), "full older blocks", n);
    for (uint32_t k = 0; k < b->count; ++k, ++n)
      check(n < m.events.size() && b->events[k].function->functionInfo == m.events[n].function &&
                b->events[k].exit == m.events[n].exit && b->events[k].time == m.events[n].time,
            "history event", n);
  }
  check(n == m.events.size() && ktProfNumberOfEventRecords(p) == n, "history length", n);
  return d.str();
}

// Applies the step to both and returns their first difference, or "". The
// text printed meanwhile (collected in `printed`) must be the history
// warning exactly when the model switched history off. A step that runs
// out of memory (*failed) must instead leave a cleared profiler and have
// printed the message for the logging state it met. Without `compare`
// the profile itself is compared only after a failure.
inline std::string Check(ktProfiler* p, Model& m, const Step& s, std::string& printed,
                         bool* failed, bool compare = true) {
  bool logging = p->logging;
  uint32_t warnings = m.historyFullPrints;
  printed.clear();
  int code = ApplyToProfiler(p, s);
  *failed = code == KT_OUT_OF_MEMORY;
  if (*failed) {
    if (printed != (logging ? kDisabled : kCleared) + "\n") return "printed " + printed;
    Model cleared;
    cleared.Clear(false), cleared.history = p->history;
    return Compare(p, cleared);
  }
  if (code != m.Apply(s)) return "raised " + std::to_string(code);
  if (printed != (m.historyFullPrints > warnings ? kHistoryFull : "")) return "printed " + printed;
  return compare ? Compare(p, m) : "";
}

}  // namespace profmodel

#endif  // KT_TESTS_TIMING_PROFILER_MODEL_H
