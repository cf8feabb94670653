// Heap wrappers with fixed zero-size rules, and memory contexts that raise
// OUT_OF_MEMORY through an error context instead of returning null.
#include "kt/memory.h"

#include <cstdlib>
#include <cstring>
#include <new>

#include "kt/errors.h"
#include "kt/messages.h"

namespace {

// The memory context's own message table: module 2.
const int kMemoryCodes[] = {KT_OUT_OF_MEMORY, -1};
const char* const kMemoryMnemonics[] = {"OUT_OF_MEMORY"};
const char* const kMemoryTexts[] = {"Error: Out of memory."};
const kt_message_table kMemoryTable = {1, 2, kMemoryCodes, kMemoryMnemonics, kMemoryTexts,
                                       "memory"};

[[noreturn]] void ThrowNoMemory() {
  throw bedrock::core::except::detail::legacy(bedrock::core::except::bad_alloc());
}

// kt_handle_message_context_error calls an error function of the shape
// (data, code, ...); this one raises through the error context in `data`.
void RaiseThroughContext(void* data, int code, ...) {
  va_list args;
  va_start(args, code);
  kt_verror(static_cast<kt_error_context*>(data), code, args);
}

// Result 1 of an add is the message context running out of memory; every
// other failure (and 1 if the raise came back) is explained by module 0.
void RaiseRegistrationFailure(kt_mem_context* context, int result, int status, bool mayBeMemory) {
  kt_error_context* ec = context->errorContext;
  if (result == 1 && mayBeMemory) kt_error(ec, KT_OUT_OF_MEMORY);
  kt_handle_message_context_error(ec->messageContext, RaiseThroughContext, ec, result, status);
}

}  // namespace

extern "C" {

void* ktMalloc(size_t size) {
  if (size == 0) return nullptr;
  return std::malloc(size);
}

void* ktMallocWithCheck(size_t size) {
  if (size == 0) return nullptr;
  void* p = std::malloc(size);
  if (p == nullptr) ThrowNoMemory();
  return p;
}

void* ktCalloc(size_t count, size_t size) {
  if (count == 0 || size == 0) return nullptr;
  return std::calloc(count, size);
}

void* ktCallocWithCheck(size_t count, size_t size) {
  if (count == 0 || size == 0) return nullptr;
  void* p = std::calloc(count, size);
  if (p == nullptr) ThrowNoMemory();
  return p;
}

void* ktRealloc(void* pointer, size_t size) {
  if (size == 0) {
    std::free(pointer);
    return nullptr;
  }
  return std::realloc(pointer, size);
}

void* ktReallocWithCheck(void* pointer, size_t size) {
  if (size == 0) {
    std::free(pointer);
    return nullptr;
  }
  void* p = std::realloc(pointer, size);
  if (p == nullptr) ThrowNoMemory();
  return p;
}

void ktFree(void* pointer) { std::free(pointer); }

void kt_initialize_memory_context(kt_mem_context* context, kt_error_context* errorContext,
                                  kt_allocate_function allocate,
                                  kt_reallocate_function reallocate,
                                  kt_release_function release) {
  context->errorContext = errorContext;
  context->allocate = allocate;
  context->reallocate = reallocate;
  context->release = release;
  context->errorContextCopy = errorContext;
  kt_mem_add_primary_message_table(context, &kMemoryTable);
}

kt_mem_context* kt_new_memory_context(kt_error_context* errorContext,
                                      kt_allocate_function allocate,
                                      kt_reallocate_function reallocate,
                                      kt_release_function release) {
  kt_mem_context* context = static_cast<kt_mem_context*>(allocate(sizeof(kt_mem_context)));
  if (context == nullptr) kt_error(errorContext, KT_OUT_OF_MEMORY);
  kt_initialize_memory_context(context, errorContext, allocate, reallocate, release);
  return context;
}

void kt_delete_memory_context(kt_mem_context* context) { context->release(context); }

void* kt_mem_alloc(kt_mem_context* context, size_t size) {
  if (size == 0) return nullptr;
  // The library's own wrapper is the common case: call the heap directly
  // rather than through two more calls (same result: size is not zero).
  void* p = context->allocate == ktMalloc ? std::malloc(size) : context->allocate(size);
  if (p == nullptr) kt_error(context->errorContext, KT_OUT_OF_MEMORY);
  return p;
}

void* kt_mem_calloc(kt_mem_context* context, size_t size) {
  void* p = kt_mem_alloc(context, size);
  if (p != nullptr) std::memset(p, 0, size);
  return p;
}

void* kt_mem_realloc(kt_mem_context* context, void* pointer, size_t size) {
  if (size == 0) {
    // Release is called even for a null pointer: callers' release
    // functions see every zero-size reallocation.
    context->release(pointer);
    return nullptr;
  }
  void* p = context->reallocate(pointer, size);
  if (p == nullptr) kt_error(context->errorContext, KT_OUT_OF_MEMORY);
  return p;
}

char* kt_mem_strdup(kt_mem_context* context, const char* text) {
  size_t length = std::strlen(text);
  char* copy = static_cast<char*>(kt_mem_alloc(context, length + 1));
  std::memcpy(copy, text, length + 1);
  return copy;
}

void kt_mem_free(kt_mem_context* context, void* pointer) {
  if (context->release == ktFree)
    std::free(pointer);
  else
    context->release(pointer);
}

void kt_mem_add_primary_message_table(kt_mem_context* context, const kt_message_table* table) {
  int status = 0;
  kt_message_context* mc = context->errorContext->messageContext;
  int result = kt_add_primary_message_table(&status, mc, table, context->reallocate);
  if (result != 0) RaiseRegistrationFailure(context, result, status, true);
}

void kt_mem_remove_primary_message_table(kt_mem_context* context, const kt_message_table* table) {
  int status = 0;
  kt_message_context* mc = context->errorContext->messageContext;
  int result = kt_remove_primary_message_table(&status, mc, table);
  if (result != 0) RaiseRegistrationFailure(context, result, status, false);
}

void kt_mem_add_language(kt_mem_context* context, const char* language,
                         const kt_language_table* table) {
  int status = 0;
  kt_message_context* mc = context->errorContext->messageContext;
  int result = kt_add_language(&status, mc, language, table, context->reallocate);
  if (result != 0) RaiseRegistrationFailure(context, result, status, true);
}

}  // extern "C"

// Zero-filling after a non-throwing new (rather than a value-initialising
// new) is the established way of these two; kept as is.
void* ktNewZero_deprecated(size_t size) {
  void* p = ::operator new(size, std::nothrow);
  if (p == nullptr) ThrowNoMemory();
  std::memset(p, 0, size);
  return p;
}

void* ktNewArrayZero_deprecated(size_t size) {
  void* p = ::operator new[](size, std::nothrow);
  if (p == nullptr) ThrowNoMemory();
  std::memset(p, 0, size);
  return p;
}
