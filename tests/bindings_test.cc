// The agent's bindings to the cluster tables and semaphore set, before and
// after the tables exist.
#include "vip/settings/bindings.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/ipc_env.h"
#include "support/trace_capture.h"
#include "vip/base/globals.h"
#include "vyripc.h"
#include "vyripc_admin.h"

namespace {

using Texts = std::vector<std::string>;

// Before the tables exist every attach fails with a warning and the run goes
// on, bound to nothing and storing nothing; once they exist each attach holds
// its object and the run's description is stored. The wrappers report
// nothing to their caller: what counts is what they leave bound and traced.
TEST(Bindings, AttachesFailCleanlyBeforeStartAndStoreTheDescriptionAfter) {
  vyrtest::IpcRunDir run;
  {
    vyrtest::TraceCapture trace;
    vip_shmrm_attach();
    vip_shmnm_attach();
    vip_sem_attach();
    vip_sem_entercrit_ifconfig();
    vip_shmrm_setdescript("vip1", "grp1");
    EXPECT_EQ((std::vector<int>{0, 0, 0, 0}),
              (std::vector<int>{shmrmflag, shmnmflag, semflag, sementifflag}));
    EXPECT_EQ((Texts{"shmrm_attach() failed. (ret=2)", "shmnm_attach() failed. (ret=2)",
                     "sem_attach() failed. (ret=2)"}),
              trace.Texts("WARN"));
  }
  int already = 0;
  ASSERT_EQ(0, vyripc_create(&already));
  vip_shmrm_attach();
  vip_shmnm_attach();
  vip_sem_attach();
  EXPECT_EQ((std::vector<int>{1, 1, 1}), (std::vector<int>{shmrmflag, shmnmflag, semflag}));
  vip_set_shmbuf("Internal error. (status=%d)", 9);
  vip_shmrm_setdescript("vip1", "grp1");
  char text[SHMRM_DESCRIPT_SIZE] = "";
  shmrm_getdescript("grp1", "vip", "vip1", text, sizeof text);
  EXPECT_STREQ("Internal error. (status=9)", text);
  vip_sem_detach();
  vip_shmnm_detach();
  vip_shmrm_detach();
  EXPECT_EQ((std::vector<int>{0, 0, 0}), (std::vector<int>{shmrmflag, shmnmflag, semflag}));
}

}  // namespace
