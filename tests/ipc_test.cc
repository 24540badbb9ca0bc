// The cluster IPC library, across real processes: the resource table, the
// node table and the interface-change critical section.
#include <fcntl.h>
#include <poll.h>
#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "ipc_keys.h"
#include "support/ipc_env.h"
#include "tables.h"
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

void Start() {
  int already = -1;
  ASSERT_EQ(vyripc_create(&already), 0) << std::strerror(vyripc_last_errno());
  ASSERT_EQ(already, 0);
}

std::string Descript(const char* group, const char* type, const char* rsc) {
  char out[SHMRM_DESCRIPT_SIZE] = "<untouched>";
  int ret = shmrm_getdescript(group, type, rsc, out, sizeof out);
  if (ret != 0) return "<error " + std::to_string(ret) + ">";
  return out;
}

// Waits up to `ms` for one byte on `fd`; true when it came.
bool ReadByte(int fd, int ms) {
  struct pollfd p {
    fd, POLLIN, 0
  };
  if (::poll(&p, 1, ms) != 1) return false;
  char c;
  return ::read(fd, &c, 1) == 1;
}

struct Pipe {
  int fd[2] = {-1, -1};
  Pipe() { EXPECT_EQ(::pipe(fd), 0); }
  ~Pipe() {
    ::close(fd[0]);
    ::close(fd[1]);
  }
  void Signal() const { (void)!::write(fd[1], "x", 1); }
};

TEST(IpcObjects, EveryAttachFailsBeforeStart) {
  IpcRunDir run;
  EXPECT_EQ(shmrm_attach(), SHMRM_ERR_NOTINIT);
  EXPECT_EQ(shmnm_attach(), SHMRM_ERR_NOTINIT);
  EXPECT_EQ(sem_attach(), SHMRM_ERR_NOTINIT);
  // Nothing attached: every other call refuses too, without touching anything.
  EXPECT_EQ(shmrm_setdescript("grp1", "vip", "vip1", "Success.", 128), SHMRM_ERR_NOTINIT);
  int flag = 7;
  EXPECT_EQ(shmnm_getnpsimuflag(&flag), SHMRM_ERR_NOTINIT);
  EXPECT_EQ(flag, 7);
  EXPECT_EQ(sem_entercrit_ifconfig(), SHMRM_ERR_NOTINIT);
  EXPECT_EQ(shmrm_detach(), SHMRM_ERR_NOTINIT);
  EXPECT_EQ(sem_detach(), SHMRM_ERR_NOTINIT);

  // Started and stopped again: back to failing.
  Start();
  int removed = 0;
  ASSERT_EQ(vyripc_remove(&removed), 0);
  EXPECT_EQ(removed, 3);
  EXPECT_NE(shmrm_attach(), 0);
  EXPECT_NE(shmnm_attach(), 0);
  EXPECT_NE(sem_attach(), 0);
}

TEST(IpcObjects, AnotherRunFolderSeesNothing) {
  IpcRunDir first;
  Start();
  {
    IpcRunDir second;
    EXPECT_EQ(shmrm_attach(), SHMRM_ERR_NOTINIT);
    EXPECT_EQ(sem_attach(), SHMRM_ERR_NOTINIT);
  }
  EXPECT_EQ(shmrm_attach(), 0);
}

