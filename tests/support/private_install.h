// The built vyrvip run as a program with a private installation: <dir>/inst
// is the install folder with the configuration under check in chkconf.xml
// (whose resource "good" is valid), <dir>/inst/var/check/vip.log the check
// log, <dir>/log the trace logs, and the settings in the environment. A
// test that needs namespaces calls SetUpNamespaces() as well.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "support/netns.h"
#include "support/sh.h"

namespace vyrtest {

inline const std::string kVyrvipBinary = VYR_BINARY_DIR "/src/vyrvip";

class PrivateInstall : public NetnsTest {
 protected:
  void SetUp() override { SetUpInstall(""); }

  // Derived SetUp()s call this first and return when IsSkipped() or
  // HasFatalFailure(); `more` goes into the cluster configuration's root.
  void SetUpInstall(const std::string& more) {
    if (::geteuid() != 0) GTEST_SKIP() << "vyrvip runs as root only";
    if (::access(kVyrvipBinary.c_str(), X_OK) != 0) GTEST_SKIP() << "no " << kVyrvipBinary;
    ASSERT_EQ(0, Sh("mkdir -p " + dir_ / "inst/var/check " + dir_ / "log"));
    WriteFile(chkconf_, ReadFile(VYR_TESTDATA_DIR "/chkconf/three_servers.xml"));
    WriteFile(dir_ / "cluster.xml",
              "<root><all><path>" + dir_ / "inst" +
                  "</path></all><cluster><check><rdrctpath>var/check/vip.log</rdrctpath>"
                  "<chkconf>chkconf.xml</chkconf></check></cluster>" +
                  more + "</root>\n");
  }

  TempDir dir_;
  const std::string chkconf_ = dir_ / "inst/chkconf.xml";
  const std::string check_ = dir_ / "inst/var/check/vip.log";
  const std::string trace_ = dir_ / "log/vip.log";
  ScopedEnv config_{"VYR_CONFIG", dir_ / "cluster.xml"};
  ScopedEnv policies_{"VYR_POLICY_DIR", VYR_SOURCE_DIR "/platform/policy"};
  ScopedEnv logs_{"VYR_LOG_DIR", dir_ / "log"};
  ScopedEnv run_{"VYR_RUN_DIR", dir_ / "run"};
};

}  // namespace vyrtest
