// An installed cluster for end-to-end tests: the built programs installed
// into a private prefix, a private configuration, log folder and run folder
// (so the shared tables and the semaphore are the test's own), and helpers
// to run vyrvip inside a test namespace.
#pragma once

#include <map>
#include <string>

#include "support/sh.h"

namespace vyrtest {

// Installs the build tree once per process into a private prefix and
// returns it ("" when the install failed; the reason goes to *why).
const std::string& InstalledPrefix(std::string* why = nullptr);

class ClusterEnv {
 public:
  ClusterEnv();
  ~ClusterEnv();  // stops the tables if they were started
  ClusterEnv(const ClusterEnv&) = delete;
  ClusterEnv& operator=(const ClusterEnv&) = delete;

  bool ok() const { return !prefix_.empty(); }
  const std::string& prefix() const { return prefix_; }
  const std::string& dir() const { return dir_.path(); }
  std::string config_path() const { return dir_ / "cluster.xml"; }
  std::string log_path() const { return dir_ / "log/vip.log"; }

  // "VAR=value ..." for a command line.
  std::string EnvAssignments() const;
  // More assignments for every later run (for example a PATH with a fake tool).
  void SetExtraEnv(const std::string& assignments) { extra_env_ = assignments; }

  // Writes the running configuration. `resources` is the XML of the
  // <resource> children besides the common <vip> element; `common` the
  // children of the common parameters.
  void WriteConfig(const std::string& resources, const std::string& common = "",
                   int log_level = 8) const;

  // vyrctl with the private run folder. Returns its exit code.
  int Ctl(const std::string& args, std::string* out = nullptr);

  // The stored description of (group, vip, resource), or "" when none.
  std::string Description(const std::string& group, const std::string& rsc);

  // Runs vyrvip with `args` inside the namespace `netns` ("" for none).
  int Vyrvip(const std::string& netns, const std::string& args, std::string* out = nullptr) const;

  std::string Log() const { return ReadFile(log_path()); }

 private:
  std::string prefix_;
  TempDir dir_;
  bool started_ = false;
  std::string extra_env_;
};

}  // namespace vyrtest
