// The process runner: runs one shell command line through /bin/sh with its
// standard output and standard error captured in temporary files, for the
// load-failure diagnosis and the operating-system queries.
//
//     std::string out, err;
//     int status = bedrock::core::process::run("file -L -b " + shell_quote(path), out, err);
//
// Any text from outside (a path, a name) must go through shell_quote
// before it becomes part of a command line.
#ifndef KT_INTERNAL_PROCESS_RUNNER_H
#define KT_INTERNAL_PROCESS_RUNNER_H

#include <string>

namespace bedrock::core::process {

// Runs `command` (any shell text: a pipeline, a list; its every output
// is captured) and returns its exit status (128 + the signal number when
// a signal ended it), a non-zero posix_spawn error, or -1 when the
// temporary files cannot be made or the child cannot be waited for. The
// whole standard output and standard error are stored in `output` and
// `error`. The three temporary files ("/tmp/tmp.XXXXXX": the script and
// the two outputs) are removed on every path. Safe to call from several
// threads at once. Traced on the "util::posix" diagnostic channel (flag 4).
int run(const std::string& command, std::string& output, std::string& error);

// `word` quoted for /bin/sh: one single-quoted word in which nothing is
// interpreted (spaces, quotes, ';', '|', '$(...)', backquotes, newlines).
std::string shell_quote(const std::string& word);

}  // namespace bedrock::core::process

#endif  // KT_INTERNAL_PROCESS_RUNNER_H
