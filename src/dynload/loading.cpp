// Loading, symbol lookup and unloading over the system loader, the narrow
// and UTF-16 forms of every load, the loader-fault retry, and the names of
// addresses.
#include <cxxabi.h>
#include <dlfcn.h>

#include <atomic>
#include <cstdlib>
#include <exception>
#include <memory>

#include "dynload/dynload.h"
#include "internal/message_catalog.h"
#include "kt/encodings.h"
#include "kt/loading.h"

// The instrumentation-tool queries of the operating-system family, declared
// weak: a program linking the static archive may stand in its own probes,
// and a missing one counts as "no tool running".
extern "C" {
int ktIsPurifyRunning(void) __attribute__((weak));
int ktIsQuantifyRunning(void) __attribute__((weak));
int ktIsCoverageRunning(void) __attribute__((weak));
}

namespace kt::internal::dynload {

namespace {

constexpr int kModeNowGlobal = RTLD_NOW | RTLD_GLOBAL;  // 0x102

std::atomic<DlopenFunction> g_dlopen{nullptr};

void SetStatus(int* errorStatus, int value) {
  if (errorStatus != nullptr) *errorStatus = value;
}

// The path for the loader in UTF-8: written into `buffer` when it is plain
// ASCII and fits (most paths: no ICU, no allocation), else into `spill`.
constexpr size_t kPathBuffer = 1024;

const char* LoaderPath(const cx::ustring& path, char (&buffer)[kPathBuffer], std::string* spill) {
  size_t n = path.size();
  if (n < kPathBuffer) {
    char16_t any = 0;
    for (size_t i = 0; i < n; ++i) {
      any |= path[i];
      buffer[i] = static_cast<char>(path[i]);
    }
    buffer[n] = '\0';
    if (any < 0x80) return buffer;
  }
  Quivera::I18N::FromUTF16Converter(path.data(), static_cast<int>(n), "UTF-8").copy_to(*spill);
  return spill->c_str();
}

std::string LoaderPath(const cx::ustring& path) {
  char buffer[kPathBuffer];
  std::string spill;
  return LoaderPath(path, buffer, &spill);
}

// "glibcFailedLoadBug" of "bedrock_legacy:messages" with the first loader
// text as its argument ({0}).
cx::ustring FailedLoadBugText(const cx::ustring& firstText) {
  cx::ustring text =
      cx::i18n::MessageCatalog::get_message("bedrock_legacy:messages", "glibcFailedLoadBug");
  const cx::ustring slot = u"{0}";
  size_t at = text.find(slot);
  if (at != cx::ustring::npos) text.replace(at, slot.size(), firstText);
  return text;
}

// The loader's text after a call: traced when there is one, then stored
// in the thread's record (a null text resets it, so a success reads as 0).
void RecordLoaderText(const CallTrace& trace, const char* message, LastLibraryError* record) {
  if (message != nullptr) {
    if (auto r = trace.Open(kTraceLoaderText, __LINE__)) r.stream() << "dlerror() : " << message;
  }
  if (record != nullptr) record->Record(1, message);
  trace.RecordState(record, __LINE__);
}

// Steps 5-8 of a failed load: record the loader's text, then ask the loader
// whether it kept the object anyway.
void HandleFailedLoad(const CallTrace& trace, const char* loaderPath, int mode,
                      int* errorStatus, LastLibraryError* record) {
  RecordLoaderText(trace, dlerror(), record);
  SetStatus(errorStatus, 1);
  if (auto r = trace.Open(kTraceRetry, __LINE__)) r.stream() << "First load attempt failed";
  if (auto r = trace.Open(kTraceRetry, __LINE__))
    r.stream() << "Attempting second load with RTLD_NOLOAD";
  void* kept = DlopenHook()(loaderPath, mode | RTLD_NOLOAD);
  if (kept == nullptr) return;
  // The loader has half registered the object although the load failed.
  // The reference the retry took is leaked on purpose: closing it could
  // unmap code the loader still points at.
  if (auto r = trace.Open(kTraceRetry, __LINE__)) r.stream() << "Botched glibc load; we're toast";
  if (record == nullptr) return;
  try {
    record->RecordText(1, FailedLoadBugText(record->m_u_message));
  } catch (...) {
    // the first text stays
  }
  trace.RecordState(record, __LINE__);
}

using Utf16Form = void* (*)(const cx::ustring& path, int* errorStatus);

// A UTF-16 form of a fixed mode: its own trace around the helper.
void* LoadWithMode(const char* signature, const cx::ustring& path, int* errorStatus, int mode) {
  CallTrace trace(signature, __LINE__);
  return ktLoadLibraryHelper(path, errorStatus, mode);
}

// The narrow forms: the path to UTF-16, then `load` (the UTF-16 form).
// Exceptions of the standard hierarchy become a failed load with their text.
template <class Load>
void* NarrowLoad(const char* signature, const char* path, int* errorStatus, Load load) {
  CallTrace trace(signature, __LINE__);
  try {
    return load(LcpToUstring(path != nullptr ? path : ""));
  } catch (const std::exception& e) {
    if (LastLibraryError* record = ThreadLastError()) {
      try {
        record->RecordText(1, LcpToUstring(e.what()));
      } catch (...) {
        record->m_code = 1;
        record->m_unknown = 1;
      }
    }
    SetStatus(errorStatus, 1);
    return nullptr;
  }
}

void* NarrowLoad(const char* signature, const char* path, int* errorStatus, Utf16Form form) {
  return NarrowLoad(signature, path, errorStatus,
                    [=](const cx::ustring& p) { return form(p, errorStatus); });
}

void* LoadWithDiagnosis(const cx::ustring& path, void* (*load)(const cx::ustring&, int*)) {
  int status = 0;
  void* handle = load(path, &status);
  if (handle != nullptr && status == 0) return handle;
  const kt_utf16* text = ktLastLibraryError_u();
  DiagnoseLoadFailure(path, cx::ustring(text));
}

}  // namespace

DlopenFunction SetDlopenHook(DlopenFunction hook) {
  return g_dlopen.exchange(hook);
}

DlopenFunction DlopenHook() {
  DlopenFunction hook = g_dlopen.load(std::memory_order_relaxed);
  return hook != nullptr ? hook : &dlopen;
}

}  // namespace kt::internal::dynload

