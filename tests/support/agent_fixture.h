// End-to-end agent tests: the build installed into a private prefix with its
// own configuration, log and run folders (so tables and semaphore are its own).
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "support/netns.h"
#include "support/sh.h"

namespace vyrtest {

inline constexpr const char* kCommon =
    "<ping><path>bin/vyrping</path></ping><ifconfig><path>ifconfig</path></ifconfig>";

inline std::string Resource(const std::string& name, const std::string& params) {
  return "<vip name=\"" + name + "\"><parameters>" + params + "</parameters></vip>";
}

// Parameters of an address on va0, with `more` settings after it.
inline std::string OnVa0(const std::string& ip, const std::string& more = "") {
  return "<ip>" + ip + "</ip><ifname>va0</ifname>" + more;
}

// The agent's one-second waits (activation probe, ARP frames, deactivation's
// ping), off where a test does not look at them.
inline const std::string kNoProbe = "<ping><timeout>0</timeout></ping>";
inline const std::string kNoArp = "<arp><retry>0</retry></arp>";
inline const std::string kNoPingCheck = "<check><ping><execute>0</execute></ping></check>";
inline const std::string kQuiet = kNoProbe + kNoArp + kNoPingCheck;

inline bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

class ClusterEnv {
 public:
  ClusterEnv() { Sh("mkdir -p '" + dir_ / "log" + "' '" + dir_ / "run" + "'"); }
  ~ClusterEnv() { Ctl("stop"); }

  bool ok() const { return !prefix_.empty(); }
  const std::string& prefix() const { return prefix_; }
  const std::string& dir() const { return dir_.path(); }
  std::string config_path() const { return dir_ / "cluster.xml"; }
  std::string Log() const { return ReadFile(dir_ / "log/vip.log"); }

  // "VAR=value ..." for a command line, `SetExtraEnv`'s assignments last.
  std::string EnvAssignments() const {
    return "VYR_CONFIG='" + config_path() + "' VYR_POLICY_DIR='" + prefix_ +
           "/share/vyrcluster/policy' VYR_LOG_DIR='" + dir_ / "log" + "' VYR_RUN_DIR='" +
           dir_ / "run" + "' " + extra_env_;
  }
  void SetExtraEnv(const std::string& assignments) { extra_env_ = assignments; }

  // `resources` besides the common <vip>, whose parameters are `common`;
  // `more` goes into the root.
  void WriteConfig(const std::string& resources, const std::string& common = "", int log_level = 8,
                   const std::string& more = "") const {
    const std::string log =
        "<log><level>" + std::to_string(log_level) + "</level><size>10000000</size></log>";
    WriteFile(config_path(), "<root><all><path>" + prefix_ + "</path></all><vip>" + log + "</vip>" +
                                 more + "<resource><vip><parameters>" + common +
                                 "</parameters></vip>" + resources + "</resource></root>\n");
  }

  // vyrvip's command line with these settings behind `wrapper` (setpriv ...).
  std::string VyrvipLine(const std::string& args, const std::string& wrapper = "") const {
    return "env " + EnvAssignments() + " " + wrapper + " '" + prefix_ + "/bin/vyrvip' " + args;
  }

  int Ctl(const std::string& args, std::string* out = nullptr) const {
    return Sh("env " + EnvAssignments() + " '" + prefix_ + "/bin/vyrctl' " + args, out);
  }

  // Runs vyrvip inside the namespace `netns` ("" for none); with a `limit`
  // in seconds a run still going then is killed (exit status 137).
  int Vyrvip(const std::string& netns, const std::string& args, std::string* out = nullptr,
             int limit = 0, const std::string& wrapper = "") const {
    return Sh((netns.empty() ? "" : "ip netns exec " + netns + " ") +
                  (limit > 0 ? "timeout -s KILL " + std::to_string(limit) + " " : "") +
                  VyrvipLine(args, wrapper),
              out);
  }

 private:
  // The build tree, installed once per process.
  static const std::string& Installed() {
    static TempDir dir;
    static const std::string prefix =
        Sh("'" VYR_SOURCE_DIR "/scripts/install-private' '" VYR_BINARY_DIR "' '" + dir.path() + "'")
            ? ""
            : dir.path();
    return prefix;
  }

