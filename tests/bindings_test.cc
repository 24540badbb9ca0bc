// The agent's bindings to the cluster tables and semaphore set: what the
// counters say, what reaches the resource table and what the trace log shows.
#include "vip/bindings.h"

#include <sstream>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "support/ipc_env.h"
#include "support/sh.h"
#include "tracersc/tracersc.h"
#include "vip/globals.h"
#include "vyripc.h"
#include "vyripc_admin.h"

namespace {

class Bindings : public ::testing::Test {
 protected:
  void SetUp() override {
    ResetCounters();
    vip_clear_shmbuf();
    traceopen("vip", TRACE_DETAIL, 0, nullptr);
  }
  void TearDown() override {
    traceclose();
    ResetCounters();
    vip_clear_shmbuf();
  }
  static void ResetCounters() { shmrmflag = shmnmflag = semflag = sementifflag = 0; }

  void Start() {
    int already = 0;
    ASSERT_EQ(vyripc_create(&already), 0);
  }

  std::vector<std::string> LogLines() {
    std::vector<std::string> lines;
    std::istringstream in(vyrtest::ReadFile(logs_ / "vip.log"));
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
  }

  // Lines of the bindings written by `func` at `level` whose text is `text`.
  int Count(const std::string& level, const std::string& func, const std::string& text) {
    const std::string where = " " + level + " src/vip/bindings.cc:";
    const std::string tail = " " + func + ": " + text;
    int n = 0;
    for (const std::string& line : LogLines()) {
      if (line.find(where) != std::string::npos && line.size() >= tail.size() &&
          line.compare(line.size() - tail.size(), tail.size(), tail) == 0) {
        ++n;
      }
    }
    return n;
  }

  // Lines that mention `call` other than the wrappers' entry lines.
  int CallLines(const std::string& call) {
    int n = 0;
    for (const std::string& line : LogLines()) {
      if (line.find(": " + call + "()") != std::string::npos) ++n;
    }
    return n;
  }

  std::string Shmbuf() {
    char text[VIP_SHMBUF_LEN];
    vip_get_shmbuf(text);
    return text;
  }