TEST(IpcObjects, TablesMadeForAnotherRunFolderAreLeftAlone) {
  IpcRunDir run;
  Start();
  // Make the resource table look as if another folder's key file had made
  // it, as when two folders' keys collide.
  key_t rkey = ::ftok(vyripc::KeyPath().c_str(), vyripc::kProjResourceTable);
  int shmid = ::shmget(rkey, 0, 0);
  ASSERT_NE(shmid, -1);
  void* p = ::shmat(shmid, nullptr, 0);
  ASSERT_NE(p, reinterpret_cast<void*>(-1));
  static_cast<vyripc::TableHeader*>(p)->key_ino ^= 1;
  ::shmdt(p);
  key_t skey = ::ftok(vyripc::KeyPath().c_str(), vyripc::kProjSemaphores);

  EXPECT_EQ(shmrm_attach(), SHMRM_ERR_LOADINFO);
  int already = 0;
  EXPECT_EQ(vyripc_create(&already), SHMRM_ERR_LOADINFO);
  int removed = 0;
  EXPECT_EQ(vyripc_remove(&removed), SHMRM_ERR_LOADINFO);
  EXPECT_EQ(::shmget(rkey, 0, 0), shmid) << "another folder's table was removed";
  int semid = ::semget(skey, 0, 0);
  EXPECT_NE(semid, -1) << "another folder's semaphore set was removed";
  ::shmctl(shmid, IPC_RMID, nullptr);
  if (semid != -1) ::semctl(semid, 0, IPC_RMID);
}

TEST(IpcObjects, StartTwiceKeepsTheRows) {
  IpcRunDir run;
  Start();
  ASSERT_EQ(shmrm_attach(), 0);
  ASSERT_EQ(shmrm_setdescript("grp1", "vip", "vip1", "kept", 128), 0);
  int already = 0;
  ASSERT_EQ(vyripc_create(&already), 0);
  EXPECT_EQ(already, 1);
  EXPECT_EQ(Descript("grp1", "vip", "vip1"), "kept");
}

TEST(ResourceTable, RowsAreCreatedOrReplaced) {
  IpcRunDir run;
  Start();
  ASSERT_EQ(shmrm_attach(), 0);
  ASSERT_EQ(shmrm_setdescript("grp1", "vip", "vip1", "first", 128), 0);
  ASSERT_EQ(shmrm_setdescript("grp1", "vip", "vip2", "other resource", 128), 0);
  ASSERT_EQ(shmrm_setdescript("grp2", "vip", "vip1", "other group", 128), 0);
  ASSERT_EQ(shmrm_setdescript("grp1", "disk", "vip1", "other type", 128), 0);
  ASSERT_EQ(shmrm_setdescript("grp1", "vip", "vip1", "Success.", 128), 0);

  std::vector<ShmrmRow> rows;
  ASSERT_EQ(shmrm_listrows(&rows), 0);
  ASSERT_EQ(rows.size(), 4u);
  EXPECT_EQ(rows[0].group + "/" + rows[0].type + "/" + rows[0].rsc + "=" + rows[0].descript,
            "grp1/vip/vip1=Success.");
  EXPECT_EQ(rows[1].rsc + "=" + rows[1].descript, "vip2=other resource");
  EXPECT_EQ(rows[2].group + "=" + rows[2].descript, "grp2=other group");
  EXPECT_EQ(rows[3].type + "=" + rows[3].descript, "disk=other type");
  EXPECT_EQ(Descript("grp1", "vip", "nosuch"), "<error 4>");
}

TEST(ResourceTable, DescriptionsAreCutToTheirBuffer) {
  IpcRunDir run;
  Start();
  ASSERT_EQ(shmrm_attach(), 0);
  std::string long_text(300, 'x');
  ASSERT_EQ(shmrm_setdescript("g", "vip", "long", long_text.c_str(), 300), 0);
  EXPECT_EQ(Descript("g", "vip", "long"), std::string(127, 'x'));
  // Only `size` bytes of the caller's buffer are read, the last is the terminator.
  char unterminated[4] = {'a', 'b', 'c', 'd'};
  ASSERT_EQ(shmrm_setdescript("g", "vip", "short", unterminated, 4), 0);
  EXPECT_EQ(Descript("g", "vip", "short"), "abc");
  // A shorter text replaces a longer one completely.
  ASSERT_EQ(shmrm_setdescript("g", "vip", "long", "ok", 128), 0);
  EXPECT_EQ(Descript("g", "vip", "long"), "ok");
}

