// The start-up timing log through libkt.so: real logs written by several
// threads with nested tics into a scratch log directory, read back and
// checked against a model of the rows built from each thread's tic/toc
// script and the values the row callback reports.
#include "kt/timing.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "kt/clocks.h"
#include "kt/diagnostics.h"
#include "kt/files.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

struct ScratchLogDirectory {  // registered while in scope
  ScratchLogDirectory() {
    char pattern[] = "/tmp/kt_timing_log_XXXXXX";
    path = mkdtemp(pattern);
    ktRegisterLogDirectory(path.c_str());
  }
  ~ScratchLogDirectory() {
    ktRegisterLogDirectory(nullptr);
    fs::remove_all(path);
  }
  std::string File(const char* name) const { return path + "/" + name + "." + std::to_string(getpid()); }
  std::string path;
};

std::string ReadFile(const std::string& path) {
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::stringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

template <typename... Args>
std::string Format(const char* format, Args... args) {
  char text[256];
  std::snprintf(text, sizeof text, format, args...);
  return text;
}

void InFreshThread(const std::function<void()>& body) { std::thread(body).join(); }

// What the row callback received, in order (it runs under the log's lock).
struct Reported {
  double total, item, gap;
  unsigned long depth;
  std::string description;
};
ktTimingRowCallback RowsInto(std::vector<Reported>* rows) {
  return [rows](bool first, double total, double item, double gap, unsigned long depth, const char* text) {
    EXPECT_FALSE(first);
    rows->push_back({total, item, gap, depth, text});
  };
}
ktTimingCloseCallback PathsInto(std::vector<std::string>* paths) {
  return [paths](std::string& path) { paths->push_back(path); };
}

// One step of a thread's script: a tic, or a toc with its description and
// the depth its row must have (the thread's open tics after it). The
// opening rows appear as tocs without tics.
struct Step {
  bool tic;
  std::string description;
  size_t depth;
};
const Step kTic = {true, "", 0};

// A random nest of intervals below `depth`, described "<tag>.<n> " and a
// filler long enough, at random, to be cut in its column.
void Grow(std::mt19937& rng, const std::string& tag, size_t depth, size_t maxDepth, int* budget,
          std::vector<Step>* script) {
  script->push_back(kTic);
  while (depth < maxDepth && *budget > 0 && rng() % 4 != 0)
    --*budget, Grow(rng, tag, depth + 1, maxDepth, budget, script);
  std::string description = tag + "." + std::to_string(script->size()) + " ";
  script->push_back({false, description + std::string(rng() % 45, char('a' + rng() % 26)), depth});
}

// Tocs at odd depths go through ktTocImpl2, which must give the log's path.
void Play(const std::vector<Step>& script, const std::string& logPath) {
  for (const Step& step : script) {
    std::string out = logPath;
    if (step.tic) ktTicImpl();
    else if (step.depth % 2 == 0) ktTocImpl(step.description.c_str());
    else out.clear(), ktTocImpl2(step.description.c_str(), &out);
    EXPECT_EQ(out, logPath);
  }
}

// The description column: from depth 2 on min(depth, 12) spaces, then the
// text padded or cut so that the column is 40 wide.
std::string DescriptionColumn(const std::string& description, size_t depth) {
  size_t indent = depth < 2 ? 0 : std::min<size_t>(depth, 12);
  std::string text = description.substr(0, 40 - indent);
  return std::string(indent, ' ') + text + std::string(40 - indent - text.size(), ' ');
}

// The six counters of the performance layout, all 0 on this platform.
const std::string kZeroCounters =
    " " + Format("% 9d% 9d", 0, 0) + " " + Format("% 9d% 9d", 0, 0) + " " + Format("% 7d% 9d", 0, 0);

// The tag of the thread that wrote a row; the opener's rows carry none.
std::string TagOf(const std::string& description) {
  size_t dot = description.find('.');
  return dot == std::string::npos ? "t0" : description.substr(0, dot);
}

// Checks the reported rows against the scripts: per thread, the rows come
// in script order at the script's depths; gap = total - item - lastEnd[d]
// with lastEnd as defined, and never negative (every earlier row at that
// depth or shallower ended before the tic). Then the rows of the timing
// log (and of the perf log) against the reported values, and the CPU
// column against its rules. Sums the items at depth 0 and 1 into
// `topLevel`; `reading` gets the last CPU reading the rows imply.
void CheckRows(const std::vector<Reported>& rows, const std::map<std::string, std::vector<Step>>& scripts,
               const std::vector<std::string>& lines, bool perf, const std::vector<std::string>& csv,
               double* topLevel, double* reading) {
  std::map<std::string, std::vector<const Step*>> tocs;
  for (const auto& [tag, script] : scripts)
    for (const Step& step : script)
      if (!step.tic) tocs[tag].push_back(&step);
  std::map<std::string, std::array<double, 17>> lastEnd;
  std::map<std::string, size_t> done;
  double tolerance = 1e-6;
  *topLevel = *reading = 0;
  for (size_t i = 0; i < rows.size(); ++i) {
    const Reported& row = rows[i];
    std::string tag = TagOf(row.description), column = DescriptionColumn(row.description, row.depth);
    ASSERT_LT(done[tag], tocs[tag].size()) << row.description;
    const Step& step = *tocs[tag][done[tag]++];
    ASSERT_EQ(row.description, step.description);
    EXPECT_EQ(row.depth, step.depth) << row.description;
    auto& ends = lastEnd[tag];
    EXPECT_NEAR(row.gap, row.total - row.item - ends.at(row.depth), 1e-9) << row.description;
    EXPECT_TRUE(row.gap >= -1e-9 && row.item >= 0) << row.description;
    std::fill(ends.begin() + static_cast<long>(row.depth), ends.end(), row.total);
    if (row.depth < 2) *topLevel += row.item;

    std::string expected = Format("%5.2f  %5.2f   %5.2f   ", row.total, row.item, row.gap) + column;
    const std::string& line = lines.at(4 + i);
    if (!perf) {
      EXPECT_EQ(line, expected);
      continue;
    }
    expected += kZeroCounters + "  ";
    ASSERT_EQ(line.substr(0, expected.size()), expected);
    std::string cpuText = line.substr(expected.size());
    ASSERT_TRUE(std::regex_match(cpuText, std::regex(" ?-?[0-9]+\\.[0-9]{3}"))) << line;
    double delta = std::stod(cpuText);
    // "ZENTRA script" reads 0 CPU seconds: it shows minus the reading
    // before it, and the next row counts from 0 again.
    if (row.description == "ZENTRA script") {
      EXPECT_NEAR(delta, -*reading, tolerance) << line;
      *reading = 0, tolerance = 1e-6;
    } else {
      EXPECT_GE(delta, 0) << "CPU time only grows: " << line;
      *reading += delta, tolerance += 5e-4;
    }
    EXPECT_EQ(csv.at(1 + i), Format("%.3f,%.3f,%.3f,'", row.total, row.item, row.gap) + column +
                                 "',0,0,0,0,0,0," + cpuText.substr(cpuText.find_first_not_of(' ')));
  }
  for (const auto& [tag, list] : tocs) EXPECT_EQ(done[tag], list.size()) << tag;
}

// One whole log: the opener thread opens it 30 ms into the start-up and
// runs its own script, nested in two stages that last until three workers
// (one going down to depth 16) have run theirs; it then reads 0 CPU
// seconds once more ("ZENTRA script") and closes the log.
void CheckConcurrentLog(bool perf, unsigned seed) {
  ScratchLogDirectory directory;
  std::vector<Reported> rows;
  std::vector<std::string> closed;
  std::map<std::string, std::vector<Step>> scripts;
  std::vector<Step>& own = scripts["t0"];
  own = {{false, "ZENTRA script", 0}, {false, "main", 0}, {false, "Session Initialize", 0}, kTic, kTic};
  for (int t = 0; t < 4; ++t) {
    std::mt19937 rng(seed + unsigned(t));
    std::string tag = "t" + std::to_string(t);
    for (int budget = 30; budget > 0;) Grow(rng, tag, t == 0 ? 2 : 0, t == 3 ? 16 : 6, &budget, &scripts[tag]);
  }
  std::vector<Step> first(own.begin() + 3, own.end());
  std::vector<Step> last = {{false, "t0.workers", 1}, {false, "t0.all", 0}, kTic, {false, "ZENTRA script", 0}};
  own.insert(own.end(), last.begin(), last.end());
  std::string logPath = directory.File("timing_log"), closedPath;
  Clock::time_point scriptStart, closedBy;
  InFreshThread([&] {
    Clock::time_point now = Clock::now();
    scriptStart = now - 30ms;
    ASSERT_TRUE(ktOpenTimingLogTLMX(RowsInto(&rows), PathsInto(&closed), true, scriptStart, now - 20ms,
                                    now - 15ms, now, perf));
    EXPECT_EQ(ktGetTimingLogInfo(), logPath);
    EXPECT_EQ(ktGetPerfLogInfo(), perf ? directory.File("perf_log") : "");
    std::vector<std::thread> workers;
    for (const char* tag : {"t1", "t2", "t3"}) workers.emplace_back([&, tag] { Play(scripts.at(tag), logPath); });
    Play(first, logPath);
    for (auto& worker : workers) worker.join();
    Play(last, logPath);
    ktCloseTimingLogImpl(&closedPath);
    closedBy = Clock::now();
  });
  EXPECT_TRUE(closedPath == logPath && ktGetTimingLogInfo() == "");
  EXPECT_EQ(closed, std::vector<std::string>{logPath});

  double topLevel = 0, reading = 0;
  std::string text = ReadFile(logPath), rule(perf ? 125 : 57, '=');
  std::vector<std::string> lines = Lines(text), csv;
  ASSERT_EQ(lines.size(), 4 + rows.size() + 3);
  std::vector<std::string> heads = {
      "    ZENTRA Startup Performance Metrics (In Seconds)", "",
      perf ? "total   item     gap      description                           read: ops    bytes "
             "other:ops    bytes  faults    vm(k)    cpu"
           : "total   item     gap      description",
      rule};
  EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.begin() + 4), heads);
  if (perf) {
    csv = Lines(ReadFile(directory.File("perf_log")));
    ASSERT_EQ(csv.size(), rows.size() + 2);
    EXPECT_EQ(csv[0], "total,item,gap,description,readops,readbytes,othorops,otherbytes,pagefaults,vm(k),cpu");
  }
  CheckRows(rows, scripts, lines, perf, csv, &topLevel, &reading);

  // The closing lines, and the share of the top-level items in a total
  // that lies between the last row's end and the return of the close.
  double lower = 0, upper = std::chrono::duration<double>(closedBy - scriptStart).count();
  for (const Reported& row : rows) lower = std::max(lower, row.total);
  size_t end = 4 + rows.size();
  std::smatch match;
  if (perf) {
    std::regex final(" *([0-9.]+) {18}--FINAL-- {11}" + kZeroCounters + "  ([0-9]+\\.[0-9]{3})");
    ASSERT_TRUE(std::regex_match(lines[end], match, final)) << lines[end];
    double total = std::stod(match[1]), cpu = std::stod(match[2]);
    lower = std::max(lower, total - 0.005), upper = std::min(upper, total + 0.005);
    EXPECT_GE(cpu, reading - 0.01);
    std::regex csvFinal("([0-9.]+),0\\.0,0\\.0,'FINAL {15}',0,0,0,0,0,0," + match[2].str());
    ASSERT_TRUE(std::regex_match(csv.back(), match, csvFinal)) << csv.back();
    EXPECT_NEAR(std::stod(match[1]), total, 0.0051);
    ++end;
  }
  EXPECT_EQ(lines[end], rule);
  std::regex share("Items shown account for ([ 0-9.]+)% of total startup time");
  ASSERT_TRUE(std::regex_match(lines[end + 1], match, share)) << lines[end + 1];
  EXPECT_GE(std::stod(match[1]), 100 * topLevel / upper - 0.05);
  EXPECT_LE(std::stod(match[1]), 100 * topLevel / lower + 0.05);
  EXPECT_EQ(text.substr(text.size() - 6), perf ? "p time" : "time\n\n") << "no newline after perf";
}

