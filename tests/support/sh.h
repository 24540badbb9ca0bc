// Small helpers for tests: shell commands, temporary folders, files.
#pragma once

#include <optional>
#include <string>

namespace vyrtest {

// Runs `cmd` through /bin/sh: its exit code (-1 when killed), stdout and stderr in *out.
int Sh(const std::string& cmd, std::string* out = nullptr);

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& text, int mode = 0644);

// A private folder under /tmp, removed with everything in it.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Sets an environment variable for the life of the object.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::optional<std::string> old_;
};

}  // namespace vyrtest