TEST(ResourceTable, RefusesBadParameters) {
  IpcRunDir run;
  Start();
  ASSERT_EQ(shmrm_attach(), 0);
  std::string g64(64, 'g');
  std::string t16(16, 't');
  struct Case {
    const char* name;
    const char* group;
    const char* type;
    const char* rsc;
    const char* text;
    int size;
  } cases[] = {
      {"null group", nullptr, "vip", "r", "t", 128},
      {"empty resource", "g", "vip", "", "t", 128},
      {"group of 64 bytes", g64.c_str(), "vip", "r", "t", 128},
      {"type of 16 bytes", "g", t16.c_str(), "r", "t", 128},
      {"null text", "g", "vip", "r", nullptr, 128},
      {"size 0", "g", "vip", "r", "t", 0},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(shmrm_setdescript(c.group, c.type, c.rsc, c.text, c.size), SHMRM_ERR_INVALIDPARAM)
        << c.name;
  }
  std::vector<ShmrmRow> rows;
  ASSERT_EQ(shmrm_listrows(&rows), 0);
  EXPECT_TRUE(rows.empty());
}

TEST(ResourceTable, FullTableRefusesNewRowsButKeepsReplacing) {
  IpcRunDir run;
  Start();
  ASSERT_EQ(shmrm_attach(), 0);
  int made = 0;
  int ret = 0;
  for (; made < 10000; ++made) {
    std::string rsc = "r" + std::to_string(made);
    ret = shmrm_setdescript("grp", "vip", rsc.c_str(), "up", 128);
    if (ret != 0) break;
  }
  EXPECT_EQ(ret, SHMRM_ERR_MAXRSC);
  EXPECT_EQ(made, 256);
  EXPECT_EQ(shmrm_setdescript("grp", "vip", "r0", "replaced", 128), 0);
  EXPECT_EQ(Descript("grp", "vip", "r0"), "replaced");
}

TEST(ResourceTable, AttachAndDetachArePerProcess) {
  IpcRunDir run;
  Start();
  ASSERT_EQ(shmrm_attach(), 0);
  ASSERT_EQ(shmrm_attach(), 0);
  ASSERT_EQ(shmrm_detach(), 0);
  EXPECT_EQ(shmrm_setdescript("g", "vip", "r", "still attached", 128), 0);

  // A child that detaches (and writes before) leaves our mapping alone.
  ForkedChild child = Spawn([] {
    if (shmrm_setdescript("g", "vip", "r", "from child", 128) != 0) return 1;
    return shmrm_detach() == 0 && shmrm_setdescript("g", "vip", "r", "x", 128) != 0 ? 0 : 2;
  });
  ASSERT_EQ(child.Wait(), 0);
  EXPECT_EQ(Descript("g", "vip", "r"), "from child");

  ASSERT_EQ(shmrm_detach(), 0);
  EXPECT_EQ(shmrm_setdescript("g", "vip", "r", "detached", 128), SHMRM_ERR_NOTINIT);
  EXPECT_EQ(shmrm_detach(), SHMRM_ERR_NOTINIT);
}

// Writer `id` always stores "w<id>:" followed by its own letter up to a
// length of its own, so any mix of two writes is visible.
std::string WriterText(int id, int round) {
  std::string text = "w" + std::to_string(id) + ":";
  text.append(static_cast<size_t>(40 + (id * 7 + round) % 87), static_cast<char>('A' + id % 26));
  return text;
}

bool WholeWriterText(const std::string& text) {
  int id = -1;
  if (std::sscanf(text.c_str(), "w%d:", &id) != 1 || id < 0) return false;
  std::string prefix = "w" + std::to_string(id) + ":";
  if (text.compare(0, prefix.size(), prefix) != 0) return false;
  std::string rest = text.substr(prefix.size());
  if (rest.size() < 40) return false;
  return rest.find_first_not_of(static_cast<char>('A' + id % 26)) == std::string::npos;
}