  std::string prefix_ = Installed();
  TempDir dir_;
  std::string extra_env_;
};

// The check mode's world, made anew for each test: the configuration under
// check (resource "good" is valid) and the check log, under the prefix.
// Namespaces only where a test calls SetUpNamespaces().
class CheckEnvTest : public NetnsTest {
 protected:
  void SetUp() override { SetUpCheck(""); }
  // Derived SetUp()s call this and return when HasFatalFailure(); `resources`
  // go into the running configuration.
  void SetUpCheck(const std::string& resources) {
    ASSERT_TRUE(env_.ok()) << "installing the build tree failed";
    ASSERT_EQ(0, Sh("rm -rf '" + env_.prefix() + "/var/check' && mkdir -p '" + env_.prefix() +
                    "/var/check'"));
    WriteFile(chkconf_, ReadFile(VYR_TESTDATA_DIR "/chkconf/three_servers.xml"));
    env_.WriteConfig(resources, "", 8,
                     "<cluster><check><rdrctpath>var/check/vip.log</rdrctpath>"
                     "<chkconf>chkconf.xml</chkconf></check></cluster>");
  }

  ClusterEnv env_;
  const std::string chkconf_ = env_.prefix() + "/chkconf.xml";
  const std::string check_ = env_.prefix() + "/var/check/vip.log";
  const std::string trace_ = env_.dir() + "/log/vip.log";
};

// One run of vyrvip and what the cluster sees afterwards (empty: unchecked).
struct Step {
  const char* setup = "";  // shell run first (see AgentE2E::RunSteps)
  const char* mode = "";   // the command line without the resource
  const char* rsc = "";    // the resource, of group "g"; none in manual mode
  std::string params{};    // its parameters, where this step brings it into the configuration
  int code = 0;            // the exit status
  const char* desc = "";   // the description `vyrctl status` shows
  const char* shown = "";  // `ip addr show dev va0` holds this afterwards
  const char* gone = "";   // ... and not this
  const char* log = "";    // the trace log of this run holds this
};

class AgentE2E : public NetnsTest {
 protected:
  void SetUp() override {
    SetUpNamespaces();
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_TRUE(env_.ok()) << "installing the build tree failed";
    ASSERT_EQ(0, pair_->AddAddresses());
    ASSERT_EQ(0, env_.Ctl("start"));
  }
  // What a failed test left running in the agent's namespace goes with it.
  void TearDown() override {
    if (pair_) Sh("for p in $(ip netns pids " + pair_->agent() + "); do kill -9 $p; done");
  }

  int Run(const std::string& args) const { return env_.Vyrvip(pair_->agent(), args); }

  // Writes one configuration with the steps' resources, then runs the steps
  // in order, each with `env` added. In a setup, $A and $P name the
  // namespaces, $D is the test folder, `ctl` runs vyrctl, `peer_has ADDR`
  // puts ADDR/24 on vb0 and `agent_has ADDR LABEL` on va0 under LABEL.
  // A step whose outcome differs is reported and the next one runs; a setup
  // that fails ends the table, since what follows would test another state.
  void RunSteps(const std::vector<Step>& steps, const std::string& env = "") {
    std::string resources;
    for (const Step& s : steps) resources += s.params.empty() ? "" : Resource(s.rsc, s.params);
    env_.WriteConfig(resources, kCommon);
    env_.SetExtraEnv(env);
    const std::string shell =
        "A=" + pair_->agent() + " P=" + pair_->peer() + " D=" + env_.dir() + "; ctl() { env " +
        env_.EnvAssignments() + " '" + env_.prefix() +
        "/bin/vyrctl' \"$@\"; }; peer_has() { ip -n " +
        "$P addr add $1/24 dev vb0; }; agent_has() { ip -n $A addr add $1/24 dev va0 label $2; }; ";
    for (size_t i = 0; i < steps.size(); ++i) {
      const Step& s = steps[i];
      SCOPED_TRACE("step " + std::to_string(i + 1) + ": " + s.mode + " " + s.rsc);
      ASSERT_EQ(0, Sh(shell + s.setup)) << "setup: " << s.setup;
      WriteFile(env_.dir() + "/log/vip.log", "");
      EXPECT_EQ(s.code, Run(s.mode + (s.rsc[0] ? std::string(" -r ") + s.rsc + " -g g" : "")))
          << env_.Log();
      if (s.desc[0]) {  // the stored description, as `vyrctl status` shows it
        std::string desc;
        env_.Ctl(std::string("status | sed -n 's/^g\tvip\t") + s.rsc + "\t//p'", &desc);
        EXPECT_EQ(s.desc + std::string("\n"), desc);
      }
      const std::string addrs = Addrs();
      EXPECT_TRUE(Contains(addrs, s.shown)) << s.shown << " in\n" << addrs;  // "" is in any text
      EXPECT_FALSE(s.gone[0] && Contains(addrs, s.gone)) << s.gone << " in\n" << addrs;
      EXPECT_TRUE(Contains(env_.Log(), s.log)) << s.log << " in\n" << env_.Log();
    }
  }

  ClusterEnv env_;
};

}  // namespace vyrtest
