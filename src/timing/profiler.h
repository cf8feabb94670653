// The profiler record's pieces that the event steps share.
#ifndef KT_TIMING_PROFILER_H
#define KT_TIMING_PROFILER_H

#include <cstdarg>

#include "kt/errors.h"

namespace kt::internal {

// The catch function of every profiler frame: OUT_OF_MEMORY clears the
// profile and prints why (ktProfHandleMemoryFailure), any other error
// clears it. Returns 0 always, so the error goes on to the outer frames.
// `data` points at the frame's arguments, which start with the ktProfiler*
// (or is null).
int CatchProfilerError(kt_error_context* context, void* data, int code, va_list args);

}  // namespace kt::internal

#endif  // KT_TIMING_PROFILER_H
