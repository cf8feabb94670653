// The processor description read from fake sysfs trees (SMT on and off,
// offline CPUs, two packages, affinity masks, damaged files), and the
// strict integer parser of ZENTRA_PROCESSOR_ENUM_MODE. The CPU list parser
// is checked against a model by fuzz/cpulist_fuzz.cpp.
#include "platform/cpu_topology.h"

#include <unistd.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace kt::internal;
namespace fs = std::filesystem;

namespace {

// Each CPU's core_id, physical_package_id and thread_siblings_list.
using FakeCpus = std::vector<std::vector<const char*>>;

// Two cores of two threads each, siblings (0,2) and (1,3).
const FakeCpus kSmtPairs = {
    {"0", "0", "0,2"}, {"1", "0", "1,3"}, {"0", "0", "0,2"}, {"1", "0", "1,3"}};
// The same siblings with core ids that disagree (all distinct): tells
// which of the two the description went by.
const FakeCpus kSmtPairsOddIds = {
    {"0", "0", "0,2"}, {"1", "0", "1,3"}, {"2", "0", "0,2"}, {"3", "0", "1,3"}};
const FakeCpus kNoSmt = {{"0", "0", "0"}, {"1", "0", "1"}, {"2", "0", "2"}, {"3", "0", "3"}};
// Core ids restart in each package: only (package, core) tells cores apart.
const FakeCpus kTwoPackages = {
    {"0", "0", "0,2"}, {"1", "0", "1,3"}, {"0", "0", "0,2"}, {"1", "0", "1,3"},
    {"0", "1", "4,6"}, {"1", "1", "5,7"}, {"0", "1", "4,6"}, {"1", "1", "5,7"}};

// Replaces a file of the tree; null text removes it (or a directory).
void WriteFile(const fs::path& file, const char* text) {
  fs::remove_all(file);
  if (text == nullptr) return;
  fs::create_directories(file.parent_path());
  std::ofstream(file) << text;
}

void BuildTree(const fs::path& root, const char* online, const FakeCpus& cpus) {
  fs::remove_all(root);
  WriteFile(root / "online", online);
  const char* names[] = {"core_id", "physical_package_id", "thread_siblings_list"};
  for (size_t cpu = 0; cpu < cpus.size(); ++cpu)
    for (int i = 0; i < 3; ++i)
      WriteFile(root / ("cpu" + std::to_string(cpu)) / "topology" / names[i],
                (std::string(cpus[cpu][i]) + "\n").c_str());
}

}  // namespace

TEST(CpuTopology, FakeTrees) {
  struct Override {
    const char* path;
    const char* text;  // null removes the file
  };
  const struct {
    const char* name;
    const FakeCpus* cpus;
    const char* online;   // null: no online file
    const char* allowed;  // a CPU list; null: every online CPU
    std::vector<Override> overrides;
    bool described;
    unsigned threads, cores;
  } cases[] = {
      {"SMT off", &kNoSmt, "0-3\n", nullptr, {}, true, 4, 4},
      {"SMT on, siblings before ids", &kSmtPairsOddIds, "0-3\n", nullptr, {}, true, 4, 2},
      {"two packages", &kTwoPackages, "0-7\n", nullptr, {}, true, 8, 4},
      {"two packages without sibling lists", &kTwoPackages, "0-7\n", nullptr,
       {{"cpu3/topology/thread_siblings_list", nullptr}}, true, 8, 4},
      {"CPU 3 offline", &kSmtPairs, "0-2\n", nullptr,
       {{"cpu1/topology/thread_siblings_list", "1\n"}, {"cpu3/topology", nullptr}}, true, 3, 2},
      {"offline CPU with a stale topology", &kNoSmt, "0,2-3\n", nullptr, {}, true, 3, 3},
      {"affinity 1-3", &kSmtPairs, "0-3\n", "1-3", {}, true, 3, 2},
      {"affinity on one core's siblings", &kSmtPairs, "0-3\n", "0,2", {}, true, 2, 1},
      {"affinity with an offline CPU", &kSmtPairs, "0-3\n", "2,9", {}, true, 1, 1},
      {"affinity on no online CPU", &kSmtPairs, "0-3\n", "5-6", {}, false, 0, 0},
      {"no online file", &kSmtPairs, nullptr, nullptr, {}, false, 0, 0},
      {"online malformed", &kSmtPairs, "0-3 x\n", nullptr, {}, false, 0, 0},
      {"online CPU without a directory", &kSmtPairs, "0-4\n", nullptr, {}, true, 5, 5},
      {"a sibling list garbled: ids for all", &kSmtPairsOddIds, "0-3\n", nullptr,
       {{"cpu0/topology/thread_siblings_list", "zz\n"}}, true, 4, 4},
      {"a sibling list without its own CPU", &kSmtPairsOddIds, "0-3\n", nullptr,
       {{"cpu1/topology/thread_siblings_list", "0,2\n"}}, true, 4, 4},
      {"siblings and ids damaged: a core per CPU", &kSmtPairs, "0-3\n", nullptr,
       {{"cpu0/topology/thread_siblings_list", "\n"}, {"cpu3/topology/core_id", "1\n\n"}}, true,
       4, 4},
  };
  const fs::path root = ::testing::TempDir() + "kt_cpu_tree_" + std::to_string(getpid());
  for (const auto& c : cases) {
    BuildTree(root, c.online, *c.cpus);
    for (const Override& o : c.overrides) WriteFile(root / o.path, o.text);
    CpuList allowed;
    ASSERT_TRUE(ParseCpuList(c.allowed ? c.allowed : "", &allowed));
    ProcessorDescription d;
    bool described = DescribeProcessor(root, c.allowed ? &allowed : nullptr, &d);
    EXPECT_EQ(described, c.described) << c.name;
    if (!described) continue;
    EXPECT_EQ(d.threads, c.threads) << c.name;
    EXPECT_EQ(d.cores, c.cores) << c.name;
    EXPECT_EQ(AvailableConcurrency(d, true), c.threads) << c.name;
    EXPECT_EQ(AvailableConcurrency(d, false), c.cores) << c.name;
  }
  fs::remove_all(root);
}

// The ZENTRA_PROCESSOR_ENUM_MODE texts: strict integers, and texts that do
// not convert (absorbed by the caller as "no SMT"). The integer parser on
// any text is compared with boost::lexical_cast in fuzz/cpulist_fuzz.cpp.
TEST(CpuTopology, StrictIntTable) {
  const struct {
    const char* text;
    bool valid;
    int value;
    bool includeSmt;  // what the thread recommendation makes of it
  } cases[] = {
      {"1", true, 1, true},      {"+1", true, 1, true},    {"001", true, 1, true},
      {"0", true, 0, false},     {"2", true, 2, false},    {"-1", true, -1, false},
      {"11", true, 11, false},   {"2147483648", false, 0, false},
      {"", false, 0, false},     {" 1", false, 0, false},  {"1.0", false, 0, false},
  };
  for (const auto& c : cases) {
    int value = 12345;
    bool converted = false;
    EXPECT_EQ(ParseStrictInt(c.text, &value), c.valid) << '"' << c.text << '"';
    EXPECT_EQ(value, c.valid ? c.value : 12345) << '"' << c.text << '"';
    EXPECT_EQ(IncludeSmtForMode(c.text, &converted), c.includeSmt) << '"' << c.text << '"';
    EXPECT_EQ(converted, c.valid || *c.text == '\0') << '"' << c.text << '"';
  }
  bool converted = false;
  EXPECT_FALSE(IncludeSmtForMode(nullptr, &converted)) << "unset";
  EXPECT_TRUE(converted);
}
