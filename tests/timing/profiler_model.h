// A model of the profiler's accounting for the profiler tests and the
// fuzz target: event traces applied to a profiler and to the model, and a
// comparison of every field the profile exposes. The model keeps its own
// shape (maps keyed by function information, a vector stack, a flat event
// list) and shares nothing with the library but the host callbacks.
//
// Functions are the addresses kFunctions[i]; the skip callback skips
// function i when bit i of gSkip[outermost] is set, the line-owner callback
// accepts it when bit i of gOwner is set. The clock adds 1 per reading;
// a Jump step moves it further.
#ifndef KT_TESTS_TIMING_PROFILER_MODEL_H
#define KT_TESTS_TIMING_PROFILER_MODEL_H

#include <cstdint>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kt/profiler.h"

namespace profmodel {

inline char kFunctions[8];
inline char kData[2];
inline uint32_t gSkip[2] = {0, 0};  // [outermost]
inline uint32_t gOwner = 0xFF;
inline double gClock = 0;

inline int IndexOf(const void* info) { return static_cast<int>(static_cast<const char*>(info) - kFunctions); }
inline bool Skip(void* info, void*, bool outermost) { return gSkip[outermost] >> IndexOf(info) & 1; }
inline bool OwnsLines(void* info, void*) { return gOwner >> IndexOf(info) & 1; }
inline double Clock() { return gClock += 1; }

enum Op : uint8_t { kEntry, kExit, kLine, kStart, kSuspend, kResume, kHistoryOn, kHistoryOff,
                    kReset, kJump, kOpCount };
struct Step {
  Op op;
  int32_t value;  // function index (entry, exit), line, or clock jump
  int32_t data;   // data word index (entry, exit)
};

struct Line {
  uint32_t count = 0;
  double time = 0;
};

struct Function {
  void* data = nullptr;
  uint32_t index = 0, calls = 0, active = 0;
  double total = 0, self = 0;
  uint32_t first = KT_PROF_NO_LINE, last = 0;
  uint64_t capacity = 0;
  std::map<uint32_t, Line> lines;
  std::vector<std::pair<void*, std::pair<uint32_t, double>>> children;  // oldest first
  std::vector<std::pair<void*, uint32_t>> parents;

  template <class V>
  static V& Link(std::vector<std::pair<void*, V>>& list, void* other) {
    for (auto& entry : list)
      if (entry.first == other) return entry.second;
    list.push_back({other, V{}});
    return list.back().second;
  }
  bool Covers(uint32_t line) const { return capacity != 0 && line >= first && line <= last; }
  void Cover(uint32_t line) {  // the growth rule
    if (capacity == 0) {
      first = last = line;
      capacity = KT_PROF_FIRST_LINE_TABLE;
    } else if (line < first) {
      capacity += first - line;
      first = line;
    } else if (line > last) {
      uint64_t need = uint64_t{line} + 1 - first;
      if (capacity < need) capacity = 2 * need;
      last = line;
    }
  }
};

struct Event {
  void* info;
  uint32_t exit;
  double time;
};

struct Model {
  std::map<void*, Function> functions;
  std::vector<std::pair<void*, uint32_t>> stack;  // (function, line), top last
  std::vector<Event> events;
  uint32_t depth = 0, historyCount = 0, historyFullPrints = 0;
  uint32_t historyCapacity = KT_PROF_HISTORY_CAPACITY;
  bool logging = false, history = false, initialized = true;
  double clock = 0, now = 0;

