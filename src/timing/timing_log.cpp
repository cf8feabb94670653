// The start-up timing log: opening and closing, per-thread tic stacks, and
// the rows each toc writes to the files, the row callback and the
// "tlmx_timing" diagnostic channel.
#include "kt/timing.h"

#include <atomic>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "internal/diag.h"
#include "kt/clocks.h"
#include "kt/files.h"
#include "timing/timing_log_format.h"

namespace {

using Clock = std::chrono::steady_clock;
using kt::internal::TimingCounters;
using kt::internal::TimingRow;
namespace diag = kt::internal::diag;

constexpr const char* kModule = "cputime";
// Flags of the "tlmx_timing" channel, one per sub-channel.
constexpr uint32_t kTimingFlag = 0x1;  // startup::timing: opening and closing
constexpr uint32_t kStageFlag = 0x2;   // startup::stage: one record per row
// Rows deeper than this fail: lastEnd has one slot per depth 0..16.
constexpr size_t kDepthSlots = 17;

// The process-wide log, all of it under `mutex`.
struct TimingLog {
  std::mutex mutex;
  bool perfMode = false;
  std::string timingPath;
  FILE* timingFile = nullptr;
  std::string perfPath;
  FILE* perfFile = nullptr;
  Clock::time_point logStart{};
  double topLevelSum = 0;  // ms, items of rows at depth 0 and 1
  double previousCpu = 0;  // s, the reading of the previous row
  TimingCounters previousCounters{};
  ktTimingRowCallback rowCallback;
  ktTimingCloseCallback closeCallback;
};

// Never destroyed: tocs may still come from other threads and exit code.
TimingLog& TheLog() {
  static TimingLog* log = new TimingLog;
  return *log;
}

std::atomic<long> openTimings{0};
std::atomic<Clock::time_point> startTimestamp{Clock::time_point{}};

// One thread's tics, innermost last, and lastEnd[d]: the total (ms) at
// which this thread's last row at depth d or shallower ended.
struct ThreadTimings {
  std::deque<Clock::time_point> tics;
  std::vector<double> lastEnd = std::vector<double>(kDepthSlots, 0.0);
};

ThreadTimings& ThisThread() {
  thread_local std::unique_ptr<ThreadTimings> timings;
  if (!timings) timings.reset(new ThreadTimings);
  return *timings;
}

double Milliseconds(Clock::duration d) {
  return static_cast<double>(std::chrono::duration_cast<std::chrono::nanoseconds>(d).count()) /
         1e6;
}

diag::Channel& Channel() {
  static diag::Channel& channel = diag::GetChannel("tlmx_timing");
  return channel;
}

// No source of I/O and memory counters is read on this platform.
TimingCounters ReadCounters() { return TimingCounters{}; }

// The first five counters as differences from the previous row, the
// virtual memory as it stands.
TimingCounters CounterDeltas(const TimingCounters& now, const TimingCounters& before) {
  TimingCounters delta = now;
  for (int i = 0; i < 5; ++i) delta.values[i] -= before.values[i];
  return delta;
}

// ---- rows -------------------------------------------------------------------

void TraceRow(const TimingRow& row) {
  if (auto record = Channel().Open(kStageFlag, kModule, __LINE__, __func__))
    record.stream() << "startup::stage: id=" << row.description << " total=" << row.total
                    << " item=" << row.item << " gap=" << row.gap << " tic_depth=" << row.depth;
}

void WriteRowToFiles(TimingLog& log, TimingRow& row, double cpu) {
  if (log.timingFile == nullptr) return;
  if (log.perfMode) {
    TimingCounters now = ReadCounters();
    row.counters = CounterDeltas(now, log.previousCounters);
    row.cpu = cpu - log.previousCpu;
    kt::internal::WriteTimingRow(log.timingFile, true, row);
    if (log.perfFile != nullptr) kt::internal::WritePerfRow(log.perfFile, row);
    log.previousCpu = cpu;
    log.previousCounters = now;
  } else {
    kt::internal::WriteTimingRow(log.timingFile, false, row);
  }
  std::fflush(log.timingFile);
}

// Writes the row of an interval of `thread` at `depth`; `log.mutex` held.
// Past depth 16 the checked access to lastEnd throws std::out_of_range.
void WriteRowLocked(TimingLog& log, ThreadTimings& thread, const char* description,
                    Clock::time_point start, Clock::time_point end, size_t depth) {
  double totalMs = Milliseconds(end - log.logStart);
  double itemMs = Milliseconds(end - start);
  double gapMs = totalMs - itemMs - thread.lastEnd.at(depth);
  // The script stage ran before this process could measure its CPU time:
  // its reading is 0 on purpose, whatever ktCPUtime says.
  bool measured = log.perfMode && std::strcmp(description, "ZENTRA script") != 0;
  double cpu = measured ? ktCPUtime() : 0.0;
  for (size_t k = depth; k < kDepthSlots; ++k) thread.lastEnd[k] = totalMs;
  if (depth < 2) log.topLevelSum += itemMs;

  TimingRow row{totalMs / 1000, itemMs / 1000, gapMs / 1000, depth, description, {}, 0.0};
  if (log.rowCallback)
    log.rowCallback(false, row.total, row.item, row.gap, static_cast<unsigned long>(depth),
                    description);
  TraceRow(row);
  WriteRowToFiles(log, row, cpu);
}

// ---- opening and closing ------------------------------------------------------

// Closes the files and forgets the sums of the rows written to them.
void RestartLocked(TimingLog& log) {
  if (log.timingFile != nullptr) std::fclose(log.timingFile);
  if (log.perfFile != nullptr) std::fclose(log.perfFile);
  log.timingFile = log.perfFile = nullptr;
  log.timingPath.clear();
  log.perfPath.clear();
  log.topLevelSum = log.previousCpu = 0;
  log.previousCounters = TimingCounters{};
}

// Forgets everything but the mutex.
void ResetLocked(TimingLog& log) {
  RestartLocked(log);
  log.perfMode = false;
  log.logStart = Clock::time_point{};
  log.rowCallback = nullptr;
  log.closeCallback = nullptr;
}

// Opens the files; false when the timing log cannot be opened.
bool OpenFilesLocked(TimingLog& log, bool perf) {
  auto timing = ktOpenLogFile("timing_log");
  if (timing.second == nullptr) return false;
  log.timingPath = timing.first;
  log.timingFile = timing.second;
  if (perf) {
    auto perfLog = ktOpenLogFile("perf_log");
    if (perfLog.second != nullptr) {
      log.perfPath = perfLog.first;
      log.perfFile = perfLog.second;
      kt::internal::WritePerfHeader(log.perfFile);
    }
  }
  kt::internal::WriteTimingHeads(log.timingFile, perf);
  return true;
}

// Sets the zero and writes the three stages before the log was opened.
void BeginLocked(TimingLog& log, Clock::time_point scriptStart, Clock::time_point mainStart,
                 Clock::time_point initStart, Clock::time_point now) {
  log.logStart = scriptStart;
  ThreadTimings& thread = ThisThread();
  WriteRowLocked(log, thread, "ZENTRA script", scriptStart, mainStart, 0);
  WriteRowLocked(log, thread, "main", mainStart, initStart, 0);
  WriteRowLocked(log, thread, "Session Initialize", initStart, now, 0);
  openTimings.store(0);
}

void WriteEndLocked(TimingLog& log) {
  double elapsedMs = Milliseconds(Clock::now() - log.logStart);
  if (log.timingFile == nullptr) return;
  double cpu = log.perfMode ? ktCPUtime() : 0.0;
  double percent = 100 * log.topLevelSum / elapsedMs;
  kt::internal::WriteTimingEnd(log.timingFile, log.perfMode, elapsedMs / 1000, cpu, percent);
  if (log.perfMode && log.perfFile != nullptr)
    kt::internal::WritePerfEnd(log.perfFile, elapsedMs / 1000, cpu);
}

void Trace(const std::string& text) {
  if (auto record = Channel().Open(kTimingFlag, kModule, __LINE__, "ktCloseTimingLogImpl"))
    record.stream() << "startup::timing: " << text;
}

}  // namespace

