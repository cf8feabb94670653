// The basic-contexts record: initialisation and clearing, the error-text
// buffer and throw hook, and the process-wide current and default records.
#include "kt/contexts.h"

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

// ---- the error-text buffer ---------------------------------------------------

// Terminates the gathered text; when the buffer is full the last byte is
// overwritten, cutting an overlong text by one byte.
void FinishErrorText(ktBasicContexts* r) {
  if (r->errorRoom != 0) {
    *r->errorCursor++ = '\0';
    --r->errorRoom;
  } else {
    r->errorCursor[-1] = '\0';
  }
}

// Drops the last byte written (the newline a printed error ends with, or a
// terminator), terminates, and rewinds the buffer for the next error.
char* TakeErrorText(ktBasicContexts* r) {
  if (r->errorCursor != r->errorText) {
    --r->errorCursor;
    ++r->errorRoom;
  }
  if (r->errorRoom != 0)
    *r->errorCursor = '\0';
  else
    r->errorCursor[-1] = '\0';
  r->errorCursor = r->errorText;
  r->errorRoom = KT_ERROR_TEXT_SIZE;
  return r->errorText;
}

void* ErrorSink(ktBasicContexts* r) { return &r->errorCursor; }

// Called by the error context after an uncaught error has been printed
// into the record's text: hands the text to the throw hook.
void BasicErrorHandler(void* data, const char* identifier, int code) {
  auto* r = static_cast<ktBasicContexts*>(data);
  char* text = TakeErrorText(r);
  r->throwFunction(r->throwData, identifier, code, text);
}

// Warning output of ktInitializeBasicContexts: a terminated copy of the
// counted text goes to the console output hook.
int WarningToConsole(void* data, const char* text, int length) {
  auto* memory = static_cast<kt_mem_context*>(data);
  auto* copy = static_cast<char*>(kt_mem_alloc(memory, static_cast<size_t>(length) + 1));
  std::memcpy(copy, text, static_cast<size_t>(length));
  copy[length] = '\0';
  ktPuts(copy);
  memory->release(copy);
  return length;
}

// ---- building the four inner contexts under a catch frame --------------------

struct BuildFrame {
  ktBasicContexts* record;
  kt_allocate_function allocate;
  kt_reallocate_function reallocate;
  kt_release_function release;
  kt_putsn_function warningOutput;
  void* warningOutputData;
  int built;  // how many of the four steps completed
};

void BuildInnerContexts(kt_error_context*, void* data) {
  auto* f = static_cast<BuildFrame*>(data);
  ktBasicContexts* r = f->record;
  kt_initialize_memory_context(&r->memoryContext, &r->errorContext, f->allocate, f->reallocate,
                               f->release);
  f->built = 1;
  kt_initialize_fpc_context(&r->fpcContext, &r->memoryContext);
  f->built = 2;
  kt_initialize_namehash(&r->namehashContext, &r->memoryContext, 1009);
  f->built = 3;
  kt_initialize_warning_context(&r->warningContext, &r->messageContext, &r->errorContext,
                                &r->memoryContext, f->warningOutput, f->warningOutputData);
  f->built = 4;
}

int CatchBuildError(kt_error_context* context, void* data, int code, va_list args) {
  auto* f = static_cast<BuildFrame*>(data);
  kt_verror_print(context, code, args);
  FinishErrorText(f->record);
  return 1;
}

// The members that ktClearBasicContexts releases, in the state that it
// treats as owning nothing.
void EmptyInnerContexts(ktBasicContexts* r) {
  std::memset(&r->namehashContext, 0, sizeof r->namehashContext);
  std::memset(&r->fpcContext, 0, sizeof r->fpcContext);
  std::memset(&r->warningContext, 0, sizeof r->warningContext);
}

// After a failed build, releases what the completed steps own and leaves
// those members empty, so that ktClearBasicContexts stays safe.
void UndoInnerContexts(BuildFrame* f) {
  ktBasicContexts* r = f->record;
  if (f->built >= 3)
    kt_clear_namehash(&r->namehashContext);
  if (f->built >= 2)
    kt_clear_fpc_context(&r->fpcContext);
  EmptyInnerContexts(r);
}

// ---- the process-wide current and default records -----------------------------

ktBasicContexts gDefault;  // zero-initialised static storage: no constructor runs
std::atomic<ktBasicContexts*> gCurrent{nullptr};
std::atomic<bool> gDefaultReady{false};

std::recursive_mutex& RecordMutex() {
  static std::recursive_mutex mutex;
  return mutex;
}

// Prints the text with the text itself as the format, then panics. A "%"
// in an error text is therefore interpreted: established behaviour that
// hosts relying on the default record have always seen.
int DefaultThrow(void*, const char*, int, const char* text) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
  std::fprintf(stderr, text);
#pragma GCC diagnostic pop
  Quivera::System::panic(1);
}

void ClearDefaultAtExit() {
  std::lock_guard<std::recursive_mutex> lock(RecordMutex());
  gCurrent.store(nullptr);
  ktClearBasicContexts(&gDefault);
}

void BuildDefault() {
  std::lock_guard<std::recursive_mutex> lock(RecordMutex());
  gCurrent.store(nullptr);
  if (ktInitializeBasicContexts(&gDefault, DefaultThrow, nullptr) != 0)
    Quivera::System::panicsf(3, "%s", gDefault.errorText);
  {
    std::lock_guard<std::recursive_mutex> again(RecordMutex());  // recursive on purpose
    gCurrent.store(&gDefault);
  }
  std::atexit(ClearDefaultAtExit);
}

