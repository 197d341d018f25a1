// Standard output (fd 1, and stdio through it) redirected into a temp file.
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "harness.h"

namespace plyth_test {

StdoutCapture::StdoutCapture() {
  char pattern[] = "/tmp/plyth-stdout-XXXXXX";
  tempFd_ = mkstemp(pattern);
  if (tempFd_ < 0) {
    ADD_FAILURE() << "mkstemp failed";
    return;
  }
  unlink(pattern);
  fflush(stdout);
  savedFd_ = dup(STDOUT_FILENO);
  dup2(tempFd_, STDOUT_FILENO);
  active_ = true;
}

StdoutCapture::~StdoutCapture() {
  if (active_) Take();
}

std::string StdoutCapture::Take() {
  if (!active_) return std::string();
  fflush(stdout);
  dup2(savedFd_, STDOUT_FILENO);
  close(savedFd_);
  savedFd_ = -1;
  active_ = false;

  std::string bytes;
  lseek(tempFd_, 0, SEEK_SET);
  char buffer[4096];
  for (ssize_t n; (n = read(tempFd_, buffer, sizeof(buffer))) > 0;) bytes.append(buffer, n);
  close(tempFd_);
  tempFd_ = -1;
  return bytes;
}

}  // namespace plyth_test
