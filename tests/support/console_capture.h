// Test support: captures everything printed through the console output
// hook while in scope and puts the previous hook back afterwards.
#ifndef KT_TESTS_SUPPORT_CONSOLE_CAPTURE_H
#define KT_TESTS_SUPPORT_CONSOLE_CAPTURE_H

#include <string>

#include "kt/output.h"

namespace kttest {

class ConsoleCapture {
public:
  explicit ConsoleCapture(ktPrintfHotFunction hot = nullptr) {
    ktGetVprintfCallbacks(&oldOutput_, &oldData_, &oldHot_);
    ktSetVprintfCallbacks(Hook, this, hot);
  }
  ~ConsoleCapture() { ktSetVprintfCallbacks(oldOutput_, oldData_, oldHot_); }
  ConsoleCapture(const ConsoleCapture&) = delete;
  ConsoleCapture& operator=(const ConsoleCapture&) = delete;

  std::string text;  // everything printed, in order
  int calls = 0;     // pieces handed to the hook
  int result = 0;    // what the hook returns

  // The installed output function; its data is the capture itself.
  static int Hook(const char* piece, void* data) {
    auto* self = static_cast<ConsoleCapture*>(data);
    self->text += piece;
    ++self->calls;
    return self->result;
  }

private:
  ktVprintfFunction oldOutput_;
  void* oldData_;
  ktPrintfHotFunction oldHot_;
};

}  // namespace kttest

#endif  // KT_TESTS_SUPPORT_CONSOLE_CAPTURE_H