using namespace kt::internal::dynload;

void* ktLoadLibraryHelper(const cx::ustring& path, int* errorStatus, int mode) {
  CallTrace trace("void* ktLoadLibraryHelper(const cx::ustring&, int*, int)", __LINE__);
  if (auto r = trace.Open(kTraceParams, __LINE__))
    r.stream() << " ufullname=" << LoaderPath(path) << " errorStatus=" << errorStatus
               << " mode=" << mode;
  SetStatus(errorStatus, 0);
  LastLibraryError* record = ThreadLastError();
  if (record != nullptr) record->Reset();
  char buffer[kPathBuffer];
  std::string spill;
  const char* loaderPath = LoaderPath(path, buffer, &spill);
  const char* name = path.empty() ? nullptr : loaderPath;  // null: the main program
  void* handle = DlopenHook()(name, mode);
  if (handle == nullptr) HandleFailedLoad(trace, name, mode, errorStatus, record);
  trace.Result("handle", handle, __LINE__);
  return handle;
}

// ---- the UTF-16 forms ------------------------------------------------------------

void* ktLoadLibrary(const cx::ustring& path, int* errorStatus) {
  return LoadWithMode("void* ktLoadLibrary(const cx::ustring&, int*)", path, errorStatus,
                      kModeNowGlobal);
}

// Loads the library when it is not loaded yet, exactly like ktLoadLibrary:
// kept so on purpose, callers rely on it.
void* ktGetModule(const cx::ustring& path, int* errorStatus) {
  return LoadWithMode("void* ktGetModule(const cx::ustring&, int*)", path, errorStatus,
                      kModeNowGlobal);
}

void* ktLoadLibraryAndAddGlobalSymbols(const cx::ustring& path, int* errorStatus) {
  return LoadWithMode("void* ktLoadLibraryAndAddGlobalSymbols(const cx::ustring&, int*)", path,
                      errorStatus, kModeNowGlobal);
}

void* ktLoadLibraryUnresolved(const cx::ustring& path, int* errorStatus) {
  return LoadWithMode("void* ktLoadLibraryUnresolved(const cx::ustring&, int*)", path,
                      errorStatus, RTLD_LAZY);
}

void* ktLoadLibraryWithLocalSymbolVisibility(const cx::ustring& path, int* errorStatus) {
  return LoadWithMode("void* ktLoadLibraryWithLocalSymbolVisibility(const cx::ustring&, int*)",
                      path, errorStatus, RTLD_NOW);
}

void* ktLoadLibraryWithLocalSymbolVisibilityAndDeepBind(const cx::ustring& path,
                                                        int* errorStatus) {
  return LoadWithMode(
      "void* ktLoadLibraryWithLocalSymbolVisibilityAndDeepBind(const cx::ustring&, int*)", path,
      errorStatus, RTLD_NOW | RTLD_DEEPBIND);
}

void* ktLoadLibraryWithCustomSymbolVisibility(const cx::ustring& path, int mode,
                                              int* errorStatus) {
  return LoadWithMode(
      "void* ktLoadLibraryWithCustomSymbolVisibility(const cx::ustring&, int, int*)", path,
      errorStatus, mode);
}

void* ktLoadLibraryWithDiagnosticMsg(const cx::ustring& path) {
  CallTrace trace("void* ktLoadLibraryWithDiagnosticMsg(const cx::ustring&)", __LINE__);
  return LoadWithDiagnosis(path, &ktLoadLibrary);
}

