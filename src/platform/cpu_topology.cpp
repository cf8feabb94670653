// The processor description: CPU lists, the kernel's topology files and
// the affinity mask, and the concurrency rule over them.
#include "platform/cpu_topology.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fstream>
#include <iterator>
#include <set>
#include <utility>

namespace kt::internal {

namespace {

using Range = std::pair<unsigned, unsigned>;

// Reads the digits at text[*at, end) as a CPU number; false when there is
// no digit or the number exceeds kMaxCpuNumber.
bool ReadCpuNumber(const std::string& text, size_t end, size_t* at, unsigned* value) {
  size_t start = *at;
  unsigned number = 0;
  for (; *at < end && text[*at] >= '0' && text[*at] <= '9'; ++*at) {
    number = number * 10 + static_cast<unsigned>(text[*at] - '0');
    if (number > kMaxCpuNumber) return false;
  }
  *value = number;
  return *at > start;
}

// Sorted, merged expansion of the ranges into CPU numbers.
void ExpandRanges(std::vector<Range> ranges, CpuList* cpus) {
  std::sort(ranges.begin(), ranges.end());
  cpus->clear();
  unsigned next = 0;  // the first CPU not listed yet
  for (const Range& range : ranges) {
    for (unsigned cpu = std::max(range.first, next); cpu <= range.second; ++cpu)
      cpus->push_back(cpu);
    next = std::max(next, range.second + 1);
  }
}

bool ReadSmallFile(const std::string& path, std::string* text) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  text->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return !in.bad();
}

// A file holding one integer and a newline, as sysfs writes it.
bool ReadIntFile(const std::string& path, int* value) {
  std::string text;
  if (!ReadSmallFile(path, &text)) return false;
  if (!text.empty() && text.back() == '\n') text.pop_back();
  return text.find('\0') == std::string::npos && ParseStrictInt(text.c_str(), value);
}

// What the topology directory says about one CPU; `has...` is false for a
// missing or malformed file.
struct CpuRecord {
  unsigned cpu = 0;
  bool hasSiblings = false;
  unsigned firstSibling = 0;  // the lowest CPU of its core
  bool hasIds = false;
  int package = 0;
  int core = 0;  // unique within its package only
};

CpuRecord ReadCpuRecord(const std::string& root, unsigned cpu) {
  CpuRecord record;
  record.cpu = cpu;
  std::string dir = root + "/cpu" + std::to_string(cpu) + "/topology/";
  std::string text;
  CpuList siblings;
  if (ReadSmallFile(dir + "thread_siblings_list", &text) && ParseCpuList(text, &siblings) &&
      std::binary_search(siblings.begin(), siblings.end(), cpu)) {
    record.hasSiblings = true;
    record.firstSibling = siblings.front();
  }
  record.hasIds = ReadIntFile(dir + "physical_package_id", &record.package) &&
                  ReadIntFile(dir + "core_id", &record.core);
  return record;
}

// Counts distinct cores with one kind of key for all CPUs, so that a tree
// with some files damaged never mixes keys (which would count a core twice).
unsigned CountCores(const std::vector<CpuRecord>& cpus) {
  bool bySiblings = true, byIds = true;
  for (const CpuRecord& r : cpus) {
    bySiblings = bySiblings && r.hasSiblings;
    byIds = byIds && r.hasIds;
  }
  std::set<std::pair<long, long>> cores;
  for (const CpuRecord& r : cpus) {
    if (bySiblings)
      cores.insert({r.firstSibling, 0});
    else if (byIds)
      cores.insert({r.package, r.core});
    else
      cores.insert({r.cpu, 0});
  }
  return static_cast<unsigned>(cores.size());
}

unsigned OnlineCpuCount() {
  long count = sysconf(_SC_NPROCESSORS_ONLN);
  return count > 0 ? static_cast<unsigned>(count) : 1;
}

}  // namespace

bool ParseCpuList(const std::string& text, CpuList* cpus) {
  size_t end = text.size();
  if (end > 0 && text[end - 1] == '\n') --end;
  std::vector<Range> ranges;
  size_t at = 0;
  while (at < end) {
    unsigned low, high;
    if (!ReadCpuNumber(text, end, &at, &low)) return false;
    high = low;
    if (at < end && text[at] == '-') {
      ++at;
      if (!ReadCpuNumber(text, end, &at, &high) || high < low) return false;
    }
    ranges.push_back({low, high});
    if (at == end) break;
    if (text[at] != ',' || ++at == end) return false;  // a separator, then another item
  }
  ExpandRanges(std::move(ranges), cpus);
  return true;
}

bool ParseStrictInt(const char* text, int* value) {
  bool negative = *text == '-';
  if (*text == '+' || *text == '-') ++text;
  if (*text == '\0') return false;
  const long long limit = negative ? -static_cast<long long>(INT_MIN) : INT_MAX;
  long long magnitude = 0;
  for (; *text != '\0'; ++text) {
    if (*text < '0' || *text > '9') return false;
    magnitude = magnitude * 10 + (*text - '0');
    if (magnitude > limit) return false;
  }
  *value = static_cast<int>(negative ? -magnitude : magnitude);
  return true;
}

bool IncludeSmtForMode(const char* text, bool* converted) {
  *converted = true;
  if (text == nullptr || *text == '\0') return false;
  int mode = 0;
  *converted = ParseStrictInt(text, &mode);
  return *converted && mode == 1;
}

bool DescribeProcessor(const std::string& root, const CpuList* allowed,
                       ProcessorDescription* out) {
  std::string text;
  CpuList online;
  if (!ReadSmallFile(root + "/online", &text) || !ParseCpuList(text, &online)) return false;
  std::vector<CpuRecord> usable;
  for (unsigned cpu : online)
    if (allowed == nullptr || std::binary_search(allowed->begin(), allowed->end(), cpu))
      usable.push_back(ReadCpuRecord(root, cpu));
  if (usable.empty()) return false;
  out->threads = static_cast<unsigned>(usable.size());
  out->cores = CountCores(usable);
  return true;
}

bool AffinityCpus(CpuList* cpus) {
  // The mask is as large as the kernel's CPU count; grow until it fits.
  for (size_t count = 1024; count <= kMaxCpuNumber + 1; count *= 2) {
    cpu_set_t* set = CPU_ALLOC(count);
    if (set == nullptr) return false;
    size_t size = CPU_ALLOC_SIZE(count);
    int rc = sched_getaffinity(0, size, set);
    int error = errno;
    if (rc == 0) {
      cpus->clear();
      for (size_t cpu = 0; cpu < count; ++cpu)
        if (CPU_ISSET_S(cpu, size, set)) cpus->push_back(static_cast<unsigned>(cpu));
    }
    CPU_FREE(set);
    if (rc == 0) return true;
    if (error != EINVAL) return false;
  }
  return false;
}

bool DescribeThisProcessor(ProcessorDescription* out) {
  CpuList allowed;
  bool known = AffinityCpus(&allowed) && !allowed.empty();
  if (DescribeProcessor(kSysfsCpuRoot, known ? &allowed : nullptr, out)) return true;
  unsigned count = known ? static_cast<unsigned>(allowed.size()) : OnlineCpuCount();
  out->threads = count;
  out->cores = count;
  return false;
}

uint64_t AvailableConcurrency(const ProcessorDescription& description, bool includeSmt) {
  unsigned count = includeSmt ? description.threads : description.cores;
  return count > 0 ? count : 1;
}

}  // namespace kt::internal
