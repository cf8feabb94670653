/*
 * Process information for the process-ending reports.
 */
#include <stdio.h>
#include <unistd.h>

#include "kt/logging.h"

namespace Quivera {
namespace System {

int CurrentProcessId()
{
    return static_cast<int>(getpid());
}

/* A stub on this platform, kept so on purpose: the reports then show an
   empty executable name, which their readers expect. */
int CurrentExecutableName(char* buffer, size_t size)
{
    (void)buffer;
    (void)size;
    return 0;
}

/* The text is the format itself (established behaviour: "%" in it starts
   a conversion), hence the silenced format-security warning. */
void DebuggerOutputString(const char* text)
{
    if (!text)
        return;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-security"
    fprintf(stderr, text);
#pragma GCC diagnostic pop
}

}  // namespace System
}  // namespace Quivera