  vyrtest::IpcRunDir run_;
  vyrtest::TempDir logs_;
  vyrtest::ScopedEnv log_env_{"VYR_LOG_DIR", logs_.path()};
};

TEST_F(Bindings, WithoutTablesTheRunGoesOnAndSkipsEveryLaterCall) {
  EXPECT_EQ(vip_shmrm_attach(), 0);
  EXPECT_EQ(vip_shmnm_attach(), 0);
  EXPECT_EQ(vip_sem_attach(), 0);
  EXPECT_EQ(shmrmflag + shmnmflag + semflag, 0);
  EXPECT_EQ(Count("WARN", "vip_shmrm_attach", "shmrm_attach() failed. (ret=2)"), 1);
  EXPECT_EQ(Count("WARN", "vip_shmnm_attach", "shmnm_attach() failed. (ret=2)"), 1);
  EXPECT_EQ(Count("WARN", "vip_sem_attach", "sem_attach() failed. (ret=2)"), 1);

  EXPECT_EQ(vip_shmrm_setdescript("vip1", "grp1"), 0);
  EXPECT_EQ(Shmbuf(), "") << "no table: nothing is stored, not even Success.";
  int npsimu = 5;
  EXPECT_EQ(vip_shmnm_getnpsimuflag(&npsimu), 0);
  EXPECT_EQ(npsimu, 5);
  EXPECT_EQ(vip_sem_entercrit_ifconfig(), 0);
  EXPECT_EQ(sementifflag, 0);
  EXPECT_EQ(vip_sem_leavecrit_ifconfig(), 0);
  EXPECT_EQ(vip_sem_detach(), 0);
  EXPECT_EQ(vip_shmnm_detach(), 0);
  EXPECT_EQ(vip_shmrm_detach(), 0);

  // Each skipped wrapper traces its entry and nothing else.
  for (const char* call :
       {"shmrm_setdescript", "shmnm_getnpsimuflag", "sem_entercrit_ifconfig",
        "sem_leavecrit_ifconfig", "sem_detach", "shmnm_detach", "shmrm_detach"}) {
    std::string wrapper = std::string("vip_") + call;
    EXPECT_EQ(Count("DETAIL", wrapper, wrapper + "()  ENTRY..."), 1) << call;
    EXPECT_EQ(CallLines(call), 0) << call;
  }
}

TEST_F(Bindings, AttachedRunStoresItsDescription) {
  Start();
  vip_shmrm_attach();
  vip_shmnm_attach();
  vip_sem_attach();
  EXPECT_EQ(shmrmflag, 1);
  EXPECT_EQ(shmnmflag, 1);
  EXPECT_EQ(semflag, 1);
  EXPECT_EQ(Count("DETAIL", "vip_shmrm_attach", "shmrm_attach() succeeded."), 1);
  EXPECT_EQ(Count("DETAIL", "vip_shmnm_attach", "shmnm_attach() succeeded."), 1);
  EXPECT_EQ(Count("DETAIL", "vip_sem_attach", "sem_attach() succeeded."), 1);

  // A run that wrote nothing stores "Success.".
  EXPECT_EQ(vip_shmrm_setdescript("vip1", "grp1"), 0);
  EXPECT_EQ(Shmbuf(), "Success.");
  char stored[SHMRM_DESCRIPT_SIZE] = "";
  ASSERT_EQ(shmrm_getdescript("grp1", "vip", "vip1", stored, sizeof stored), 0);
  EXPECT_STREQ(stored, "Success.");
  EXPECT_EQ(Count("DETAIL", "vip_shmrm_setdescript", "shmrm_setdescript() succeeded."), 1);

  // A failure text replaces it.
  vip_set_shmbuf("Internal error. (status=%d)", 99);
  vip_shmrm_setdescript("vip1", "grp1");
  ASSERT_EQ(shmrm_getdescript("grp1", "vip", "vip1", stored, sizeof stored), 0);
  EXPECT_STREQ(stored, "Internal error. (status=99)");

  ASSERT_EQ(shmnm_setnpsimuflag(1), 0);
  int npsimu = 0;
  EXPECT_EQ(vip_shmnm_getnpsimuflag(&npsimu), 0);
  EXPECT_EQ(npsimu, 1);
  EXPECT_EQ(Count("DETAIL", "vip_shmnm_getnpsimuflag", "shmnm_getnpsimuflag() succeeded."), 1);

  vip_sem_detach();
  vip_shmnm_detach();
  vip_shmrm_detach();
  EXPECT_EQ(shmrmflag + shmnmflag + semflag, 0);
  // A second shutdown finds nothing attached and calls nothing.
  vip_sem_detach();
  vip_shmnm_detach();
  vip_shmrm_detach();
  EXPECT_EQ(CallLines("sem_detach"), 1);
  EXPECT_EQ(CallLines("shmnm_detach"), 1);
  EXPECT_EQ(CallLines("shmrm_detach"), 1);
  EXPECT_EQ(Count("DETAIL", "vip_shmrm_detach", "shmrm_detach() succeeded."), 1);
}

TEST_F(Bindings, LeavingWithoutEnteringDoesNotCallTheLibrary) {
  Start();
  vip_sem_attach();
  ASSERT_EQ(semflag, 1);
  vip_sem_leavecrit_ifconfig();
  EXPECT_EQ(CallLines("sem_leavecrit_ifconfig"), 0);

  vip_sem_entercrit_ifconfig();
  EXPECT_EQ(sementifflag, 1);
  EXPECT_EQ(Count("DETAIL", "vip_sem_entercrit_ifconfig", "sem_entercrit_ifconfig() succeeded."),
            1);
  vip_sem_leavecrit_ifconfig();
  vip_sem_leavecrit_ifconfig();
  EXPECT_EQ(sementifflag, 0);
  EXPECT_EQ(Count("DETAIL", "vip_sem_leavecrit_ifconfig", "sem_leavecrit_ifconfig() succeeded."),
            1);
  EXPECT_EQ(CallLines("sem_leavecrit_ifconfig"), 1);
  // The section is free again: entering a second time works.
  vip_sem_entercrit_ifconfig();
  EXPECT_EQ(sementifflag, 1);
  vip_sem_leavecrit_ifconfig();
  EXPECT_EQ(sementifflag, 0);
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
