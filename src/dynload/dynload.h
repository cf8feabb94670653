// The loading family's internals shared by its components: the per-thread
// last-error record, the diagnostic channel and its call traces, the one
// dlopen call and its test seam, and the entry of the load-failure
// diagnosis.
#ifndef KT_DYNLOAD_DYNLOAD_H
#define KT_DYNLOAD_DYNLOAD_H

#include <cstdint>
#include <string>

#include "internal/diag.h"
#include "kt/errors.h"  // cx::ustring

// The UTF-16 forms that are not exported (their names are the ones the
// traces show).
void* ktLoadLibraryHelper(const cx::ustring& path, int* errorStatus, int mode);
void* ktLoadLibraryWithLocalSymbolVisibilityAndDeepBind(const cx::ustring& path,
                                                        int* errorStatus);

namespace kt::internal::dynload {

// ---- the per-thread last error -----------------------------------------

// The last load, lookup or unload error of one thread. Field order is the
// one the family has always had.
struct LastLibraryError {
  int32_t m_code = 0;         // 0 after success, 1 after a failure
  int32_t m_unknown = 0;      // the message could not be converted
  cx::ustring m_u_message;    // the loader's text, UTF-16
  std::string m_narrow;       // m_u_message in the thread's code page, on demand

  void Reset();
  // Records a failure with the loader's text (the thread's code page). A
  // null text resets the record instead: m_code stays 0 although the
  // operation failed. The loaders have always behaved so; kept on purpose.
  void Record(int code, const char* message);
  // Records a failure with text already in UTF-16.
  void RecordText(int code, const cx::ustring& message);
};

// This thread's record, made on first use and deleted with the thread;
// null only when it cannot be allocated.
LastLibraryError* ThreadLastError();

// Text in the thread's code page as UTF-16 (invalid bytes substituted).
// Throws std::bad_alloc when memory runs out.
cx::ustring LcpToUstring(const char* text);

// ---- tracing on "util::dynload" ------------------------------------------

enum TraceFlag : uint32_t {
  kTraceParams = 2,
  kTraceRecord = 4,
  kTraceEntry = 8,
  kTraceRetry = 16,
  kTraceExit = 64,
  kTraceResult = 128,
  kTraceLoaderText = 512,
};

// The "util::dynload" channel. The first call also makes "windows::dlopen",
// which nothing writes to: the family has always owned it (kept on purpose).
diag::Channel& Channel();

// Entry and exit records of one call, named by the function's signature.
// The channel's mask is read once, when the call starts: while the flags
// are off, a trace costs that one relaxed load.
class CallTrace {
public:
  CallTrace(const char* signature, int line);
  ~CallTrace();
  CallTrace(const CallTrace&) = delete;
  CallTrace& operator=(const CallTrace&) = delete;

  // A record of `flag` at `line`, false when the flag is off.
  diag::Record Open(uint32_t flag, int line) const;
  // "name=value" at flag 128.
  void Result(const char* name, const void* value, int line) const;
  void Result(const char* name, int value, int line) const;
  // The per-thread record after it was set (flag 4).
  void RecordState(const LastLibraryError* record, int line) const;

private:
  const diag::Channel& channel_;
  const uint32_t mask_;
  const char* signature_;
  int line_;
};

// ---- the loader and its seam ---------------------------------------------

// The dlopen the helper calls. Tests replace it to reach paths the real
// loader rarely takes; null restores dlopen. Returns the previous hook.
using DlopenFunction = void* (*)(const char* path, int mode);
DlopenFunction SetDlopenHook(DlopenFunction hook);
DlopenFunction DlopenHook();

// ---- the load-failure diagnosis ----------------------------------------

// Finds out why `path` did not load and throws the load-failure exception
// that names the cause (kt/loading.h), carrying `loaderText`. Never returns.
[[noreturn]] void DiagnoseLoadFailure(const cx::ustring& path, const cx::ustring& loaderText);

// What the calling thread's last diagnosis cost: commands run, library
// records built.
struct DiagnosisStats {
  int spawns = 0;
  int records = 0;
};
DiagnosisStats LastDiagnosisStats();

}  // namespace kt::internal::dynload

#endif  // KT_DYNLOAD_DYNLOAD_H