// One atomic check once the default exists; the first callers build it
// exactly once, concurrent ones wait.
inline ktBasicContexts* Current() {
  if (!gDefaultReady.load(std::memory_order_acquire)) {
    static std::once_flag once;
    std::call_once(once, [] {
      BuildDefault();
      gDefaultReady.store(true, std::memory_order_release);
    });
  }
  return gCurrent.load(std::memory_order_acquire);
}

// Member address of a possibly null record, computed without touching it:
// after ktInstallBasicContexts(null) the accessors return such addresses.
template <class T>
T* MemberOf(ktBasicContexts* r, size_t offset) {
  return reinterpret_cast<T*>(reinterpret_cast<uintptr_t>(r) + offset);
}

}  // namespace

// ---- initialisation and clearing ------------------------------------------------

extern "C" int ktInitializeBasicContexts_full(
    ktBasicContexts* r, ktBasicThrowFunction throwFunction, void* throwData,
    kt_allocate_function allocate, kt_reallocate_function reallocate,
    kt_release_function release, kt_putsn_function errorOutput, void* errorOutputData,
    kt_putsn_function warningOutput, void* warningOutputData) {
  // Step 1: the throw hook and an empty error text. The record may come
  // from the stack or malloc: the members that ktClearBasicContexts
  // releases start empty, so clearing is safe whichever step fails (the
  // message context empties itself before it can fail).
  r->throwFunction = throwFunction;
  r->throwData = throwData;
  r->errorCursor = r->errorText;
  r->errorRoom = KT_ERROR_TEXT_SIZE;
  EmptyInnerContexts(r);

  // Steps 2-3: message and error contexts; a failure is explained in the
  // record's own text whatever output the caller chose.
  int status = 0;
  int result = kt_initialize_message_context(&status, &r->messageContext, allocate, reallocate);
  if (result == 0)
    result = kt_initialize_error_context(&status, &r->errorContext, &r->messageContext,
                                         errorOutput, errorOutputData);
  if (result != 0) {
    kt_print_message_context_error(&r->messageContext, kt_bputsn, ErrorSink(r), result, status);
    FinishErrorText(r);
    return result;
  }

  // Steps 4-6: the handler that leads to the throw hook, then the other
  // four contexts under a frame that catches any raise while building.
  kt_register_error_handler(&r->errorContext, BasicErrorHandler, r);
  BuildFrame frame{r, allocate, reallocate, release, warningOutput, warningOutputData, 0};
  result = kt_try_catch(&r->errorContext, &frame, BuildInnerContexts, CatchBuildError);
  if (result != 0)
    UndoInnerContexts(&frame);
  return result;
}

extern "C" int ktInitializeBasicContexts(ktBasicContexts* r, ktBasicThrowFunction throwFunction,
                                         void* throwData) {
  return ktInitializeBasicContexts_full(r, throwFunction, throwData, ktMalloc, ktRealloc, ktFree,
                                        kt_bputsn, ErrorSink(r), WarningToConsole,
                                        &r->memoryContext);
}

extern "C" void ktClearBasicContexts(ktBasicContexts* r) {
  kt_clear_warning_context(&r->warningContext);
  kt_clear_namehash(&r->namehashContext);
  kt_clear_fpc_context(&r->fpcContext);
  // Always ktFree, whatever _full was given: kept as callers know it.
  kt_clear_message_context(&r->messageContext, ktFree);
}

extern "C" void ktClearDefaultContexts(void) {
  // Deliberately empty: the default record is cleared at process exit.
}

// ---- the current record --------------------------------------------------------------

extern "C" ktBasicContexts* ktGetBasicContexts(void) { return Current(); }

extern "C" ktBasicContexts* ktInstallBasicContexts(ktBasicContexts* record) {
  Current();
  std::lock_guard<std::recursive_mutex> lock(RecordMutex());
  return gCurrent.exchange(record);
}

extern "C" void ktInstallBasicThrow(ktBasicThrowFunction throwFunction, void* throwData) {
  Current();
  std::lock_guard<std::recursive_mutex> lock(RecordMutex());
  ktBasicContexts* r = gCurrent.load();
  r->throwFunction = throwFunction;
  r->throwData = throwData;
}

extern "C" kt_message_context* ktGetMessageContext(void) {
  return MemberOf<kt_message_context>(Current(), offsetof(ktBasicContexts, messageContext));
}

extern "C" kt_error_context* ktGetErrorContext(void) {
  return MemberOf<kt_error_context>(Current(), offsetof(ktBasicContexts, errorContext));
}

extern "C" kt_mem_context* ktGetMemoryContext(void) {
  return MemberOf<kt_mem_context>(Current(), offsetof(ktBasicContexts, memoryContext));
}

kt_namehash* ktGetNamehashContext() {
  return MemberOf<kt_namehash>(Current(), offsetof(ktBasicContexts, namehashContext));
}

extern "C" kt_fpc_context* ktGetFpcContext(void) {
  return MemberOf<kt_fpc_context>(Current(), offsetof(ktBasicContexts, fpcContext));
}

extern "C" kt_warning_context* ktGetWarningContext(void) {
  return MemberOf<kt_warning_context>(Current(), offsetof(ktBasicContexts, warningContext));
}

extern "C" char* ktReturnKTErrorString(void) { return TakeErrorText(Current()); }
