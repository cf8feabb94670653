// Ctrl-C for the long-running commands: SIGINT, through the library's
// handler wrapper, sets the library's pending-interrupt bit, and reads wait
// for data or for the signal, whichever comes first, so a read from a pipe
// that never ends still stops.
#ifndef KT_TOOL_CTRL_C_H
#define KT_TOOL_CTRL_C_H

#include <sys/types.h>

#include <cstddef>

namespace kttool {

// The exit status of a command stopped by Ctrl-C (128 + SIGINT).
constexpr int kInterruptedStatus = 130;

// Installs the SIGINT handler and keeps SIGINT blocked except while
// ReadOrInterrupt waits. Call once, on the main thread, before reading.
void CatchCtrlC();

// Reads up to `size` bytes from `fd`. Returns the count (0 at end of
// input), -1 with errno on a read error, or -1 with errno EINTR when
// Ctrl-C was pressed (then InterruptRequested() is true).
ssize_t ReadOrInterrupt(int fd, void* buffer, size_t size);

// Whether Ctrl-C was pressed; taking it clears the library's bit.
bool InterruptRequested();

}  // namespace kttool

#endif  // KT_TOOL_CTRL_C_H
