// Diagnostic channels: the in-house tracing facility that the library's
// modules write to ("ktsignal", "util::dynload", "windows::dlopen",
// "util::posix", "tlmx_timing", "sysinfo", "thread_recommendation"), and the
// fatal-diagnostic and assertion paths that end the process.
//
// A channel has a name and a 32-bit mask of severity flags; each record
// carries one flag and is built only when that flag is on in the mask and
// the logging core is enabled. A disabled record therefore costs one
// relaxed atomic load:
//
//     if (auto record = Channel("ktsignal").Open(kFlagDetail, "ktsignal", 512, __func__))
//       record.stream() << " isCtrlCPending=" << pending;
//
// Records go through Boost.Log to one sink: standard error, or the file
// that KT_DIAGNOSTICS_FILE names. The masks come from KT_DIAGNOSTICS, read
// once when the first channel is made: a comma-separated list of
// "name:mask" items, mask being "all", a decimal or a 0x-prefixed hex
// number, and name "*" standing for every channel not listed, e.g.
// "ktsignal:all,util::dynload:0x20a". Masks can also be changed at run time.
//
// Channels live for the whole process and may be used from any thread.
#ifndef KT_INTERNAL_DIAG_H
#define KT_INTERNAL_DIAG_H

#include <atomic>
#include <cstdint>
#include <ostream>
#include <string>

namespace kt::internal::diag {

constexpr uint32_t kAllFlags = 0xFFFFFFFFu;

class Channel;

// One record being written; pushed to the sink when it goes out of scope.
// False (and without a stream) when its flag is off. An empty record costs
// nothing to make or destroy.
class Record {
public:
  Record() = default;
  Record(Record&& other) noexcept : state_(other.state_) { other.state_ = nullptr; }
  Record& operator=(Record&&) = delete;
  ~Record() {
    if (state_ != nullptr) Push();
  }
  explicit operator bool() const { return state_ != nullptr; }
  // The record's message stream; only valid while the record is true.
  std::ostream& stream();

  struct State;

private:
  friend class Channel;
  explicit Record(State* state) : state_(state) {}
  void Push();  // writes the record out and frees its state
  State* state_ = nullptr;
};

class Channel {
public:
  Channel(const Channel&) = delete;
  Channel& operator=(const Channel&) = delete;

  const std::string& name() const { return name_; }

  // Whether a record with `flag` would be written: one relaxed load when
  // the flag is off.
  bool Enabled(uint32_t flag) const {
    return (mask_.load(std::memory_order_relaxed) & flag) != 0 && CoreEnabled();
  }

  // A record with `flag` and the given source location (module file name,
  // line, function), or a false record when the flag is off.
  Record Open(uint32_t flag, const char* file, int line, const char* function) const {
    if (!Enabled(flag)) return Record();
    return OpenEnabled(flag, file, line, function);
  }

  // Writes one record with `text` as its message, when the flag is on.
  void Write(uint32_t flag, const char* file, int line, const char* function,
             const std::string& text) const;

  uint32_t mask() const { return mask_.load(std::memory_order_relaxed); }
  // Replaces the mask; returns the previous one.
  uint32_t SetMask(uint32_t mask);

private:
  friend Channel& GetChannel(const std::string& name);
  Channel(std::string name, uint32_t mask);
  static bool CoreEnabled();
  Record OpenEnabled(uint32_t flag, const char* file, int line, const char* function) const;

  std::string name_;
  std::atomic<uint32_t> mask_;
};

// The channel of that name, made on first use with its mask from
// KT_DIAGNOSTICS. Never destroyed; the reference stays valid.
Channel& GetChannel(const std::string& name);

// Parses a KT_DIAGNOSTICS value and applies it to every channel, existing
// and future ones (tests use this; the environment is read only once).
// Returns false, changing nothing, when the text is malformed.
bool Configure(const std::string& spec);

// Where records go: standard error (empty path) or the named file,
// appended to. Returns false when the file cannot be opened.
bool SetSinkFile(const std::string& path);

// The switch for fatal diagnostics: on unless KT_FATAL_DIAGNOSTICS is "0"
// at the first query; changeable at run time.
bool FatalDiagnosticsEnabled();
bool SetFatalDiagnosticsEnabled(bool on);

// A fatal internal fault: writes "Fatal diagnostic: <message>" with the
// module file, line and function to standard error and to the sink, and
// aborts. Callers test FatalDiagnosticsEnabled() first where the fault is
// optional to report.
[[noreturn]] void Terminate(const char* message, const char* file, int line,
                            const char* function);

// A failed assertion: "Assertion failed: <expression>" through Terminate,
// whatever the fatal-diagnostics switch says.
[[noreturn]] void AssertionFailed(const char* expression, const char* file, int line,
                                  const char* function);

}  // namespace kt::internal::diag

#endif  // KT_INTERNAL_DIAG_H
