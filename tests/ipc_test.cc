// The cluster IPC library, across real processes: the resource table, the
// node table and the interface-change critical section.
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "support/ipc_env.h"
#include "vyripc.h"
#include "vyripc_admin.h"

namespace {

using vyrtest::ForkedChild;
using vyrtest::IpcRunDir;

// Runs `body` in a forked child whose exit code is its result.
ForkedChild Spawn(const std::function<int()>& body) {
  pid_t pid = ::fork();
  if (pid == 0) ::_exit(body());
  return ForkedChild(pid);
}

std::string Descript(const char* group, const char* type, const char* rsc) {
  char out[SHMRM_DESCRIPT_SIZE] = "<untouched>";
  int ret = shmrm_getdescript(group, type, rsc, out, sizeof out);
  return ret == 0 ? out : "<error " + std::to_string(ret) + ">";
}

int Set(const char* rsc, const std::string& text, int size = 128) {
  return shmrm_setdescript("g", "vip", rsc, text.c_str(), size);
}

// A pipe a child writes one byte to; Got() waits up to `ms` for it.
struct Signal {
  int fd[2] = {-1, -1};
  Signal() { EXPECT_EQ(::pipe(fd), 0); }
  ~Signal() { ::close(fd[0]), ::close(fd[1]); }
  void Send() const { (void)!::write(fd[1], "x", 1); }
  bool Got(int ms) const {
    struct pollfd p {
      fd[0], POLLIN, 0
    };
    char c;
    return ::poll(&p, 1, ms) == 1 && ::read(fd[0], &c, 1) == 1;
  }
};

// Started tables in a private run folder.
class Ipc : public ::testing::Test {
 protected:
  void SetUp() override {
    int already = -1;
    ASSERT_EQ(vyripc_create(&already), 0) << std::strerror(vyripc_last_errno());
    ASSERT_EQ(already, 0);
  }
  IpcRunDir run_;
};

TEST(IpcObjects, EveryCallFailsCleanlyBeforeStartAndInAnotherFolder) {
  IpcRunDir run;
  EXPECT_EQ(shmrm_attach(), SHMRM_ERR_NOTINIT);
  EXPECT_EQ(shmnm_attach(), SHMRM_ERR_NOTINIT);
  EXPECT_EQ(sem_attach(), SHMRM_ERR_NOTINIT);
  EXPECT_EQ(Set("r", "Success."), SHMRM_ERR_NOTINIT);
  EXPECT_EQ(sem_entercrit_ifconfig(), SHMRM_ERR_NOTINIT);

  int already = -1;
  ASSERT_EQ(vyripc_create(&already), 0);
  {
    IpcRunDir second;
    EXPECT_EQ(shmrm_attach(), SHMRM_ERR_NOTINIT) << "another folder's tables were found";
  }
  ASSERT_EQ(shmrm_attach(), 0);
  ASSERT_EQ(Set("r", "kept"), 0);
  ASSERT_EQ(vyripc_create(&already), 0);
  EXPECT_EQ(already, 1);
  EXPECT_EQ(Descript("g", "vip", "r"), "kept") << "a second start dropped the rows";

  // Stopped under an attached process: its calls fail, its detach still works.
  ASSERT_EQ(sem_attach(), 0);
  int removed = 0;
  ASSERT_EQ(vyripc_remove(&removed), 0);
  EXPECT_EQ(removed, 3);
  EXPECT_EQ(sem_entercrit_ifconfig(), VYRIPC_ERR_SEMOP);
  EXPECT_EQ(Set("r", "late"), SHMRM_ERR_SHMCTL);
  EXPECT_EQ(sem_detach(), 0);
  EXPECT_EQ(shmrm_detach(), 0);
}

TEST_F(Ipc, RowsAreCreatedReplacedAndBounded) {
  ASSERT_EQ(shmrm_attach(), 0);
  ASSERT_EQ(shmrm_setdescript("g", "vip", "vip1", std::string(300, 'x').c_str(), 300), 0);
  ASSERT_EQ(shmrm_setdescript("g2", "vip", "vip1", "other group", 128), 0);
  ASSERT_EQ(shmrm_setdescript("g", "disk", "vip1", "other type", 128), 0);
  EXPECT_EQ(Descript("g", "vip", "vip1"), std::string(127, 'x'));
  ASSERT_EQ(Set("vip1", "Success."), 0);
  char unterminated[4] = {'a', 'b', 'c', 'd'};
  ASSERT_EQ(shmrm_setdescript("g", "vip", "short", unterminated, 4), 0);

  std::vector<ShmrmRow> rows;
  ASSERT_EQ(shmrm_listrows(&rows), 0);
  std::string all;
  for (const ShmrmRow& r : rows)
    all += r.group + "/" + r.type + "/" + r.rsc + "=" + r.descript + ";";
  EXPECT_EQ(all,
            "g/vip/vip1=Success.;g2/vip/vip1=other group;g/disk/vip1=other type;g/vip/short=abc;");
  EXPECT_EQ(Descript("g", "vip", "nosuch"), "<error 4>");

  // A full table refuses new rows but still replaces old ones.
  int made = 0;
  while (made < 1000 && Set(("r" + std::to_string(made)).c_str(), "up") == 0) ++made;
  EXPECT_EQ(made + 4, 256);
  EXPECT_EQ(Set("r999", "up"), SHMRM_ERR_MAXRSC);
  EXPECT_EQ(Set("r0", "replaced"), 0);
  EXPECT_EQ(Descript("g", "vip", "r0"), "replaced");
}

TEST_F(Ipc, BadParametersAreRefusedAndStoreNothing) {
  ASSERT_EQ(shmrm_attach(), 0);
  std::string g64(64, 'g'), t16(16, 't');
  struct Case {
    const char *name, *group, *type, *rsc, *text;
    int size;
  } cases[] = {
      {"null group", nullptr, "vip", "r", "t", 128},
      {"empty resource", "g", "vip", "", "t", 128},
      {"group of 64", g64.c_str(), "vip", "r", "t", 128},
      {"type of 16", "g", t16.c_str(), "r", "t", 128},
      {"null text", "g", "vip", "r", nullptr, 128},
      {"size 0", "g", "vip", "r", "t", 0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(shmrm_setdescript(c.group, c.type, c.rsc, c.text, c.size), SHMRM_ERR_INVALIDPARAM)
        << c.name;
  }
  ASSERT_EQ(shmnm_attach(), 0);
  EXPECT_EQ(shmnm_setnpsimuflag(2), SHMRM_ERR_INVALIDPARAM);
  std::vector<ShmrmRow> rows;
  ASSERT_EQ(shmrm_listrows(&rows), 0);
  EXPECT_TRUE(rows.empty());
}

// Writer `id` stores 60 + id copies of its own character, so a mix of two
// writes shows as a wrong length or a foreign character.
std::string WriterText(int id) {
  return std::string(static_cast<size_t>(60 + id), static_cast<char>('A' + id));
}
bool WholeWriterText(const std::string& t) {
  return !t.empty() && t[0] >= 'A' && t[0] < 'A' + 32 && t == WriterText(t[0] - 'A');
}

TEST_F(Ipc, ThirtyTwoConcurrentWritersNeverTearARow) {
  constexpr int kWriters = 32;
  std::vector<ForkedChild> writers;
  for (int id = 0; id < kWriters; ++id) {
    writers.push_back(Spawn([id] {
      if (shmrm_attach() != 0) return 1;
      std::string own = "vip" + std::to_string(id);
      for (int round = 0; round < 300; ++round) {
        if (Set("shared", WriterText(id)) != 0 || Set(own.c_str(), WriterText(id)) != 0) return 2;
      }
      if (Set(own.c_str(), "writer " + std::to_string(id) + " done") != 0) return 3;
      return shmrm_detach() == 0 ? 0 : 4;
    }));
  }
  ASSERT_EQ(shmrm_attach(), 0);
  int reads = 0;
  std::string torn;
  auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  for (bool done = false; !done && std::chrono::steady_clock::now() < until;) {
    std::string text = Descript("g", "vip", "shared");
    if (text != "<error 4>" && (++reads, !WholeWriterText(text))) torn = text;
    done = Descript("g", "vip", "vip31").rfind("writer", 0) == 0;
  }
  for (int id = 0; id < kWriters; ++id) EXPECT_EQ(writers[id].Wait(), 0) << "writer " << id;
  EXPECT_GT(reads, 0);
  EXPECT_EQ(torn, "") << "a torn description was read";
  for (int id = 0; id < kWriters; ++id) {
    EXPECT_EQ(Descript("g", "vip", ("vip" + std::to_string(id)).c_str()),
              "writer " + std::to_string(id) + " done");
  }
  EXPECT_TRUE(WholeWriterText(Descript("g", "vip", "shared")));
}

TEST_F(Ipc, CriticalSectionExcludesOtherProcesses) {
  std::string marker = run_ / "inside";
  std::vector<ForkedChild> procs;
  for (int i = 0; i < 8; ++i) {
    procs.push_back(Spawn([&marker] {
      if (sem_attach() != 0) return 1;
      for (int round = 0; round < 40; ++round) {
        if (sem_entercrit_ifconfig() != 0) return 2;
        // Creating the marker fails when another process is inside too.
        int fd = ::open(marker.c_str(), O_CREAT | O_EXCL | O_WRONLY, 0600);
        if (fd < 0) return 3;
        ::close(fd);
        ::usleep(200);
        ::unlink(marker.c_str());
        if (sem_leavecrit_ifconfig() != 0) return 4;
      }
      return sem_detach() == 0 ? 0 : 5;
    }));
  }
  for (int i = 0; i < 8; ++i) EXPECT_EQ(procs[i].Wait(), 0) << "process " << i;
}

TEST_F(Ipc, KilledHolderDoesNotBlockTheNextProcess) {
  Signal holder_in, next_in;
  ForkedChild holder = Spawn([&holder_in] {
    if (sem_attach() != 0 || sem_entercrit_ifconfig() != 0) return 1;
    holder_in.Send();
    for (;;) ::pause();
  });
  ASSERT_TRUE(holder_in.Got(5000)) << "the holder never entered";
  ForkedChild next = Spawn([&next_in] {
    if (sem_attach() != 0 || sem_entercrit_ifconfig() != 0) return 1;
    next_in.Send();
    return sem_leavecrit_ifconfig();
  });
  EXPECT_FALSE(next_in.Got(300)) << "entered while the holder was inside";
  holder.Kill();
  EXPECT_TRUE(next_in.Got(1000)) << "still blocked a second after the kill";
  EXPECT_EQ(next.Wait(), 0);
}

TEST_F(Ipc, CriticalSectionRefusesNestingAndStrayLeaves) {
  ASSERT_EQ(sem_attach(), 0);
  EXPECT_EQ(sem_leavecrit_ifconfig(), VYRIPC_ERR_NOTHELD);
  ASSERT_EQ(sem_entercrit_ifconfig(), 0);
  EXPECT_EQ(sem_entercrit_ifconfig(), VYRIPC_ERR_HELD);
  // The refused leave did not raise the semaphore: the section is still held.
  ForkedChild other = Spawn([] { return sem_entercrit_ifconfig() == 0 ? 0 : 1; });
  ::usleep(300 * 1000);
  EXPECT_NE(::waitpid(other.pid(), nullptr, WNOHANG), other.pid()) << "entered while held";
  // The last detach releases a held section.
  ASSERT_EQ(sem_detach(), 0);
  EXPECT_EQ(other.Wait(), 0);
}

}  // namespace
