// A host program as the product starts one: its own basic-contexts record
// with a throw hook that turns raised errors into a C++ exception, a
// message table of its own module, an error raised and caught, a
// warning switched on, off and to error, and a virtual-machine context
// with a warning manager of its own.
#include <cstdio>
#include <stdexcept>
#include <string>

#include <kt/contexts.h>
#include <kt/vmcontext.h>

namespace {

// The host's exception, carrying what the throw hook receives.
class HostError : public std::runtime_error {
public:
  HostError(std::string identifier, int code, const std::string& text)
      : std::runtime_error(text), identifier_(std::move(identifier)), code_(code) {}
  const std::string& identifier() const { return identifier_; }
  int code() const { return code_; }

private:
  std::string identifier_;
  int code_;
};

int ThrowHostError(void*, const char* identifier, int code, const char* text) {
  throw HostError(identifier, code, text);
}

// Module 100 belongs to this host: one message with a string hole.
constexpr int kHostModule = 100;
const int kHostCodes[] = {(kHostModule << 16) + 1, -1};
const char* const kHostMnemonics[] = {"FILE_NOT_READABLE"};
const char* const kHostTexts[] = {"Cannot read the file \"%s\"."};
const kt_message_table kHostMessages = {1, kHostModule, kHostCodes, kHostMnemonics, kHostTexts,
                                        "host"};

const char* StatusName(int status) {
  return status == KT_WARNING_OFF ? "off" : status == KT_WARNING_ON ? "on" : "error";
}

}  // namespace

int main() {
  static ktBasicContexts record;
  if (ktInitializeBasicContexts(&record, ThrowHostError, nullptr) != 0) {
    std::fprintf(stderr, "cannot initialise: %s\n", record.errorText);
    return 1;
  }
  ktBasicContexts* previous = ktInstallBasicContexts(&record);
  std::printf("installed the host's record (previous: the library default)\n");

  kt_mem_add_primary_message_table(ktGetMemoryContext(), &kHostMessages);
  try {
    kt_error(ktGetErrorContext(), kHostCodes[0], "settings.ini");
  } catch (const HostError& e) {
    std::printf("caught %s (0x%X): %s\n", e.identifier().c_str(), e.code(), e.what());
  }

  kt_warning_context* warnings = ktGetWarningContext();
  const char* id = "Host:deprecatedOption";
  std::printf("warning %s starts %s\n", id, StatusName(kt_get_warning_status_id(warnings, id)));
  kt_set_warning_status_id(warnings, id, KT_WARNING_OFF);
  std::printf("  switched off: %s\n", StatusName(kt_get_warning_status_id(warnings, id)));
  kt_set_warning_status_id(warnings, "all", KT_WARNING_ON);
  std::printf("  then all on:  %s (the later setting wins)\n",
              StatusName(kt_get_warning_status_id(warnings, id)));
  kt_set_warning_status_id(warnings, id, KT_WARNING_ERROR);
  std::printf("  to error:     %s\n", StatusName(kt_get_warning_status_id(warnings, id)));

  // A virtual machine's own state lives in its context, seen by the
  // threads that entered it.
  kt_vm_context* vm = ktNewVmContext();
  ktEnterVmContext(vm);
  ktWarningManagerContext* vmWarnings = ktNewWarningManager(ktGetMemoryContext());
  ktSetWarningManagerContext(vmWarnings);
  std::printf("inside a virtual-machine context: its warning manager is %s\n",
              ktGetWarningManagerContextSafe() == vmWarnings ? "current" : "missing");
  ktLeaveVmContext();
  std::printf("outside it: %s\n", ktGetWarningManagerContextSafe() ? "still seen" : "none");
  ktDeleteWarningManager(vmWarnings);
  ktDeleteVmContext(vm);

  ktInstallBasicContexts(previous);
  ktClearBasicContexts(&record);
  std::printf("restored the previous record and cleared the host's own\n");
  return 0;
}
