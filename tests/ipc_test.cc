// The cluster IPC tables across real processes, the agent's bindings to them
// and the control tool.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "gtest/gtest.h"
#include "support/sh.h"
#include "support/trace_capture.h"
#include "vip/base/globals.h"
#include "vip/settings/bindings.h"
#include "vyripc.h"
#include "vyripc_admin.h"

namespace {

// A forked child running `body`; killed and reaped if still there at the end.
struct Child {
  pid_t pid;
  explicit Child(const std::function<int()>& body) : pid(::fork()) {
    if (pid == 0) ::_exit(body());
  }
  Child(Child&& other) noexcept : pid(std::exchange(other.pid, -1)) {}
  ~Child() {
    if (pid > 0) ::kill(pid, SIGKILL);
    Wait();
  }
  int Wait() {
    int status = 0;
    if (pid <= 0 || ::waitpid(std::exchange(pid, -1), &status, 0) <= 0) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
};

std::string Descript(const std::string& rsc) {
  char out[SHMRM_DESCRIPT_SIZE] = "";
  int ret = shmrm_getdescript("g", "vip", rsc.c_str(), out, sizeof out);
  return ret == 0 ? out : "error " + std::to_string(ret);
}

int Set(const std::string& rsc, const std::string& text) {
  return shmrm_setdescript("g", "vip", rsc.c_str(), text.c_str(), SHMRM_DESCRIPT_SIZE);
}

// VYR_RUN_DIR at a private folder; on the way out, also after a failure, every
// attach is undone and the folder's tables and semaphore set are removed.
struct IpcRunDir {
  vyrtest::TempDir dir;
  vyrtest::ScopedEnv env{"VYR_RUN_DIR", dir / "run"};
  ~IpcRunDir() {
    sem_leavecrit_ifconfig();
    while (sem_detach() == 0) continue;
    while (shmnm_detach() == 0) continue;
    while (shmrm_detach() == 0) continue;
    int removed = 0;
    vyripc_remove(&removed);
  }
};

// Writer `id` stores 60 + id copies of its letter: a mix shows in length or letter.
std::string WriterText(int id) {
  return std::string(static_cast<std::size_t>(60 + id), static_cast<char>('A' + id));
}
bool Whole(const std::string& t) {
  int id = t.empty() ? -1 : t[0] - 'A';
  return id >= 0 && id < 32 && t == WriterText(id);
}

// The writers go on past their 300 rounds until the reader has read the shared
// row 1000 times, so that on a busy machine the reads fall amid the writes.
TEST(Ipc, ThirtyTwoConcurrentWritersLeaveEveryRowWholeAndCorrect) {
  constexpr int kReads = 1000;
  IpcRunDir run;
  int already = -1;
  ASSERT_EQ(vyripc_create(&already), 0);
  // The writers start together once the reader is ready, and stop when it has read enough.
  const std::string go = run.dir / "go", stop = run.dir / "stop";
  std::vector<Child> writers;
  for (int id = 0; id < 32; ++id) {
    writers.emplace_back([id, &go, &stop] {
      const std::string own = "vip" + std::to_string(id);
      if (shmrm_attach() != 0) return 1;
      for (int waited = 0; ::access(go.c_str(), F_OK) != 0; waited += 5) {
        if (waited >= 10000) return 1;
        usleep(5000);
      }
      // The bound only ends a writer whose reader is gone.
      for (int round = 0; round < 300 || (round < 1000000 && ::access(stop.c_str(), F_OK) != 0);
           ++round) {
        if (Set("shared", WriterText(id)) != 0 || Set(own, WriterText(id)) != 0) return 2;
      }
      return Set(own, "writer " + std::to_string(id) + " done");
    });
  }
  ASSERT_EQ(shmrm_attach(), 0);
  ::close(::creat(go.c_str(), 0600));
  int reads = 0;
  std::string torn;
  // Until writer 31, the last started, is done; the bound only ends a failed run.
  for (int i = 0; i < 5000000 && Descript("vip31") != "writer 31 done"; ++i) {
    std::string text = Descript("shared");
    if (text != "error 4" && (++reads, !Whole(text))) torn = text;
    if (reads == kReads) ::close(::creat(stop.c_str(), 0600));
  }
  EXPECT_GE(reads, kReads) << "the writers stopped before the reads were done";
  EXPECT_EQ(torn, "") << "a torn description was read";
  for (int id = 0; id < 32; ++id) {
    EXPECT_EQ(writers[static_cast<std::size_t>(id)].Wait(), 0) << "writer " << id;
    EXPECT_EQ(Descript("vip" + std::to_string(id)), "writer " + std::to_string(id) + " done");
  }
}

// Before the tables exist every attach warns; the run goes on, storing nothing.
TEST(Bindings, AttachesFailCleanlyBeforeStart) {
  IpcRunDir run;
  vyrtest::TraceCapture trace;
  vip_shmrm_attach();
  vip_shmnm_attach();
  vip_sem_attach();
  vip_sem_entercrit_ifconfig();
  vip_shmrm_setdescript("vip1", "grp1");
  EXPECT_EQ((std::vector<int>{0, 0, 0, 0}),
            (std::vector<int>{shmrmflag, shmnmflag, semflag, sementifflag}));
  EXPECT_EQ(
      (std::vector<std::string>{"shmrm_attach() failed. (ret=2)", "shmnm_attach() failed. (ret=2)",
                                "sem_attach() failed. (ret=2)"}),
      trace.Texts("WARN"));
}

// Runs the built tool; its exit code, with what it printed in *out.
int Ctl(const std::string& args, std::string* out) {
  return vyrtest::Sh("{ " VYR_BINARY_DIR "/platform/vyrctl/vyrctl " + args + "; }", out);
}

// A wrong message or code in a run folder's life ('@'), an npsimu setting that
// misses the node table, or misuse that starts something or shows no usage.
TEST(Vyrctl, LifecycleMisuseAndNpsimu) {
  IpcRunDir run;
  const std::string usage = "usage: vyrctl start\n";  // the rest of the usage is not compared
  // Arguments, exit code, output, and the npsimu flag afterwards (-1: not checked).
  const std::tuple<const char*, int, std::string, int> cases[] = {
      {"bogus", 2, "vyrctl: unknown command 'bogus'\n" + usage, -1},
      {"start now", 2, "vyrctl: unexpected argument 'now'\n" + usage, -1},
      {"npsimu maybe", 2, "vyrctl: npsimu takes 'on' or 'off', not 'maybe'\n" + usage, -1},
      {"--help 2>/dev/null", 0, usage, -1},
      {"status", 3, "vyrctl: not started for @ (run 'vyrctl start')\n", -1},
      {"stop", 0, "vyrctl: not running for @, nothing to stop\n", -1},
      {"start", 0, "vyrctl: started for @\n", -1},
      {"start", 0, "vyrctl: already started for @\n", -1},
      {"npsimu on", 0, "vyrctl: npsimu on\n", 1},
      {"npsimu", 0, "on\n", -1},
      {"npsimu off", 0, "vyrctl: npsimu off\n", 0},
      {"stop", 0, "vyrctl: stopped for @\n", -1},
  };
  for (auto [args, code, want, flag] : cases) {
    std::string out;
    if (auto at = want.find('@'); at != std::string::npos) want.replace(at, 1, run.dir / "run");
    EXPECT_EQ(Ctl(args, &out), code) << args;
    EXPECT_EQ(want.ends_with(usage) ? out.substr(0, want.size()) : out, want) << args;
    int stored = -1;
    if (flag >= 0 && shmnm_attach() == 0) shmnm_getnpsimuflag(&stored);
    EXPECT_EQ(stored, flag) << args;
  }
  EXPECT_EQ(shmrm_attach(), SHMRM_ERR_NOTINIT) << "stop left the tables behind";
}

// Rows lost to a second start, texts that break the tab rows or the JSON, or
// rows with an empty name refused, merged or shown as something else.
TEST(Vyrctl, StatusShowsTheStoredRows) {
  IpcRunDir run;
  std::string out;
  ASSERT_EQ(Ctl("start", &out), 0);
  ASSERT_EQ(shmrm_attach(), 0);
  const char* const rows[][4] = {
      {"grp1", "vip", "vip1", "Success."},
      {"grp2", "vip", "vip1", "a\tb\"c\\d\ne\x01 \xc3\xa9 \xff"},
      {"grp1", "vip", "", "Option was invalid."},
      {"", "vip", "grp1", "Internal error. (status=9)"},
      {"-", "vip", "vip1", "-"},
  };
  for (const auto& r : rows) ASSERT_EQ(shmrm_setdescript(r[0], r[1], r[2], r[3], 128), 0) << r[3];
  ASSERT_EQ(Ctl("start", &out), 0);
  EXPECT_EQ(Ctl("status", &out), 0);
  EXPECT_EQ(out,
            "grp1\tvip\tvip1\tSuccess.\n"
            "grp2\tvip\tvip1\ta\\tb\"c\\\\d\\ne\x01 \xc3\xa9 \xff\n"
            "grp1\tvip\t-\tOption was invalid.\n"
            "-\tvip\tgrp1\tInternal error. (status=9)\n"
            "\\-\tvip\tvip1\t\\-\n");
  EXPECT_EQ(Ctl("status --json", &out), 0);
  const auto json = [](const std::string& group, const std::string& rsc, const std::string& desc) {
    return "{\"group\": \"" + group + "\", \"type\": \"vip\", \"resource\": \"" + rsc +
           "\", \"description\": \"" + desc + "\"}";
  };
  EXPECT_EQ(out, "[\n  " + json("grp1", "vip1", "Success.") + ",\n  " +
                     json("grp2", "vip1", "a\\tb\\\"c\\\\d\\ne\\u0001 \xc3\xa9 \\ufffd") + ",\n  " +
                     json("grp1", "", "Option was invalid.") + ",\n  " +
                     json("", "grp1", "Internal error. (status=9)") + ",\n  " +
                     json("-", "vip1", "-") + "\n]\n");
  // A name too long for its field is refused, not cut into another row's key.
  EXPECT_EQ(shmrm_setdescript(std::string(64, 'g').c_str(), "vip", "", "x", 128),
            SHMRM_ERR_INVALIDPARAM);
  EXPECT_EQ(shmrm_setdescript(nullptr, "vip", "", "x", 128), SHMRM_ERR_INVALIDPARAM);
}

}  // namespace
