// The agent's bindings to the cluster tables and semaphore set, before and
// after the tables exist.
#include "vip/bindings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "support/ipc_env.h"
#include "support/trace_capture.h"
#include "vip/globals.h"
#include "vyripc.h"
#include "vyripc_admin.h"

namespace {

using Texts = std::vector<std::string>;

// Before the tables exist every attach fails with a warning and the run goes
// on, storing nothing; once they exist the run's description is stored and
// the section is left only after it was entered, so a stray leave can never
// let a second agent in.
TEST(Bindings, AttachesFailCleanlyBeforeStartAndPairTheSectionAfter) {
  vyrtest::IpcRunDir run;
  {
    vyrtest::TraceCapture trace;
    EXPECT_EQ(0, vip_shmrm_attach() + vip_shmnm_attach() + vip_sem_attach() +
                     vip_sem_entercrit_ifconfig() + vip_shmrm_setdescript("vip1", "grp1"));
    EXPECT_EQ(0, shmrmflag + shmnmflag + semflag + sementifflag);
    EXPECT_EQ((Texts{"shmrm_attach() failed. (ret=2)", "shmnm_attach() failed. (ret=2)",
                     "sem_attach() failed. (ret=2)"}),
              trace.Texts("WARN"));
  }
  int already = 0;
  ASSERT_EQ(0, vyripc_create(&already));
  vyrtest::TraceCapture trace;
  EXPECT_EQ(0, vip_shmrm_attach() + vip_shmnm_attach() + vip_sem_attach());
  vip_set_shmbuf("Internal error. (status=%d)", 9);
  vip_shmrm_setdescript("vip1", "grp1");
  vip_clear_shmbuf();
  char text[SHMRM_DESCRIPT_SIZE] = "";
  shmrm_getdescript("grp1", "vip", "vip1", text, sizeof text);
  EXPECT_STREQ("Internal error. (status=9)", text);
  vip_sem_leavecrit_ifconfig();
  vip_sem_entercrit_ifconfig();
  EXPECT_EQ(1, sementifflag);
  vip_sem_leavecrit_ifconfig();
  vip_sem_leavecrit_ifconfig();
  const Texts lines = trace.Texts("");
  EXPECT_EQ(1, std::ranges::count_if(lines, [](const std::string& l) {
              return l.find(" sem_leavecrit_ifconfig()") != std::string::npos;
            }));
  vip_sem_detach();
  vip_shmnm_detach();
  vip_shmrm_detach();
  EXPECT_EQ(0, shmrmflag + shmnmflag + semflag + sementifflag);
}

}  // namespace