bool ktOpenTimingLog(ktTimingTimePoint scriptStart, ktTimingTimePoint mainStart,
                     ktTimingTimePoint initStart, ktTimingTimePoint now, bool perf) {
  TimingLog& log = TheLog();
  std::lock_guard<std::mutex> lock(log.mutex);
  RestartLocked(log);
  log.perfMode = perf;
  if (!OpenFilesLocked(log, perf)) return false;
  BeginLocked(log, scriptStart, mainStart, initStart, now);
  return true;
}

bool ktOpenTimingLogTLMX(const ktTimingRowCallback& rowCallback,
                         const ktTimingCloseCallback& closeCallback, bool toFile,
                         ktTimingTimePoint t0, ktTimingTimePoint t1, ktTimingTimePoint t2,
                         ktTimingTimePoint t3, bool perf) {
  TimingLog& log = TheLog();
  {
    std::lock_guard<std::mutex> lock(log.mutex);
    log.rowCallback = rowCallback;
    log.closeCallback = closeCallback;
  }
  if (toFile) return ktOpenTimingLog(t0, t1, t2, t3, perf);
  std::lock_guard<std::mutex> lock(log.mutex);
  RestartLocked(log);
  BeginLocked(log, t0, t1, t2, t3);
  return true;
}

extern "C" void ktTicImpl(void) {
  openTimings.fetch_add(1);
  ThisThread().tics.push_back(Clock::now());
}

