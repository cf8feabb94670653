// The inputs of the streaming commands (files, or standard input for "-"),
// read so that Ctrl-C stops them: SIGINT, through the library's handler
// wrapper, sets the library's pending-interrupt bit, and reads wait for data
// or for the signal, whichever comes first, so a read from a pipe that
// never ends still stops.
#ifndef KT_TOOL_INPUT_H
#define KT_TOOL_INPUT_H

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

// Opens the named input ("-" is standard input) for reading; -1 after
// complaining on standard error. CloseInput leaves standard input open.
int OpenInput(const char* name);
void CloseInput(int fd);

// How an input is named in messages: its name, or "standard input".
const char* InputName(const char* name);

}  // namespace kttool

#endif  // KT_TOOL_INPUT_H
