// The exported controls of the diagnostic channels.
#include "kt/diagnostics.h"

#include "internal/diag.h"

namespace diag = kt::internal::diag;

extern "C" {

unsigned ktSetDiagnosticMask(const char* channel, unsigned mask) {
  if (channel == nullptr) return 0;
  return diag::GetChannel(channel).SetMask(mask);
}

unsigned ktGetDiagnosticMask(const char* channel) {
  if (channel == nullptr) return 0;
  return diag::GetChannel(channel).mask();
}

int ktSetFatalDiagnosticsEnabled(int on) { return diag::SetFatalDiagnosticsEnabled(on != 0); }

int ktFatalDiagnosticsEnabled(void) { return diag::FatalDiagnosticsEnabled() ? 1 : 0; }

}  // extern "C"
