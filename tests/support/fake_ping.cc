#include "support/fake_ping.h"

#include <cstdio>
#include <sstream>

#include "common/shell.h"
#include "vip/globals.h"

namespace vyrtest {

namespace {

std::vector<std::string> ReadCalls(const std::string& path) {
  std::vector<std::string> calls;
  std::istringstream in(ReadFile(path));
  std::string line;
  while (std::getline(in, line)) calls.push_back(line);
  return calls;
}

std::string Script(const std::string& calls, const std::string& body) {
  return "#!/bin/sh\necho \"$*\" >> " + vyr::ShellQuote(calls) + "\n" + body + "\n";
}

}  // namespace

FakePingInstall::FakePingInstall(const std::string& dir_name)
    : install_(dir_ / dir_name),
      saved_inspath_(inspath),
      saved_actflag_(actflag),
      saved_ipv6flag_(ipv6flag) {
  Sh("mkdir -p " + vyr::ShellQuote(install_ + "/bin") + " " + vyr::ShellQuote(dir_ / "tools dir"));
  std::snprintf(inspath, sizeof inspath, "%s", install_.c_str());
  actflag = 0;
  ipv6flag = 0;
  vip_clear_shmbuf();
  std::snprintf(info_.rscname, sizeof info_.rscname, "vip1");
  std::snprintf(info_.addr, sizeof info_.addr, "192.0.2.5");
  std::snprintf(info_.pingcmd, sizeof info_.pingcmd, "bin/vyrping");
  info_.pingtout = 1;
  info_.pinginterval = 1;
  std::snprintf(info_.arpcmd, sizeof info_.arpcmd, "%s", arp_path().c_str());
}

FakePingInstall::~FakePingInstall() {
  std::snprintf(inspath, sizeof inspath, "%s", saved_inspath_.c_str());
  actflag = saved_actflag_;
  ipv6flag = saved_ipv6flag_;
  vip_clear_shmbuf();
}

void FakePingInstall::SetPing(const std::string& body) {
  WriteFile(ping_path(), Script(dir_ / "ping.calls", body), 0755);
}

void FakePingInstall::SetArp(const std::string& body) {
  WriteFile(arp_path(), Script(dir_ / "arp.calls", body), 0755);
}

void FakePingInstall::UseRealPing() {
  Sh("ln -sf " + vyr::ShellQuote(std::string(VYR_BINARY_DIR) + "/platform/vyrping/vyrping") + " " +
     vyr::ShellQuote(ping_path()));
}

std::vector<std::string> FakePingInstall::PingCalls() const {
  return ReadCalls(dir_ / "ping.calls");
}

std::vector<std::string> FakePingInstall::ArpCalls() const { return ReadCalls(dir_ / "arp.calls"); }

}  // namespace vyrtest