void* ktLoadLibraryWithLocalSymbolVisibilityAndDiagnosticMsg(const cx::ustring& path) {
  CallTrace trace(
      "void* ktLoadLibraryWithLocalSymbolVisibilityAndDiagnosticMsg(const cx::ustring&)",
      __LINE__);
  return LoadWithDiagnosis(path, &ktLoadLibraryWithLocalSymbolVisibility);
}

// ---- the narrow forms -------------------------------------------------------------

void* ktLoadLibrary(const char* path, int* errorStatus) {
  return NarrowLoad("void* ktLoadLibrary(const char*, int*)", path, errorStatus, &ktLoadLibrary);
}

void* ktGetModule(const char* path, int* errorStatus) {
  return NarrowLoad("void* ktGetModule(const char*, int*)", path, errorStatus, &ktGetModule);
}

void* ktLoadLibraryAndAddGlobalSymbols(const char* path, int* errorStatus) {
  return NarrowLoad("void* ktLoadLibraryAndAddGlobalSymbols(const char*, int*)", path,
                    errorStatus, &ktLoadLibraryAndAddGlobalSymbols);
}

void* ktLoadLibraryUnresolved(const char* path, int* errorStatus) {
  return NarrowLoad("void* ktLoadLibraryUnresolved(const char*, int*)", path, errorStatus,
                    &ktLoadLibraryUnresolved);
}

void* ktLoadLibraryWithLocalSymbolVisibility(const char* path, int* errorStatus) {
  return NarrowLoad("void* ktLoadLibraryWithLocalSymbolVisibility(const char*, int*)", path,
                    errorStatus, &ktLoadLibraryWithLocalSymbolVisibility);
}

void* ktLoadLibraryWithCustomSymbolVisibility(const char* path, int mode, int* errorStatus) {
  return NarrowLoad("void* ktLoadLibraryWithCustomSymbolVisibility(const char*, int, int*)", path,
                    errorStatus, [=](const cx::ustring& p) {
                      return ktLoadLibraryWithCustomSymbolVisibility(p, mode, errorStatus);
                    });
}

// ---- lookup and unload -----------------------------------------------------------

void* ktFindSymbolInLibrary(void* handle, const char* name) {
  CallTrace trace("void* ktFindSymbolInLibrary(void*, const char*)", __LINE__);
  if (auto r = trace.Open(kTraceParams, __LINE__))
    r.stream() << " handle=" << handle << " symbol=" << (name != nullptr ? name : "(null)");
  LastLibraryError* record = ThreadLastError();
  if (record != nullptr) record->Reset();
  void* result = dlsym(handle, name);
  // A successful dlsym leaves dlerror() null, and recording a null text
  // resets: after success the record says 0.
  RecordLoaderText(trace, dlerror(), record);
  trace.Result("result", result, __LINE__);
  return result;
}

int ktUnloadLibrary(void* handle) {
  CallTrace trace("int ktUnloadLibrary(void*)", __LINE__);
  if (auto r = trace.Open(kTraceParams, __LINE__)) r.stream() << " handle=" << handle;
  LastLibraryError* record = ThreadLastError();
  if (record != nullptr) record->Reset();
  int result = dlclose(handle);
  if (result != 0) RecordLoaderText(trace, dlerror(), record);
  trace.Result("result", result, __LINE__);
  return result;
}

// ---- addresses to names ------------------------------------------------------------

std::string ktModuleNameFromAddress(void* address) {
  Dl_info info;
  if (dladdr(address, &info) == 0 || info.dli_fname == nullptr) return std::string();
  return info.dli_fname;
}

namespace {

std::string Demangle(const char* name) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> demangled(
      abi::__cxa_demangle(name, nullptr, nullptr, &status), &std::free);
  return status == 0 && demangled ? std::string(demangled.get()) : std::string(name);
}

bool InstrumentationToolRunning() {
  return (ktIsPurifyRunning != nullptr && ktIsPurifyRunning() != 0) ||
         (ktIsQuantifyRunning != nullptr && ktIsQuantifyRunning() != 0) ||
         (ktIsCoverageRunning != nullptr && ktIsCoverageRunning() != 0);
}

}  // namespace

std::string ktSymbolNameFromAddress(void* address, std::string& module) {
  std::string name;
  Dl_info info;
  if (dladdr(address, &info) != 0) {
    if (info.dli_fname != nullptr) {
      std::string path = info.dli_fname;
      size_t slash = path.rfind('/');
      module = slash == std::string::npos ? path : path.substr(slash + 1);
    }
    if (info.dli_sname != nullptr && info.dli_saddr == address) name = Demangle(info.dli_sname);
  }
  if (name.empty() && InstrumentationToolRunning()) name = "UnknownFunctionDueToVariantBuild";
  return name;
}
