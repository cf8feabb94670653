// Test support for tests over the static archive: the diagnostic records,
// collected in a fresh file for the scope's lifetime.
#ifndef KT_TESTS_SUPPORT_DIAG_SINK_H
#define KT_TESTS_SUPPORT_DIAG_SINK_H

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "internal/diag.h"

namespace kttest {

class DiagSink {
public:
  // `masks`: a KT_DIAGNOSTICS text such as "util::dynload:all", switched
  // on for the scope and every channel off after it; empty leaves the
  // masks to the test.
  explicit DiagSink(const std::string& masks = std::string())
      : path_(::testing::TempDir() + "kt_diag_sink_" + std::to_string(getpid()) + ".log"),
        configured_(!masks.empty()) {
    std::remove(path_.c_str());
    EXPECT_TRUE(kt::internal::diag::SetSinkFile(path_));
    if (configured_) {
      EXPECT_TRUE(kt::internal::diag::Configure(masks));
    }
  }
  ~DiagSink() {
    if (configured_) kt::internal::diag::Configure("*:0");
    kt::internal::diag::SetSinkFile("");
    std::remove(path_.c_str());
  }
  DiagSink(const DiagSink&) = delete;
  DiagSink& operator=(const DiagSink&) = delete;

  std::vector<std::string> Lines() const {
    std::ifstream in(path_);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

private:
  std::string path_;
  bool configured_;
};

}  // namespace kttest

#endif  // KT_TESTS_SUPPORT_DIAG_SINK_H