TEST(TimingLogThreads, ConcurrentNestedRowsFollowTheModel) {
  for (unsigned seed : {1u, 2u}) {
    SCOPED_TRACE(seed);
    CheckConcurrentLog(false, seed);
    CheckConcurrentLog(true, seed * 7);
  }
}

TEST(TimingLog, RowsPastDepthSixteenAreARangeError) {
  ScratchLogDirectory directory;
  InFreshThread([&] {
    Clock::time_point now = Clock::now();
    ASSERT_TRUE(ktOpenTimingLog(now, now, now, now, false));
    for (int i = 0; i < 18; ++i) ktTicImpl();
    EXPECT_THROW(ktTocImpl("depth 17"), std::out_of_range);
    for (int i = 16; i >= 0; --i) ktTocImpl(("depth " + std::to_string(i)).c_str());
    ktCloseTimingLog();
  });
  std::vector<std::string> lines = Lines(ReadFile(directory.File("timing_log")));
  ASSERT_EQ(lines.size(), 4u + 3 + 17 + 3) << "the failed row is not written; the log closes";
  EXPECT_EQ(lines[7].substr(23), DescriptionColumn("depth 16", 16));
}

TEST(TimingLog, ReopeningStartsAfresh) {
  ScratchLogDirectory directory;
  InFreshThread([] {
    Clock::time_point now = Clock::now();
    ASSERT_TRUE(ktOpenTimingLog(now - 100s, now - 50s, now, now, true));
    ASSERT_TRUE(ktOpenTimingLog(now, now, now, now, false));  // no stage took any time
    ktCloseTimingLog();
  });
  std::vector<std::string> lines = Lines(ReadFile(directory.File("timing_log")));
  ASSERT_EQ(lines.size(), 4u + 3 + 3);
  EXPECT_EQ(lines[8], "Items shown account for  0.0% of total startup time");
}