TEST(ResourceTable, ConcurrentWritersNeverTearARow) {
  IpcRunDir run;
  Start();
  constexpr int kWriters = 32;
  constexpr int kRounds = 300;
  std::vector<ForkedChild> writers;
  for (int id = 0; id < kWriters; ++id) {
    writers.push_back(Spawn([id] {
      if (shmrm_attach() != 0) return 1;
      std::string own = "vip" + std::to_string(id);
      for (int round = 0; round < kRounds; ++round) {
        std::string text = WriterText(id, round);
        if (shmrm_setdescript("grp", "vip", "shared", text.c_str(), 128) != 0) return 2;
        if (shmrm_setdescript("grp", "vip", own.c_str(), text.c_str(), 128) != 0) return 3;
      }
      std::string last = "writer " + std::to_string(id) + " done";
      if (shmrm_setdescript("grp", "vip", own.c_str(), last.c_str(), 128) != 0) return 4;
      return shmrm_detach() == 0 ? 0 : 5;
    }));
  }
  // Read the contended row while they write.
  ASSERT_EQ(shmrm_attach(), 0);
  int reads = 0;
  int torn = 0;
  std::string bad;
  auto until = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  bool all_done = false;
  while (!all_done && std::chrono::steady_clock::now() < until) {
    std::string text = Descript("grp", "vip", "shared");
    if (text != "<error 4>") {
      ++reads;
      if (!WholeWriterText(text)) ++torn, bad = text;
    }
    std::vector<ShmrmRow> rows;
    ASSERT_EQ(shmrm_listrows(&rows), 0);
    all_done = rows.size() == kWriters + 1;
    for (const ShmrmRow& r : rows) {
      if (r.rsc != "shared" && r.descript.rfind("writer ", 0) != 0) all_done = false;
    }
  }
  for (int id = 0; id < kWriters; ++id) EXPECT_EQ(writers[id].Wait(), 0) << "writer " << id;
  EXPECT_GT(reads, 0);
  EXPECT_EQ(torn, 0) << "last torn text: " << bad;

  std::vector<ShmrmRow> rows;
  ASSERT_EQ(shmrm_listrows(&rows), 0);
  ASSERT_EQ(rows.size(), static_cast<size_t>(kWriters + 1));
  for (int id = 0; id < kWriters; ++id) {
    std::string own = "vip" + std::to_string(id);
    EXPECT_EQ(Descript("grp", "vip", own.c_str()), "writer " + std::to_string(id) + " done");
  }
  EXPECT_TRUE(WholeWriterText(Descript("grp", "vip", "shared")));
}

TEST(NodeTable, NpsimuFlagIsSharedBetweenProcesses) {
  IpcRunDir run;
  Start();
  ASSERT_EQ(shmnm_attach(), 0);
  int flag = -1;
  ASSERT_EQ(shmnm_getnpsimuflag(&flag), 0);
  EXPECT_EQ(flag, 0);
  ForkedChild child = Spawn([] { return shmnm_setnpsimuflag(1); });
  ASSERT_EQ(child.Wait(), 0);
  ASSERT_EQ(shmnm_getnpsimuflag(&flag), 0);
  EXPECT_EQ(flag, 1);
  EXPECT_EQ(shmnm_setnpsimuflag(2), SHMRM_ERR_INVALIDPARAM);
  ASSERT_EQ(shmnm_setnpsimuflag(0), 0);
  ASSERT_EQ(shmnm_getnpsimuflag(&flag), 0);
  EXPECT_EQ(flag, 0);
}

