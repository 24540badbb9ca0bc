// The cluster IPC library across real processes: whole descriptions under
// concurrent writers. (A holder of the interface-change critical section
// killed inside it: stress_faults_test.)
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "gtest/gtest.h"
#include "support/ipc_env.h"
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
  // Its exit code, or -1 when it did not exit normally.
  int Wait() {
    int status = 0;
    if (pid <= 0 || ::waitpid(std::exchange(pid, -1), &status, 0) <= 0) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
};

// True once `path` exists, checked every 5 ms for up to `ms`.
bool Appears(const std::string& path, int ms) {
  for (int waited = 0; waited < ms && ::access(path.c_str(), F_OK) != 0; waited += 5) usleep(5000);
  return ::access(path.c_str(), F_OK) == 0;
}

std::string Descript(const std::string& rsc) {
  char out[SHMRM_DESCRIPT_SIZE] = "";
  int ret = shmrm_getdescript("g", "vip", rsc.c_str(), out, sizeof out);
  return ret == 0 ? out : "error " + std::to_string(ret);
}

int Set(const std::string& rsc, const std::string& text) {
  return shmrm_setdescript("g", "vip", rsc.c_str(), text.c_str(), SHMRM_DESCRIPT_SIZE);
}

// A private run folder with its tables started.
struct StartedRunDir : vyrtest::IpcRunDir {
  StartedRunDir() { EXPECT_EQ(vyripc_create(&already), 0); }
  int already = -1;
};

// Writer `id` stores 60 + id copies of its own letter, so a mix of two
// writes shows as a wrong length or a foreign letter.
std::string WriterText(int id) {
  return std::string(static_cast<std::size_t>(60 + id), static_cast<char>('A' + id));
}
bool Whole(const std::string& t) {
  int id = t.empty() ? -1 : t[0] - 'A';
  return id >= 0 && id < 32 && t == WriterText(id);
}

// The writers go on past their 300 rounds until the reader has read the
// shared row 1000 times, so that on a busy machine the reads still fall
// while the rows are being written.
TEST(Ipc, ThirtyTwoConcurrentWritersLeaveEveryRowWholeAndCorrect) {
  constexpr int kReads = 1000;
  StartedRunDir run;
  const std::string go = run / "go";  // the writers start together once the reader is ready
  const std::string stop = run / "stop";
  std::vector<Child> writers;
  for (int id = 0; id < 32; ++id) {
    writers.emplace_back([id, &go, &stop] {
      const std::string own = "vip" + std::to_string(id);
      if (shmrm_attach() != 0 || !Appears(go, 10000)) return 1;
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
  // Read until writer 31, the last started, is done; the bound only keeps a failed writer
  // from holding the test for ever.
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

}  // namespace