TEST(TimingLog, CloseWithAnOpenTicWritesNothing) {
  ScratchLogDirectory directory;
  InFreshThread([] { ktTicImpl(); });  // opening forgets tics left open before
  InFreshThread([&] {
    Clock::time_point now = Clock::now();
    ASSERT_TRUE(ktOpenTimingLog(now - 1s, now, now, now, true));
    std::string path = directory.File("timing_log"), out;
    ktTicImpl();
    std::string before = ReadFile(path);
    ktCloseTimingLogImpl(&out);
    EXPECT_TRUE(out == path && ReadFile(path) == before);
    EXPECT_EQ(ktGetTimingLogInfo(), path) << "still open";
    ktTocImpl("late");
    ktTocImpl("a toc without a tic is ignored");  // else the close below is refused
    double used = ktCPUtime();
    while (ktCPUtime() < used + 0.02) continue;  // the closing line reads the clock anew
    ktCloseTimingLog();
    std::vector<std::string> lines = Lines(ReadFile(path));
    ASSERT_EQ(lines.size(), Lines(before).size() + 4);
    EXPECT_EQ(lines[lines.size() - 4].substr(23, 4), "late");
    const std::string& closing = lines[lines.size() - 3];
    EXPECT_GE(std::stod(closing.substr(closing.rfind(' '))), used + 0.0195);
  });
}