TEST(CriticalSection, ExcludesOtherProcesses) {
  IpcRunDir run;
  Start();
  std::string marker = run / "inside";
  constexpr int kProcs = 8;
  constexpr int kRounds = 40;
  std::vector<ForkedChild> procs;
  for (int i = 0; i < kProcs; ++i) {
    procs.push_back(Spawn([&marker] {
      if (sem_attach() != 0) return 1;
      for (int round = 0; round < kRounds; ++round) {
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
  for (int i = 0; i < kProcs; ++i) EXPECT_EQ(procs[i].Wait(), 0) << "process " << i;
}

TEST(CriticalSection, KilledHolderDoesNotBlockTheNextProcess) {
  IpcRunDir run;
  Start();
  Pipe holder_in, next_in;
  ForkedChild holder = Spawn([&holder_in] {
    if (sem_attach() != 0 || sem_entercrit_ifconfig() != 0) return 1;
    holder_in.Signal();
    for (;;) ::pause();
  });
  ASSERT_TRUE(ReadByte(holder_in.fd[0], 5000)) << "the holder never entered";

  ForkedChild next = Spawn([&next_in] {
    if (sem_attach() != 0 || sem_entercrit_ifconfig() != 0) return 1;
    next_in.Signal();
    return sem_leavecrit_ifconfig();
  });
  EXPECT_FALSE(ReadByte(next_in.fd[0], 300)) << "entered while the holder was inside";

  auto killed = std::chrono::steady_clock::now();
  holder.Kill();
  ASSERT_TRUE(ReadByte(next_in.fd[0], 1000)) << "still blocked a second after the kill";
  auto waited = std::chrono::steady_clock::now() - killed;
  EXPECT_LT(waited, std::chrono::seconds(1));
  EXPECT_EQ(next.Wait(), 0);
}

TEST(CriticalSection, OneHolderPerProcessAndNoLeaveWithoutEnter) {
  IpcRunDir run;
  Start();
  ASSERT_EQ(sem_attach(), 0);
  EXPECT_EQ(sem_leavecrit_ifconfig(), VYRIPC_ERR_NOTHELD);
  ASSERT_EQ(sem_entercrit_ifconfig(), 0);
  EXPECT_EQ(sem_entercrit_ifconfig(), VYRIPC_ERR_HELD);
  ASSERT_EQ(sem_leavecrit_ifconfig(), 0);
  EXPECT_EQ(sem_leavecrit_ifconfig(), VYRIPC_ERR_NOTHELD);

  // The refused leave did not raise the semaphore: one enter still fills it.
  ASSERT_EQ(sem_entercrit_ifconfig(), 0);
  ForkedChild other = Spawn([] { return sem_entercrit_ifconfig() == 0 ? 0 : 1; });
  ::usleep(300 * 1000);
  EXPECT_NE(::waitpid(other.pid(), nullptr, WNOHANG), other.pid()) << "entered while held";
  ASSERT_EQ(sem_leavecrit_ifconfig(), 0);
  EXPECT_EQ(other.Wait(), 0);
}

TEST(CriticalSection, LastDetachReleasesAHeldSection) {
  IpcRunDir run;
  Start();
  ASSERT_EQ(sem_attach(), 0);
  ASSERT_EQ(sem_entercrit_ifconfig(), 0);
  ASSERT_EQ(sem_detach(), 0);
  Pipe entered;
  ForkedChild other = Spawn([&entered] {
    if (sem_attach() != 0 || sem_entercrit_ifconfig() != 0) return 1;
    entered.Signal();
    return sem_leavecrit_ifconfig();
  });
  EXPECT_TRUE(ReadByte(entered.fd[0], 1000)) << "the section stayed held after the detach";
  EXPECT_EQ(other.Wait(), 0);
}

TEST(IpcObjects, StopUnderAttachedProcessesFailsTheirCallsCleanly) {
  IpcRunDir run;
  Start();
  ASSERT_EQ(shmrm_attach(), 0);
  ASSERT_EQ(sem_attach(), 0);
  int removed = 0;
  ASSERT_EQ(vyripc_remove(&removed), 0);
  EXPECT_EQ(removed, 3);
  EXPECT_EQ(sem_entercrit_ifconfig(), VYRIPC_ERR_SEMOP);
  EXPECT_EQ(shmrm_setdescript("g", "vip", "r", "late", 128), SHMRM_ERR_SHMCTL);
  EXPECT_EQ(sem_detach(), 0);
  EXPECT_EQ(shmrm_detach(), 0);
}

}  // namespace