  void Read() { now = clock += 1; }
  void Record(void* info, uint32_t exit) {
    if (!history) return;
    events.push_back({info, exit, now});
    if (++historyCount >= historyCapacity) history = false, ++historyFullPrints;
  }
  void Entry(void* info, void* data) {
    bool outermost = depth++ == 0;
    if (Skip(info, data, outermost)) return;
    Read();
    bool fresh = functions.count(info) == 0;
    Function& f = functions[info];
    if (fresh) f.data = data, f.index = static_cast<uint32_t>(functions.size() - 1);
    if (!stack.empty()) {
      auto& child = Function::Link(functions[stack.back().first].children, info);
      child.first++, child.second -= now;
      Function::Link(f.parents, stack.back().first)++;
    }
    stack.push_back({info, 0});
    f.calls++;
    if (f.active++ == 0) f.total -= now;
    f.self -= now;
    Record(info, 0);
  }
  void Exit(void* info, void* data) {
    if (stack.empty()) return;
    bool outermost = depth-- == 1;
    if (Skip(info, data, outermost)) return;
    Read();
    auto [top, line] = stack.back();
    stack.pop_back();
    Function& f = functions[top];
    if (line != 0 && f.Covers(line)) f.lines[line].time += now;
    if (!stack.empty()) Function::Link(functions[stack.back().first].children, top).second += now;
    f.self += now;
    if (f.active-- == 1) f.total += now;
    Record(top, 1);
  }
  void LineEvent(int32_t n) {
    auto owner = stack.rbegin();
    while (owner != stack.rend() && !OwnsLines(owner->first, nullptr)) ++owner;
    if (owner == stack.rend()) return;
    Read();
    Function& f = functions[owner->first];
    uint32_t previous = stack.back().second;
    if (previous != 0 && f.Covers(previous)) f.lines[previous].time += now;
    uint32_t line = n < 0 ? 0u - static_cast<uint32_t>(n) : static_cast<uint32_t>(n);
    f.Cover(line);
    f.lines[line].count++, f.lines[line].time -= now;
    stack.back().second = line;
  }
  void Clear(bool keepInitialized) {
    functions.clear(), stack.clear(), events.clear();
    depth = historyCount = 0;
    logging = false, now = 0;
    initialized = keepInitialized;
  }
  int Apply(const Step& s) {  // returns the error code the step raises
    bool on = initialized;
    void* info = &kFunctions[s.value & 7];
    void* data = &kData[s.data & 1];
    switch (s.op) {
      case kEntry: if (on) Entry(info, data); break;
      case kExit: if (on) Exit(info, data); break;
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
  struct Call { ktProfiler* p; const Step* s; };
  auto body = [](kt_error_context*, void* data) {
    auto* c = static_cast<Call*>(data);
    ktProfiler* q = c->p;
    void* info = &kFunctions[c->s->value & 7];
    void* d = &kData[c->s->data & 1];
    switch (c->s->op) {
      case kEntry: ktProfLogFunctionEntry(q, info, d); break;
      case kExit: ktProfLogFunctionExit(q, info, d); break;
      case kLine: ktProfLogLineNumberEvent(q, c->s->value); break;
      case kStart: ktProfStartLogging(q); break;
      case kReset: ktProfResetProfiler(q); break;
      case kSuspend: ktProfSuspendLogging(q); break;
      case kResume: ktProfResumeLogging(q); break;
      case kHistoryOn: ktProfEnableHistoryTracking(q, true); break;
      case kHistoryOff: ktProfEnableHistoryTracking(q, false); break;
      default: gClock += c->s->value;
    }
  };
  auto accept = [](kt_error_context*, void*, int, va_list) { return 1; };
  Call call = {p, &s};
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
  kt_ghash_cursor cursor;
  void* element;
  auto* table = const_cast<kt_ghash_table*>(&p->functionTable);
  kt_ghash_cursor_init(table, &cursor);
  while (kt_ghash_iterate(table, &cursor, &element, nullptr) && d.tellp() == 0) {
    auto* r = static_cast<ktProfFunctionRecord*>(element);
    auto it = m.functions.find(r->functionInfo);
    check(it != m.functions.end(), "function", IndexOf(r->functionInfo));
    if (it == m.functions.end()) break;
    const Function& f = it->second;
    int i = IndexOf(r->functionInfo);
    check(r->data == f.data && r->index == f.index && r->callCount == f.calls, "key/index/calls", i);
    check(r->activeCount == f.active && r->totalTime == f.total && r->selfTime == f.self, "times", i);
    check(r->firstLine == f.first && r->lineCapacity == f.capacity, "line range", i);
    check(r->lastLine == (f.capacity ? f.last : 0), "last line", i);
    check(r->lineCount == (f.capacity ? f.last + 1 - f.first : 0), "line count", i);
    for (uint32_t k = 0; k < r->lineCapacity && d.tellp() == 0; ++k) {
      auto line = f.lines.find(f.first + k);
      Line want = line == f.lines.end() ? Line{} : line->second;
      const ktProfLineRecord& got = r->lines[k];
      check(got.count == want.count && got.time == want.time && !got.unused1 && !got.unused2,
            "line record", f.first + k);
    }
    auto child = f.children.rbegin();  // the library's lists are newest first
    for (ktProfChildLink* l = r->children; l != nullptr; l = l->next, ++child)
      check(child != f.children.rend() && l->child->functionInfo == child->first &&
                l->count == child->second.first && l->time == child->second.second,
            "child link", i);
    check(child == f.children.rend(), "child links", i);
    auto parent = f.parents.rbegin();
    for (ktProfParentLink* l = r->parents; l != nullptr; l = l->next, ++parent)
      check(parent != f.parents.rend() && l->parent->functionInfo == parent->first &&
                l->count == parent->second,
            "parent link", i);
    check(parent == f.parents.rend(), "parent links", i);
  }
  auto frame = m.stack.rbegin();
  for (ktProfStackEntry* e = p->stack; e != nullptr; e = e->next, ++frame)
    check(frame != m.stack.rend() && e->function->functionInfo == frame->first &&
              e->line == frame->second,
          "stack entry", e->line);
  check(frame == m.stack.rend(), "stack depth", m.stack.size());
  std::vector<const ktProfHistoryBlock*> blocks;
  for (const ktProfHistoryBlock* b = p->historyBlocks; b != nullptr; b = b->next) blocks.insert(blocks.begin(), b);
  size_t n = 0;
  for (const ktProfHistoryBlock* b : blocks) {
    check(b->count == p->historyBlockSize || b == blocks.back(), "full older blocks", n);
    for (uint32_t k = 0; k < b->count; ++k, ++n)
      check(n < m.events.size() && b->events[k].function->functionInfo == m.events[n].info &&
                b->events[k].exit == m.events[n].exit && b->events[k].time == m.events[n].time,
            "history event", n);
  }
  check(n == m.events.size() && ktProfNumberOfEventRecords(p) == n, "history length", n);
  return d.str();
}

}  // namespace profmodel

#endif  // KT_TESTS_TIMING_PROFILER_MODEL_H