// The TLMX forms: rows reach the callback with or without a file, the
// opening rows with their exact values; a failed open writes none but
// keeps the callbacks; closing forgets them.
TEST(TimingLog, CallbacksWithAndWithoutAFile) {
  ScratchLogDirectory directory;
  std::vector<Reported> rows;
  std::vector<std::string> closed;
  InFreshThread([&] {
    Clock::time_point t0 = Clock::now() - 10s;
    ASSERT_TRUE(ktOpenTimingLogTLMX(RowsInto(&rows), PathsInto(&closed), false, t0, t0 + 2s, t0 + 3s,
                                    t0 + 3500ms, true));
    EXPECT_EQ(ktGetTimingLogInfo(), "");
    std::vector<double> opening;  // total, item, gap of each row
    for (const Reported& row : rows) opening.insert(opening.end(), {row.total, row.item, row.gap});
    EXPECT_EQ(opening, std::vector<double>({2, 2, 0, 3, 1, 0, 3.5, 0.5, 0}));
    ktTicImpl();
    ktTocImpl("only to the callback");
    std::string out = "unchanged?";
    ktCloseTimingLogImpl(&out);
    EXPECT_TRUE(out == "" && fs::is_empty(directory.path));
    EXPECT_EQ(closed, std::vector<std::string>{""});
    ktTicImpl();
    ktTocImpl("after the close");
    EXPECT_EQ(rows.size(), 4u) << "closing forgets the callbacks";
  });

  rows.clear(), closed.clear();
  ktRegisterLogDirectory("/nonexistent/kt/logs");
  Clock::time_point now = Clock::now();
  EXPECT_FALSE(ktOpenTimingLogTLMX(RowsInto(&rows), PathsInto(&closed), true, now, now, now, now, false));
  EXPECT_EQ(ktGetTimingLogInfo(), "");
  ktTicImpl();
  ktTocImpl("no file, still reported");
  ktCloseTimingLog();
  EXPECT_EQ(rows.size(), 1u) << "no opening rows after a failed open";
  EXPECT_EQ(closed, std::vector<std::string>{""});

  setTimingLogStartTimestamp(now);
  EXPECT_EQ(getTimingLogStartTimestamp(), now);
}