void ktTocImpl2(const char* description, std::string* out) {
  Clock::time_point end = Clock::now();
  ThreadTimings& thread = ThisThread();
  if (!thread.tics.empty()) {
    Clock::time_point start = thread.tics.back();
    thread.tics.pop_back();
    TimingLog& log = TheLog();
    std::lock_guard<std::mutex> lock(log.mutex);
    // Counted off under the lock: a close sees the tic open or its row written.
    openTimings.fetch_sub(1);
    WriteRowLocked(log, thread, description != nullptr ? description : "", start, end,
                   thread.tics.size());
  }
  if (out != nullptr) *out = ktGetTimingLogInfo();
}

extern "C" void ktTocImpl(const char* description) { ktTocImpl2(description, nullptr); }

void ktCloseTimingLogImpl(std::string* out) {
  TimingLog& log = TheLog();
  std::unique_lock<std::mutex> lock(log.mutex);
  long open = openTimings.load();
  Trace("ENTER ktCloseTimingLogImpl, numOpenTimings=" + std::to_string(open));
  std::string path = log.timingPath;
  if (open != 0) {  // a log with unmatched tics stays open
    lock.unlock();
    if (out != nullptr) *out = path;
    return;
  }
  WriteEndLocked(log);
  if (log.timingFile != nullptr) Trace("    ktCloseTimingLogImpl, TimingLog != nullptr");
  ktTimingCloseCallback closeCallback = std::move(log.closeCallback);
  ResetLocked(log);
  lock.unlock();
  if (out != nullptr) *out = path;
  if (closeCallback) closeCallback(path);
}

extern "C" void ktCloseTimingLog(void) { ktCloseTimingLogImpl(nullptr); }

std::string ktGetTimingLogInfo() {
  TimingLog& log = TheLog();
  std::lock_guard<std::mutex> lock(log.mutex);
  return log.timingPath;
}

std::string ktGetPerfLogInfo() {
  TimingLog& log = TheLog();
  std::lock_guard<std::mutex> lock(log.mutex);
  return log.perfPath;
}

void setTimingLogStartTimestamp(ktTimingTimePoint timestamp) { startTimestamp.store(timestamp); }

ktTimingTimePoint getTimingLogStartTimestamp() { return startTimestamp.load(); }
