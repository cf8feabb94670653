// The kernel's CPU list parser ("0-3,8,10-11\n") and the strict integer
// parser of ZENTRA_PROCESSOR_ENUM_MODE on arbitrary text. Input: one byte
// choosing the parser (even: CPU list, odd: integer), then the text.
//
// Checked: the CPU list parser accepts exactly what a split-on-',' then
// split-on-'-' model accepts and yields the same CPUs, and its result,
// written back as ranges, parses to itself; the integer parser agrees with
// boost::lexical_cast<int> in the C locale on acceptance and value.
#include <boost/algorithm/string/classification.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/lexical_cast.hpp>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/cpu_topology.h"

using kt::internal::CpuList;
using kt::internal::kMaxCpuNumber;

namespace {

void Fail(const char* what) {
  std::fprintf(stderr, "cpulist_fuzz: %s\n", what);
  std::abort();
}

bool ModelNumber(const std::string& digits, unsigned* value) {
  if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos) return false;
  size_t first = digits.find_first_not_of('0');
  std::string significant = first == std::string::npos ? "0" : digits.substr(first);
  if (significant.size() > 5) return false;
  *value = static_cast<unsigned>(std::stoul(significant));
  return *value <= kMaxCpuNumber;
}

bool ModelCpuList(std::string text, std::vector<bool>* cpus) {
  if (!text.empty() && text.back() == '\n') text.pop_back();
  if (text.empty()) return true;
  std::vector<std::string> items, ends;
  boost::split(items, text, boost::is_any_of(","));
  for (const std::string& item : items) {
    boost::split(ends, item, boost::is_any_of("-"));
    unsigned low = 0, high = 0;
    if (ends.size() > 2 || !ModelNumber(ends.front(), &low) || !ModelNumber(ends.back(), &high) ||
        high < low)
      return false;
    for (unsigned cpu = low; cpu <= high; ++cpu) (*cpus)[cpu] = true;
  }
  return true;
}

std::string AsRanges(const CpuList& cpus) {
  std::string text;
  for (size_t i = 0; i < cpus.size();) {
    size_t j = i;
    while (j + 1 < cpus.size() && cpus[j + 1] == cpus[j] + 1) ++j;
    text += (text.empty() ? "" : ",") + std::to_string(cpus[i]);
    if (j > i) text += "-" + std::to_string(cpus[j]);
    i = j + 1;
  }
  return text + "\n";
}

void CheckCpuList(const std::string& text) {
  CpuList cpus;
  bool parsed = kt::internal::ParseCpuList(text, &cpus);
  std::vector<bool> model(kMaxCpuNumber + 1);
  if (parsed != ModelCpuList(text, &model)) Fail("acceptance differs from the model");
  if (!parsed) return;
  CpuList expected;
  for (unsigned cpu = 0; cpu <= kMaxCpuNumber; ++cpu)
    if (model[cpu]) expected.push_back(cpu);
  if (cpus != expected) Fail("CPUs differ from the model");
  CpuList again;
  if (!kt::internal::ParseCpuList(AsRanges(cpus), &again) || again != cpus)
    Fail("the list written as ranges does not parse back");
}

void CheckStrictInt(const std::string& text) {
  int value = 0, peerValue = 0;
  bool parsed = kt::internal::ParseStrictInt(text.c_str(), &value);
  bool peerParsed = true;
  try {
    peerValue = boost::lexical_cast<int>(text);
  } catch (const boost::bad_lexical_cast&) {
    peerParsed = false;
  }
  if (parsed != peerParsed) Fail("acceptance differs from lexical_cast");
  if (parsed && value != peerValue) Fail("value differs from lexical_cast");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > 256) return 0;
  std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
  if (data[0] % 2 == 0) {
    CheckCpuList(text);
  } else {
    text = text.c_str();  // an environment variable ends at its NUL
    CheckStrictInt(text);
  }
  return 0;
}
