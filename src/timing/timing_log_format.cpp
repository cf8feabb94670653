// The text of the timing log and the perf log.
#include "timing/timing_log_format.h"

#include <string>

namespace kt::internal {
namespace {

constexpr const char* kTitle = "    ZENTRA Startup Performance Metrics (In Seconds)\n\n";
constexpr const char* kPlainHeads = "total   item     gap      description\n";
constexpr const char* kPerfHeads =
    "total   item     gap      description                           read: ops    bytes "
    "other:ops    bytes  faults    vm(k)    cpu\n";
// "othorops" is the column's name in every perf log ever written; readers
// of the files match it, so the misspelling stays.
constexpr const char* kPerfHeader =
    "total,item,gap,description,readops,readbytes,othorops,otherbytes,pagefaults,vm(k),cpu\n";

constexpr int kPlainRule = 57;
constexpr int kPerfRule = 125;
constexpr size_t kMaxIndent = 12;
constexpr int kColumn = 40;

void WriteRule(FILE* file, int length) {
  std::fputs((std::string(static_cast<size_t>(length), '=') + "\n").c_str(), file);
}

const char* Indentation(int indent) {
  static const char kSpaces[] = "            ";  // kMaxIndent of them
  return kSpaces + (kMaxIndent - static_cast<size_t>(indent));
}

}  // namespace

RowLayout LayoutForDepth(size_t depth) {
  if (depth < 2) return {0, kColumn};
  int indent = static_cast<int>(depth < kMaxIndent ? depth : kMaxIndent);
  return {indent, kColumn - indent};
}

void WriteTimingHeads(FILE* timingLog, bool perfMode) {
  std::fputs(kTitle, timingLog);
  std::fputs(perfMode ? kPerfHeads : kPlainHeads, timingLog);
  WriteRule(timingLog, perfMode ? kPerfRule : kPlainRule);
}

void WritePerfHeader(FILE* perfLog) { std::fputs(kPerfHeader, perfLog); }

void WriteTimingRow(FILE* timingLog, bool perfMode, const TimingRow& row) {
  RowLayout layout = LayoutForDepth(row.depth);
  const char* indent = Indentation(layout.indent);
  if (!perfMode) {
    std::fprintf(timingLog, "%5.2f  %5.2f   %5.2f   %s%-*.*s\n", row.total, row.item, row.gap,
                 indent, layout.width, layout.width, row.description);
    return;
  }
  const long long* c = row.counters.values;
  std::fprintf(timingLog,
               "%5.2f  %5.2f   %5.2f   %s%-*.*s % 9lld% 9lld % 9lld% 9lld % 7lld% 9lld  %5.3f\n",
               row.total, row.item, row.gap, indent, layout.width, layout.width, row.description,
               c[0], c[1], c[2], c[3], c[4], c[5], row.cpu);
}

void WritePerfRow(FILE* perfLog, const TimingRow& row) {
  RowLayout layout = LayoutForDepth(row.depth);
  const long long* c = row.counters.values;
  std::fprintf(perfLog, "%.3f,%.3f,%.3f,'%s%-*.*s',%lld,%lld,%lld,%lld,%lld,%lld,%.3f\n",
               row.total, row.item, row.gap, Indentation(layout.indent), layout.width,
               layout.width, row.description, c[0], c[1], c[2], c[3], c[4], c[5], row.cpu);
}

void WriteTimingEnd(FILE* timingLog, bool perfMode, double totalSeconds, double cpu,
                    double percent) {
  if (!perfMode) {
    WriteRule(timingLog, kPlainRule);
    std::fprintf(timingLog, "Items shown account for %4.1f%% of total startup time\n\n", percent);
    return;
  }
  long long zero = 0;
  std::fprintf(timingLog,
               "%5.2f                  --FINAL--            "
               "% 9lld% 9lld % 9lld% 9lld % 7lld% 9lld  %5.3f\n",
               totalSeconds, zero, zero, zero, zero, zero, zero, cpu);
  WriteRule(timingLog, kPerfRule);
  // The performance layout has always ended without a newline here.
  std::fprintf(timingLog, "Items shown account for %4.1f%% of total startup time", percent);
}

void WritePerfEnd(FILE* perfLog, double totalSeconds, double cpu) {
  long long zero = 0;
  std::fprintf(perfLog, "%.3f,0.0,0.0,'FINAL               ',%lld,%lld,%lld,%lld,%lld,%lld,%.3f\n",
               totalSeconds, zero, zero, zero, zero, zero, zero, cpu);
}

}  // namespace kt::internal
