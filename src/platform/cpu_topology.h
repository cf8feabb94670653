// The processor description behind the thread recommendation: which CPUs
// the kernel has online, which of them this process may run on, and how
// they group into physical cores (SMT siblings), read from the kernel's
// CPU topology in sysfs:
//
//     <root>/online                          "0-7\n"
//     <root>/cpu<N>/topology/thread_siblings_list   "0,4\n"
//     <root>/cpu<N>/topology/core_id                "0\n"
//     <root>/cpu<N>/topology/physical_package_id    "0\n"
//
// The root is a parameter so that tests can describe fake trees.
#ifndef KT_PLATFORM_CPU_TOPOLOGY_H
#define KT_PLATFORM_CPU_TOPOLOGY_H

#include <cstdint>
#include <string>
#include <vector>

namespace kt::internal {

// CPU numbers, ascending, each once.
using CpuList = std::vector<unsigned>;

// Larger CPU numbers are refused as malformed (the kernel's largest
// configurable CPU count is 8192).
constexpr unsigned kMaxCpuNumber = 65535;

constexpr const char* kSysfsCpuRoot = "/sys/devices/system/cpu";

// Parses the kernel's CPU list format: comma-separated items, each a
// decimal number or an ascending range "N-M" ("0-3,8,10-11"), optionally
// followed by one newline. "" and "\n" are the empty list. Items may come
// in any order and overlap; the result is sorted without repeats. False,
// leaving `cpus` unspecified, on anything else: spaces, signs, empty items,
// a descending range, a number above kMaxCpuNumber.
bool ParseCpuList(const std::string& text, CpuList* cpus);

// Strict whole-text conversion of a decimal int with an optional leading
// '+' or '-' ("1", "+1", "-0", "007"), for ZENTRA_PROCESSOR_ENUM_MODE and
// the topology's ids. False, leaving `value` alone, on any other character
// (spaces, a second sign, a decimal point), on empty text and on values
// outside int.
bool ParseStrictInt(const char* text, int* value);

// Whether the text of ZENTRA_PROCESSOR_ENUM_MODE asks to count SMT
// siblings: only an integer equal to 1 does. Unset (null) and empty text
// do not; nor does text that fails ParseStrictInt, for which `*converted`
// is set false (else true).
bool IncludeSmtForMode(const char* text, bool* converted);

struct ProcessorDescription {
  unsigned threads = 1;  // online CPUs the process may run on
  unsigned cores = 1;    // physical cores among them (SMT siblings once)
};

// Describes the CPUs under `root` that are online and in `allowed` (all
// online CPUs when `allowed` is null). Cores are told apart by their
// thread_siblings_list when every counted CPU has a well-formed one that
// names the CPU itself, else by (physical_package_id, core_id) when every
// counted CPU has both, else each CPU counts as a core. False when the
// online list is missing or malformed or no allowed CPU is online.
bool DescribeProcessor(const std::string& root, const CpuList* allowed,
                       ProcessorDescription* out);

// The CPUs this process may run on (sched_getaffinity); false when the
// kernel does not tell.
bool AffinityCpus(CpuList* cpus);

// The description of this machine and process. When the topology cannot
// be read, returns false with the fallback: every CPU of the affinity mask
// (else every online CPU, as sysconf counts them) a core of its own.
bool DescribeThisProcessor(ProcessorDescription* out);

// The number of hardware threads to use for `description`: all threads
// with `includeSmt`, one per physical core without. At least 1.
uint64_t AvailableConcurrency(const ProcessorDescription& description, bool includeSmt);

}  // namespace kt::internal

#endif  // KT_PLATFORM_CPU_TOPOLOGY_H
