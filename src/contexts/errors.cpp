// The error context: catch frames, raising by message code, printing of
// raised errors, and the process-ending functions.
#include "kt/errors.h"

#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

#include "contexts/error_raise.h"
#include "kt/logging.h"
#include "kt/memory.h"
#include "kt/messages.h"
#include "kt/output.h"

namespace {

// The error context's own table: module 1.
const int kErrorCodes[] = {KT_ERR_RETHROW, KT_ERR_SIGNAL_INTERRUPT, KT_ERR_VALUE_OVERFLOW_TYPE,
                           KT_ERR_UNSUPPORTED_FP_FMT, KT_ERR_FATAL, -1};
const char* const kErrorMnemonics[] = {"ERR_RETHROW", "ERR_SIGNAL_INTERRUPT",
                                       "ERR_VALUE_OVERFLOW_TYPE", "ERR_UNSUPPORTED_FP_FMT",
                                       "ERR_FATAL"};
const char* const kErrorTexts[] = {
    "%s",
    "",
    "Maximum variable size allowed by the program is exceeded.\nValue of type \"%s\" cannot be "
    "represented as type \"%s\" in file \"%s\", line %d.\n(%s).",
    "Encountered unsupported floating point format. Expected IEEE little endian or big endian "
    "format, encountered VAX or Cray floating point format.",
    ""};
const kt_message_table kErrorTable = {5, 1, kErrorCodes, kErrorMnemonics, kErrorTexts,
                                      "error_context"};

constexpr size_t kIdentifierSize = 2048;
constexpr size_t kErrorTextSize = 4096;

// Thrown only to unwind from a raise to the frame that accepted it.
struct ktContextException {
  try_catch_link* frame;
  kt_error_context* context;
  void* data;
  std::string identifier;
  int code;
  char text[kErrorTextSize];
};

bool DefaultOutputQuery() { return ktPrintfIsHot(); }

// Offers the error to one frame; true when its catch function accepts.
// The running flag keeps a catch function from being offered the errors
// it raises itself; it is cleared on every way out.
bool OfferToFrame(kt_error_context* context, try_catch_link* link, const char* identifier,
                  int code, va_list args) {
  link->running = 1;
  int accepted = 0;
  va_list copy;
  va_copy(copy, args);
  try {
    if (link->catchFunction != nullptr) {
      accepted = link->catchFunction(context, link->data, code, copy);
    } else if (link->catchIdFunction != nullptr) {
      accepted = link->catchIdFunction(context, link->data, identifier, code, copy);
    }
  } catch (...) {
    va_end(copy);
    link->running = 0;
    throw;
  }
  va_end(copy);
  link->running = 0;
  return accepted != 0;
}

[[noreturn]] void ThrowToFrame(kt_error_context* context, try_catch_link* link,
                               const char* identifier, int code, va_list args) {
  ktContextException e;
  e.frame = link;
  e.context = context;
  e.data = link->data;
  e.identifier = identifier;
  e.code = code;
  va_list copy;
  va_copy(copy, args);
  kt_vsprintm(context->messageContext, e.text, sizeof e.text, code, copy);
  va_end(copy);
  throw e;
}

int RunFrame(kt_error_context* context, void* data, kt_try_body_function body,
             kt_catch_function plain, kt_catch_id_function withId) {
  try_catch_link frame = {context, data, plain, withId, context->top, 0};
  context->top = &frame;
  try {
    body(context, data);
  } catch (const ktContextException& e) {
    context->top = frame.previous;
    if (e.frame == &frame) return e.code;
    throw;
  } catch (abi::__forced_unwind&) {
    // Thread cancellation must finish unwinding.
    context->top = frame.previous;
    throw;
  } catch (...) {
    // Deliberately, no foreign exception passes this boundary: the
    // procedural callers above cannot handle one.
    context->top = frame.previous;
    return 0;
  }
  context->top = frame.previous;
  return 0;
}

// ---- process-ending report --------------------------------------------------

constexpr const char* kExitSentence =
    "%sThe program '[%d] %s: Native' has exited with code %d (0x%X).\n";

// Builds "<format>The program '[pid] name: Native' has exited with code N
// (0xN).\n" and reports it with the caller's arguments, so that the
// caller's conversions, now leading the sentence, are filled by them.
void ReportExit(int status, const char* format, va_list args);

void ReportExitf(int status, const char* format, ...) {
  va_list args;
  va_start(args, format);
  ReportExit(status, format, args);
  va_end(args);
}

}  // namespace

