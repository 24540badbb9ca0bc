#include "support/sh.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <fstream>
#include <iterator>
#include <stdexcept>

namespace vyrtest {

int Sh(const std::string& cmd, std::string* out) {
  FILE* pipe = ::popen((cmd + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return -1;
  char buf[4096];
  std::string text;
  for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) text.append(buf, n);
  int status = ::pclose(pipe);
  if (out) *out = text;
  return status < 0 || !WIFEXITED(status) ? -1 : WEXITSTATUS(status);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteFile(const std::string& path, const std::string& text, int mode) {
  if (!(std::ofstream(path, std::ios::binary) << text))
    throw std::runtime_error("cannot write " + path);
  ::chmod(path.c_str(), static_cast<mode_t>(mode));
}

TempDir::TempDir() {
  char tmpl[] = "/tmp/vyrtest.XXXXXX";
  if (::mkdtemp(tmpl) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = tmpl;
}

TempDir::~TempDir() { Sh("rm -rf '" + path_ + "'"); }

ScopedEnv::ScopedEnv(const char* name, const std::string& value) : name_(name) {
  if (const char* old = ::getenv(name)) old_ = old;
  ::setenv(name, value.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
  old_ ? ::setenv(name_.c_str(), old_->c_str(), 1) : ::unsetenv(name_.c_str());
}

}  // namespace vyrtest
