// The agent's bindings to the cluster tables and semaphore set: what the
// counters say, what reaches the resource table and what the trace log shows.
#include "vip/bindings.h"

#include <string>

#include "gtest/gtest.h"
#include "support/ipc_env.h"
#include "support/log_lines.h"
#include "support/sh.h"
#include "tracersc/tracersc.h"
#include "vip/globals.h"
#include "vyripc.h"
#include "vyripc_admin.h"

namespace {

class Bindings : public ::testing::Test {
 protected:
  void SetUp() override {
    TearDown();
    traceopen("vip", TRACE_DETAIL, 0, nullptr);
  }
  void TearDown() override {
    traceclose();
    shmrmflag = shmnmflag = semflag = sementifflag = 0;
    vip_clear_shmbuf();
  }
  void Start() {
    int already = 0;
    ASSERT_EQ(vyripc_create(&already), 0);
  }
  // Lines of the bindings at `level` written by `func` with this text.
  int Count(const std::string& level, const std::string& func, const std::string& text) {
    int n = 0;
    for (const auto& l : vyrtest::ReadLogLines(logs_ / "vip.log")) {
      n += l.level == level && l.file == "src/vip/bindings.cc" && l.func == func && l.text == text;
    }
    return n;
  }
  // Lines that report a call of the library function `call`.
  int CallLines(const std::string& call) {
    int n = 0;
    for (const auto& l : vyrtest::ReadLogLines(logs_ / "vip.log"))
      n += l.text.rfind(call + "()", 0) == 0;
    return n;
  }
  std::string Stored() {
    char text[SHMRM_DESCRIPT_SIZE] = "<none>";
    shmrm_getdescript("grp1", "vip", "vip1", text, sizeof text);
    return text;
  }

  vyrtest::IpcRunDir run_;
  vyrtest::TempDir logs_;
  vyrtest::ScopedEnv log_env_{"VYR_LOG_DIR", logs_.path()};
};

TEST_F(Bindings, WithoutTablesTheRunGoesOnAndSkipsEveryLaterCall) {
  EXPECT_EQ(vip_shmrm_attach() + vip_shmnm_attach() + vip_sem_attach(), 0);
  EXPECT_EQ(shmrmflag + shmnmflag + semflag, 0);
  for (const char* call : {"shmrm_attach", "shmnm_attach", "sem_attach"}) {
    const std::string wrapper = std::string("vip_") + call;
    EXPECT_EQ(Count("WARN", wrapper, std::string(call) + "() failed. (ret=2)"), 1) << call;
  }

  EXPECT_EQ(vip_shmrm_setdescript("vip1", "grp1"), 0);
  char shmbuf[VIP_SHMBUF_LEN];
  vip_get_shmbuf(shmbuf);
  EXPECT_STREQ(shmbuf, "") << "no table: nothing is stored, not even Success.";
  int npsimu = 5;
  EXPECT_EQ(vip_shmnm_getnpsimuflag(&npsimu), 0);
  EXPECT_EQ(npsimu, 5);
  EXPECT_EQ(vip_sem_entercrit_ifconfig(), 0);
  EXPECT_EQ(sementifflag, 0);
  EXPECT_EQ(
      vip_sem_leavecrit_ifconfig() + vip_sem_detach() + vip_shmnm_detach() + vip_shmrm_detach(), 0);
  // Each skipped wrapper traces its entry and nothing else.
  for (const char* call :
       {"shmrm_setdescript", "shmnm_getnpsimuflag", "sem_entercrit_ifconfig",
        "sem_leavecrit_ifconfig", "sem_detach", "shmnm_detach", "shmrm_detach"}) {
    const std::string wrapper = std::string("vip_") + call;
    EXPECT_EQ(Count("DETAIL", wrapper, wrapper + "()  ENTRY..."), 1) << call;
    EXPECT_EQ(CallLines(call), 0) << call;
  }
}

TEST_F(Bindings, AttachedRunStoresItsDescriptionAndPairsTheSection) {
  Start();
  vip_shmrm_attach();
  vip_shmnm_attach();
  vip_sem_attach();
  EXPECT_EQ(shmrmflag + shmnmflag + semflag, 3);
  EXPECT_EQ(Count("DETAIL", "vip_shmrm_attach", "shmrm_attach() succeeded."), 1);

  // A run that wrote nothing stores "Success."; a failure text replaces it.
  EXPECT_EQ(vip_shmrm_setdescript("vip1", "grp1"), 0);
  EXPECT_EQ(Stored(), "Success.");
  vip_set_shmbuf("Internal error. (status=%d)", 99);
  vip_shmrm_setdescript("vip1", "grp1");
  EXPECT_EQ(Stored(), "Internal error. (status=99)");

  ASSERT_EQ(shmnm_setnpsimuflag(1), 0);
  int npsimu = 0;
  EXPECT_EQ(vip_shmnm_getnpsimuflag(&npsimu), 0);
  EXPECT_EQ(npsimu, 1);

  // Leaving without entering, or twice, does not call the library.
  vip_sem_leavecrit_ifconfig();
  EXPECT_EQ(CallLines("sem_leavecrit_ifconfig"), 0);
  for (int round = 1; round <= 2; ++round) {
    vip_sem_entercrit_ifconfig();
    EXPECT_EQ(sementifflag, 1) << "the section is free again in round " << round;
    vip_sem_leavecrit_ifconfig();
    vip_sem_leavecrit_ifconfig();
    EXPECT_EQ(sementifflag, 0);
    EXPECT_EQ(CallLines("sem_leavecrit_ifconfig"), round);
  }

  // A second shutdown finds nothing attached and calls nothing.
  for (int i = 0; i < 2; ++i) {
    vip_sem_detach();
    vip_shmnm_detach();
    vip_shmrm_detach();
    EXPECT_EQ(shmrmflag + shmnmflag + semflag, 0);
  }
  for (const char* call : {"sem_detach", "shmnm_detach", "shmrm_detach"}) {
    EXPECT_EQ(CallLines(call), 1) << call;
  }
}

TEST_F(Bindings, LibraryFailuresAreWarningsAndTheRunGoesOn) {
  Start();
  vip_shmrm_attach();
  vip_sem_attach();
  // The cluster's objects vanish under the running agent.
  int removed = 0;
  ASSERT_EQ(vyripc_remove(&removed), 0);
  EXPECT_EQ(vip_sem_entercrit_ifconfig(), 0);
  EXPECT_EQ(sementifflag, 0);
  EXPECT_EQ(
      Count("WARN", "vip_sem_entercrit_ifconfig",
            "sem_entercrit_ifconfig() failed. (ret=" + std::to_string(VYRIPC_ERR_SEMOP) + ")"),
      1);
  EXPECT_EQ(vip_sem_leavecrit_ifconfig(), 0);
  EXPECT_EQ(CallLines("sem_leavecrit_ifconfig"), 0) << "the leave of a failed enter is skipped";
  EXPECT_EQ(vip_shmrm_setdescript("vip1", "grp1"), 0);
  EXPECT_EQ(Count("WARN", "vip_shmrm_setdescript", "shmrm_setdescript() failed. (ret=10)"), 1);
}

}  // namespace