namespace kt::internal {

void RaiseToFramesAndHandler(kt_error_context* context, const char* identifier, int code,
                             va_list args) {
  if (identifier == nullptr) {
    // A programming error: nothing has been offered or changed yet.
    throw std::logic_error("basic_string: construction from null is not valid");
  }
  for (try_catch_link* link = context->top; link != nullptr; link = link->previous) {
    if (link->running) continue;
    if (OfferToFrame(context, link, identifier, code, args))
      ThrowToFrame(context, link, identifier, code, args);
  }
  va_list copy;
  va_copy(copy, args);
  kt_verror_print(context, code, copy);
  va_end(copy);
  if (context->handler != nullptr) context->handler(context->handlerData, identifier, code);
}

void RaiseOrReturn(kt_error_context* context, int code, ...) {
  char identifier[kIdentifierSize];
  kt_make_message_identifier(identifier, context->messageContext, code);
  va_list args;
  va_start(args, code);
  RaiseToFramesAndHandler(context, identifier, code, args);
  va_end(args);
}

}  // namespace kt::internal

extern "C" {

int kt_initialize_error_context(int* status, kt_error_context* context,
                                kt_message_context* messageContext, kt_putsn_function output,
                                void* outputData) {
  context->top = nullptr;
  context->messageContext = messageContext;
  context->output = output;
  context->outputData = outputData;
  context->outputQuery = DefaultOutputQuery;
  context->handler = kt_error_exit_function;
  context->handlerData = nullptr;
  return kt_add_primary_message_table(status, messageContext, &kErrorTable, ktRealloc);
}

void kt_register_error_handler(kt_error_context* context, kt_error_handler_function handler,
                               void* data) {
  context->handler = handler;
  context->handlerData = data;
}

int kt_try_catch(kt_error_context* context, void* data, kt_try_body_function body,
                 kt_catch_function catchFunction) {
  return RunFrame(context, data, body, catchFunction, nullptr);
}

int kt_try_catch_id(kt_error_context* context, void* data, kt_try_body_function body,
                    kt_catch_id_function catchFunction) {
  return RunFrame(context, data, body, nullptr, catchFunction);
}

void kt_verror_id(kt_error_context* context, const char* identifier, int code, va_list args) {
  kt::internal::RaiseToFramesAndHandler(context, identifier, code, args);
  Quivera::System::fatal();
}

void kt_error_id(kt_error_context* context, const char* identifier, int code, ...) {
  va_list args;
  va_start(args, code);
  kt_verror_id(context, identifier, code, args);
}

void kt_verror(kt_error_context* context, int code, va_list args) {
  char identifier[kIdentifierSize];
  kt_make_message_identifier(identifier, context->messageContext, code);
  kt_verror_id(context, identifier, code, args);
}

void kt_error(kt_error_context* context, int code, ...) {
  va_list args;
  va_start(args, code);
  kt_verror(context, code, args);
}

void kt_verror_print(kt_error_context* context, int code, va_list args) {
  kt_vprintm(context->messageContext, context->output, context->outputData, code, args);
  context->output(context->outputData, "\n", 1);
}

void kt_error_print(kt_error_context* context, int code, ...) {
  va_list args;
  va_start(args, code);
  kt_verror_print(context, code, args);
  va_end(args);
}

void kt_error_exit_function(void* /*data*/, const char* /*identifier*/, int /*code*/) {
  Quivera::System::fatal();
}

}  // extern "C"

namespace Quivera::System {

void panic(int status) {
  ReportExitf(status, "");
  std::exit(status);
}

void panics(int status, const char* text) {
  ReportExitf(status, "%s\n", text);
  std::exit(status);
}

void panicsf(int status, const char* format, ...) {
  va_list args;
  va_start(args, format);
  ReportExit(status, format, args);
  va_end(args);
  std::exit(status);
}

void fatal() {
  ReportExitf(2, "");
  // abort() does not flush stdio: the default output hook writes to stdout,
  // which is fully buffered when it is a file or a pipe.
  std::fflush(nullptr);
  std::abort();
}

}  // namespace Quivera::System

namespace {

void ReportExit(int status, const char* format, va_list args) {
  char name[4096];
  name[0] = '\0';
  if (Quivera::System::CurrentExecutableName(name, sizeof name) == 0) name[0] = '\0';
  int pid = Quivera::System::CurrentProcessId();
  char sentence[1024];
  if (ktSNprintf(sentence, sizeof sentence, kExitSentence, format, pid, name, status, status) == -1)
    return;
  // The sentence becomes the format: the caller's conversions lead it and
  // take the caller's arguments. A "%" in the executable name would be
  // read as a conversion too; accepted as it always was.
  Quivera::System::vreportsf(Quivera::System::Level(Quivera::System::Level::Severe), sentence,
                             args);
}

}  // namespace
