// The process runner: a script and two output files under /tmp, /bin/sh
// started with posix_spawn, and the outputs read back.
#include "internal/process_runner.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>

#include "internal/diag.h"

extern char** environ;

namespace bedrock::core::process {

namespace {

constexpr uint32_t kTrace = 4;

kt::internal::diag::Channel& Log() {
  static kt::internal::diag::Channel& channel = kt::internal::diag::GetChannel("util::posix");
  return channel;
}

void Trace(const std::string& text) {
  Log().Write(kTrace, "posix", __LINE__, "int bedrock::core::process::run(...)", text);
}

// One temporary file: made with mkstemp, closed and unlinked when the
// object goes away, whatever happened in between.
class TempFile {
public:
  TempFile() : name_("/tmp/tmp.XXXXXX") { fd_ = mkstemp(&name_[0]); }
  ~TempFile() {
    if (fd_ < 0) return;
    close(fd_);
    unlink(name_.c_str());
  }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  bool ok() const { return fd_ >= 0; }
  const std::string& name() const { return name_; }
  bool Write(const std::string& text) const {
    return ::write(fd_, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  }
  std::string ReadAll() const {
    std::ifstream in(name_, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

private:
  std::string name_;
  int fd_ = -1;
};

int DecodeStatus(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

// Step 3-4: starts /bin/sh on the script and waits for it.
int SpawnAndWait(const std::string& script) {
  const char* argv[] = {"/bin/sh", script.c_str(), nullptr};
  pid_t pid = 0;
  int spawned = posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ);
  if (spawned != 0) {
    Trace(" posix_spawn_error=" + std::to_string(spawned));
    return spawned;
  }
  int status = 0;
  pid_t waited;
  do {
    waited = waitpid(pid, &status, 0);
  } while (waited < 0 && errno == EINTR);
  if (waited < 0) {
    Trace(std::string(" waitpid_error=") + std::strerror(errno));
    return -1;
  }
  int rt = DecodeStatus(status);
  Trace(" argv[0]=/bin/sh argv[1]=" + script + " pid=" + std::to_string(pid) +
        " rt=" + std::to_string(rt));
  return rt;
}

}  // namespace

int run(const std::string& command, std::string& output, std::string& error) {
  output.clear();
  error.clear();
  // Step 1: the script and the two output files.
  TempFile script, out, err;
  if (!script.ok() || !out.ok() || !err.ok()) return -1;
  // Step 2: the script redirects the outputs into the files. The command is
  // grouped so that every stage of a pipeline is captured and nothing of
  // the child reaches the host's own standard error.
  if (!script.Write("#!/bin/sh\n{\n" + command + "\n} 1>" + out.name() + " 2>" + err.name() + "\n"))
    return -1;
  int rt = SpawnAndWait(script.name());
  // Step 5: both outputs, whole; the files go with the TempFile objects.
  output = out.ReadAll();
  error = err.ReadAll();
  if (Log().Enabled(kTrace)) {
    Trace(" cmd=" + command + " stdout=" + output + " stderr=" + error);
    if (rt != 0) Trace("Command failed!");
  }
  return rt;
}

std::string shell_quote(const std::string& word) {
  std::string quoted = "'";
  for (char c : word) {
    if (c == '\'')
      quoted += "'\\''";  // close, an escaped quote, reopen
    else
      quoted += c;
  }
  return quoted + "'";
}

}  // namespace bedrock::core::process
