// The procedural warning context: a manager plus the caller's words.
#include "kt/warnings.h"

namespace {

// Status translation between the procedural interface and the manager,
// the same table in both directions.
int TranslateStatus(int status) {
  static const int kTable[4] = {KT_WARNING_OFF, KT_WARNING_ON, KT_WARNING_ERROR, KT_WARNING_OFF};
  return status >= 0 && status < 4 ? kTable[status] : KT_WARNING_OFF;
}

bool OutputIsLive() { return ktPrintfIsHot(); }

}  // namespace

extern "C" void kt_initialize_warning_context_with_warning_manager(
    kt_warning_context* context, void* messageContext, void* errorContext,
    kt_mem_context* memoryContext, ktWarningManagerContext* manager,
    kt_putsn_function outputFunction, void* outputData) {
  context->messageContext = messageContext;
  context->errorContext = errorContext;
  context->memoryContext = memoryContext;
  context->ownsManager = 0;
  context->manager = manager;
  context->outputFunction = outputFunction;
  context->outputData = outputData;
  context->outputLive = OutputIsLive;
}

extern "C" void kt_initialize_warning_context(kt_warning_context* context, void* messageContext,
                                              void* errorContext, kt_mem_context* memoryContext,
                                              kt_putsn_function outputFunction,
                                              void* outputData) {
  ktWarningManagerContext* manager = ktNewWarningManager(memoryContext);
  kt_initialize_warning_context_with_warning_manager(context, messageContext, errorContext,
                                                     memoryContext, manager, outputFunction,
                                                     outputData);
  context->ownsManager = 1;
}

extern "C" kt_warning_context* kt_new_warning_context_with_warning_manager(
    void* messageContext, void* errorContext, kt_mem_context* memoryContext,
    ktWarningManagerContext* manager, kt_putsn_function outputFunction, void* outputData) {
  auto* context =
      static_cast<kt_warning_context*>(kt_mem_alloc(memoryContext, sizeof(kt_warning_context)));
  try {
    kt_initialize_warning_context_with_warning_manager(context, messageContext, errorContext,
                                                       memoryContext, manager, outputFunction,
                                                       outputData);
  } catch (...) {
    memoryContext->release(context);
    throw;
  }
  return context;
}

extern "C" void kt_clear_warning_context(kt_warning_context* context) {
  if (!context->ownsManager)
    return;
  ktDeleteWarningManager(context->manager);
  // Cleared for good: clearing again must not delete the manager twice.
  context->manager = nullptr;
  context->ownsManager = 0;
}

extern "C" void kt_delete_warning_context(kt_warning_context* context) {
  kt_clear_warning_context(context);
  try {
    kt_mem_free(context->memoryContext, context);
  } catch (...) {
    // Freeing is best effort: a failing release function must not take
    // the caller's teardown down with it.
  }
}

extern "C" ktWarningManagerContext* kt_wmgr_from_warning_context(kt_warning_context* context) {
  return context->manager;
}

extern "C" void kt_set_warning_status_id(kt_warning_context* context, const char* identifier,
                                         int status) {
  ktSetWarningStatus(context->manager, identifier, TranslateStatus(status));
}

extern "C" int kt_get_warning_status_id(kt_warning_context* context, const char* identifier) {
  return TranslateStatus(ktGetWarningStatus(context->manager, identifier));
}
