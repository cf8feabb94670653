// Raising through an error context without the final process end: for
// errors that have an exit of their own when nobody takes them (an
// interrupt turns into InterruptException).
#ifndef KT_CONTEXTS_ERROR_RAISE_H
#define KT_CONTEXTS_ERROR_RAISE_H

#include <cstdarg>

#include "kt/errors.h"

namespace kt::internal {

// Steps 1-3 of a raise: offers the error to the catch frames (an accepting
// frame is unwound to, and this does not return), else prints it through
// the context's output and calls its error handler (which may throw). Then
// returns, where kt_verror_id would end the process.
void RaiseToFramesAndHandler(kt_error_context* context, const char* identifier, int code,
                             va_list args);

// The same with the identifier made from the message code.
void RaiseOrReturn(kt_error_context* context, int code, ...);

}  // namespace kt::internal

#endif  // KT_CONTEXTS_ERROR_RAISE_H
