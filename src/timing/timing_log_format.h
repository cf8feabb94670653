// The text of the timing log and the perf log: title and column heads, one
// row, and the closing lines. Pure formatting onto open streams; the state
// behind the values lives in timing_log.cpp.
#ifndef KT_TIMING_TIMING_LOG_FORMAT_H
#define KT_TIMING_TIMING_LOG_FORMAT_H

#include <cstddef>
#include <cstdio>

namespace kt::internal {

// The I/O and memory counters of the performance columns, in column order:
// read operations, read bytes, other operations, other bytes, page faults,
// virtual memory in KiB.
struct TimingCounters {
  long long values[6];
};

// Where a row's description goes: `indent` spaces, then the description
// padded or cut to `width` characters. The two always add up to 40.
struct RowLayout {
  int indent;
  int width;
};

RowLayout LayoutForDepth(size_t depth);

// One row as it is written: times in seconds, the CPU seconds since the
// previous row (performance mode only).
struct TimingRow {
  double total;
  double item;
  double gap;
  size_t depth;
  const char* description;
  TimingCounters counters;
  double cpu;
};

// The title and column heads of the timing log; the CSV header of the
// perf log.
void WriteTimingHeads(FILE* timingLog, bool perfMode);
void WritePerfHeader(FILE* perfLog);

// One row, in the plain or the performance layout.
void WriteTimingRow(FILE* timingLog, bool perfMode, const TimingRow& row);
void WritePerfRow(FILE* perfLog, const TimingRow& row);

// The closing lines: in performance mode the --FINAL-- line with the total
// seconds and the process CPU seconds, then the rule and the share of the
// total that the top-level items account for (`percent`).
void WriteTimingEnd(FILE* timingLog, bool perfMode, double totalSeconds, double cpu,
                    double percent);
void WritePerfEnd(FILE* perfLog, double totalSeconds, double cpu);

}  // namespace kt::internal

#endif  // KT_TIMING_TIMING_LOG_FORMAT_H
