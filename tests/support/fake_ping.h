// A private install folder for probing tests: bin/vyrping and an arp
// command are real shell scripts that the test writes, and every run of
// them is recorded. While the object lives, the agent's inspath points at
// the folder and the run flags are the test's own; all are restored after.
#pragma once

#include <string>
#include <vector>

#include "support/sh.h"
#include "vip/vip_info.h"

namespace vyrtest {

class FakePingInstall {
 public:
  // `dir_name`, when given, is the install folder's name inside the
  // temporary folder (to test names that need quoting).
  explicit FakePingInstall(const std::string& dir_name = "install");
  ~FakePingInstall();
  FakePingInstall(const FakePingInstall&) = delete;
  FakePingInstall& operator=(const FakePingInstall&) = delete;

  // bin/vyrping: records its arguments, then runs `body`.
  void SetPing(const std::string& body);
  // The neighbour-table command: records its arguments, then runs `body`.
  void SetArp(const std::string& body);
  // Makes bin/vyrping a link to the real command of the build tree.
  void UseRealPing();

  // The arguments of every run so far, one entry per run.
  std::vector<std::string> PingCalls() const;
  std::vector<std::string> ArpCalls() const;

  const std::string& install_dir() const { return install_; }
  std::string ping_path() const { return install_ + "/bin/vyrping"; }
  std::string arp_path() const { return dir_ / "tools dir/arp"; }
  const std::string& scratch() const { return dir_.path(); }

  // A settings record that uses the fakes: pingcmd "bin/vyrping",
  // pingtout 1, no retries, the fake arp.
  VIP_INFO& info() { return info_; }

 private:
  TempDir dir_;
  std::string install_;
  VIP_INFO info_{};
  std::string saved_inspath_;
  int saved_actflag_;
  int saved_ipv6flag_;
};

}  // namespace vyrtest