// Flag 2 carries the rows, flag 1 the closing.
TEST(TimingLog, DiagnosticChannelCarriesRowsAndClosing) {
  for (unsigned mask : {1u, 2u}) {
    unsigned old = ktSetDiagnosticMask("tlmx_timing", mask);
    testing::internal::CaptureStderr();
    InFreshThread([] {
      Clock::time_point now = Clock::now();
      ktOpenTimingLogTLMX(nullptr, nullptr, false, now - 2s, now - 1s, now, now, false);
      ktTicImpl(), ktTicImpl();
      ktTocImpl("inner stage"), ktTocImpl("outer");
      ktCloseTimingLog();
    });
    std::string err = testing::internal::GetCapturedStderr();
    ktSetDiagnosticMask("tlmx_timing", old);
    std::regex stage("tlmx_timing \\[0x2\\] cputime:[0-9]+ [^:]*:startup::stage: id=inner stage "
                     "total=[0-9.e-]+ item=[0-9.e-]+ gap=[-0-9.e]+ tic_depth=1\n");
    EXPECT_EQ(std::regex_search(err, stage), mask == 2) << err;
    EXPECT_EQ(err.find(" id=outer total=") != std::string::npos, mask == 2) << err;
    bool closing = err.find(":startup::timing: ENTER ktCloseTimingLogImpl, numOpenTimings=0\n") != std::string::npos &&
                   err.find("tlmx_timing [0x1] cputime:") != std::string::npos;
    EXPECT_EQ(closing, mask == 1) << err;
  }
}

}  // namespace
