// OS and processor queries: the uname text, the distribution's description
// from lsb_release, the thread recommendation, and the memory-diagnostic
// tool probes. The costly answers are computed once, in function-local
// statics: their initialisation is the one-time guard (concurrent first
// callers wait), and they are released at exit.
#include "kt/sysinfo.h"

#include <dlfcn.h>
#include <sys/utsname.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <string>

#include "internal/diag.h"
#include "internal/process_runner.h"
#include "kt/memory.h"
#include "kt/output.h"
#include "platform/cpu_topology.h"

namespace diag = kt::internal::diag;

namespace {

constexpr const char* kModule = "sysinfo";
constexpr uint32_t kFlagProblem = 1;  // a failed probe, a fallback taken
constexpr uint32_t kFlagValue = 2;    // what was found

diag::Channel& SysinfoLog() {
  static diag::Channel& channel = diag::GetChannel("sysinfo");
  return channel;
}

diag::Channel& ThreadLog() {
  static diag::Channel& channel = diag::GetChannel("thread_recommendation");
  return channel;
}

// "<sysname> <release> <version> <machine>", or "unknown". The node name
// is left out on purpose: the text describes the system, not the host.
std::string UnameText() {
  char text[1024] = "unknown";
  struct utsname names;
  if (uname(&names) == 0)
    std::snprintf(text, sizeof text, "%s %s %s %s", names.sysname, names.release,
                  names.version, names.machine);
  return text;
}

// `lsb_release -ds` through the process runner: its output without one
// trailing newline when it succeeds, else "".
std::string LsbReleaseText() {
  std::string output, error;
  int status;
  try {
    status = bedrock::core::process::run("lsb_release -ds", output, error);
  } catch (const std::exception&) {  // not (...): a thread's cancellation must go on
    if (auto record = SysinfoLog().Open(kFlagProblem, kModule, __LINE__, __func__))
      record.stream() << "Ignoring errors after spawning lsb_release.";
    return "";
  }
  std::string result;
  if (status == 0) {
    result = output;
    if (!result.empty() && result.back() == '\n') result.pop_back();
  }
  // Text on standard error is only reported; a successful result stands.
  if (!error.empty())
    if (auto record = SysinfoLog().Open(kFlagProblem, kModule, __LINE__, __func__))
      record.stream() << "Unexpected output to stderr." << " unexpected=" << error;
  return result;
}

std::string OsCompatText() {
  std::string result = LsbReleaseText();
  if (result.empty()) result = ktGetOS();
  if (auto record = SysinfoLog().Open(kFlagValue, kModule, __LINE__, __func__))
    record.stream() << " osName=" << result;
  return result;
}

// ZENTRA_PROCESSOR_ENUM_MODE: SMT siblings count only for exactly 1. Text
// that is not an integer is absorbed as "do not count them".
bool IncludeSmtFromEnvironment() {
  const char* text = std::getenv("ZENTRA_PROCESSOR_ENUM_MODE");
  if (text != nullptr && *text != '\0')
    if (auto record = ThreadLog().Open(kFlagValue, kModule, __LINE__, __func__))
      record.stream() << " mode=" << text;
  bool converted = true;
  bool includeSmt = kt::internal::IncludeSmtForMode(text, &converted);
  if (!converted)
    if (auto record = ThreadLog().Open(kFlagProblem, kModule, __LINE__, __func__))
      record.stream() << "Bad conversion of the mode; counting cores without SMT siblings";
  return includeSmt;
}

uint64_t ThreadRecommendation() {
  kt::internal::ProcessorDescription description;
  if (!kt::internal::DescribeThisProcessor(&description))
    if (auto record = ThreadLog().Open(kFlagProblem, kModule, __LINE__, __func__))
      record.stream() << "Something went wrong detecting CPU details; using fallback values";
  bool includeSmt = IncludeSmtFromEnvironment();
  if (auto record = ThreadLog().Open(kFlagValue, kModule, __LINE__, __func__))
    record.stream() << " include_smt=" << (includeSmt ? 1 : 0);
  return kt::internal::AvailableConcurrency(description, includeSmt);
}

// Calls `symbol` of the main program's global scope, or answers 0.
int AskMainProgram(const char* symbol) {
  void* self = dlopen(nullptr, RTLD_LAZY | RTLD_GLOBAL);
  if (self == nullptr) {
    const char* reason = dlerror();
    ktPrintf("dlopen failed: %s\n", reason != nullptr ? reason : "");
    return 0;
  }
  void* function = dlsym(self, symbol);
  // Closing the program's own handle unloads nothing, so the function
  // stays callable.
  dlclose(self);
  if (function == nullptr) return 0;
  return reinterpret_cast<int (*)()>(function)();
}

}  // namespace

extern "C" const char* ktGetOS(void) {
  static const std::string text = UnameText();
  return text.c_str();
}

extern "C" const char* ktGetWinSys(void) { return "unknown"; }

extern "C" char* ktGetOSCompat(void) {
  static const std::string text = OsCompatText();
  char* copy = static_cast<char*>(ktMalloc(text.size() + 1));
  if (copy != nullptr) std::memcpy(copy, text.c_str(), text.size() + 1);
  return copy;
}

extern "C" uint64_t ktGetNumAllCores(void) {
  static const uint64_t count = ThreadRecommendation();
  return count;
}

extern "C" int ktIsPurifyRunning(void) { return AskMainProgram("purify_is_running"); }

extern "C" int ktIsQuantifyRunning(void) { return AskMainProgram("quantify_is_running"); }

extern "C" int ktIsCoverageRunning(void) { return AskMainProgram("purecov_is_running"); }

extern "C" int ktIsValgrindRunning(void) { return 0; }

extern "C" int ktIsMemoryDiagnosticToolRunning(void) {
  if (ktIsPurifyRunning() != 0) return 1;
  return ktIsValgrindRunning() != 0 ? 1 : 0;
}
