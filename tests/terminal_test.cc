// What a person at a terminal reads when vyrvip fails, seen through a
// pseudo-terminal; and the silence of the same runs when standard error is a
// pipe, as it is under the cluster.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

#include "support/sh.h"

namespace {

using vyrtest::ReadFile;
using vyrtest::WriteFile;

const std::string kBinary = VYR_BINARY_DIR "/src/vyrvip";
const std::string kUsage =
    "usage: vyrvip --add -a ipaddress[/subnet] [-i interface]\n"
    "              --del -a ipaddress\n";
constexpr uid_t kRoot = 0;
constexpr uid_t kNobody = 65534;

struct Ran {
  int status = -1;
  std::string text;  // what the terminal showed, or what came through the pipe
};

// Runs vyrvip with `args` as `uid`, its standard output and error on a new
// pseudo-terminal (`terminal`) or on a pipe.
Ran Spawn(const std::vector<std::string>& args, uid_t uid, bool terminal) {
  std::vector<std::string> words = {kBinary};
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& w : words) argv.push_back(w.data());
  argv.push_back(nullptr);

  int out = -1;
  int pipefd[2] = {-1, -1};
  pid_t pid;
  if (terminal) {
    pid = ::forkpty(&out, nullptr, nullptr, nullptr);
  } else {
    if (::pipe2(pipefd, O_CLOEXEC) != 0) return {};
    pid = ::fork();
    out = pipefd[0];
  }
  if (pid == 0) {
    if (!terminal) {
      ::dup2(pipefd[1], STDOUT_FILENO);
      ::dup2(pipefd[1], STDERR_FILENO);
    }
    if (uid != kRoot && (::setgroups(0, nullptr) != 0 || ::setresgid(uid, uid, uid) != 0 ||
                         ::setresuid(uid, uid, uid) != 0)) {
      ::_exit(120);
    }
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  if (!terminal) ::close(pipefd[1]);
  Ran ran;
  if (pid < 0) return ran;
  char buf[512];
  for (;;) {
    const ssize_t n = ::read(out, buf, sizeof buf);
    if (n > 0) {
      ran.text.append(buf, static_cast<size_t>(n));
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else {
      break;  // end of the pipe, or EIO once the terminal's last user is gone
    }
  }
  ::close(out);
  int ws = 0;
  while (::waitpid(pid, &ws, 0) < 0 && errno == EINTR) {
  }
  ran.status = WIFEXITED(ws) ? WEXITSTATUS(ws) : -1;
  // The terminal turns each newline into a carriage return and a newline.
  std::string plain;
  for (char c : ran.text) {
    if (c != '\r') plain += c;
  }
  ran.text = plain;
  return ran;
}

// A private installation as in the check-mode tests: <dir>/inst is the
// install folder, <dir>/log the trace logs; the resource "good" of the
// configuration under check is valid.
class Terminal : public ::testing::Test {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) GTEST_SKIP() << "vyrvip runs as root only";
    if (::access(kBinary.c_str(), X_OK) != 0) GTEST_SKIP() << "no " << kBinary;
    ASSERT_EQ(0, vyrtest::Sh("mkdir -p " + dir_ / "inst/var/check " + dir_ / "log"));
    WriteFile(dir_ / "inst/chkconf.xml", ReadFile(VYR_TESTDATA_DIR "/chkconf/three_servers.xml"));
    WriteFile(dir_ / "cluster.xml",
              "<root><all><path>" + dir_ / "inst" +
                  "</path></all><cluster><check><rdrctpath>var/check/vip.log</rdrctpath>"
                  "<chkconf>chkconf.xml</chkconf></check></cluster></root>\n");
  }

  vyrtest::TempDir dir_;
  const std::string trace_ = dir_ / "log/vip.log";
  const std::string check_ = dir_ / "inst/var/check/vip.log";
  vyrtest::ScopedEnv config_{"VYR_CONFIG", dir_ / "cluster.xml"};
  vyrtest::ScopedEnv policies_{"VYR_POLICY_DIR", VYR_SOURCE_DIR "/platform/policy"};
  vyrtest::ScopedEnv logs_{"VYR_LOG_DIR", dir_ / "log"};
  vyrtest::ScopedEnv run_{"VYR_RUN_DIR", dir_ / "run"};
};

// Every failing run tells the terminal why, with its status and where to
// look; a successful one says nothing. The same runs with standard error on
// a pipe print nothing at all and end with the same status.
TEST_F(Terminal, FailingRunsGiveOneReasonOnATerminalAndNothingOnAPipe) {
  const std::string details = "; details in " + trace_ + ")\n";
  const struct {
    std::vector<std::string> args;
    uid_t uid;
    int status;
    std::string shown;
  } cases[] = {
      {{},
       kRoot,
       4,
       "vyrvip: no mode given: --active, --deactive, --add, --del, --dactive, --ddeactive or "
       "--test (status 4)\n" +
           kUsage},
      {{"--active", "-r", "vipT", "-g", "grpT"},
       kNobody,
       5,
       "vyrvip: not run as root (status 5)\n"},
      {{"--test", "good"}, kNobody, 1, "vyrvip: not run as root (status 1)\n"},
      {{"--active", "-r", "vipT"},
       kRoot,
       4,
       "vyrvip: Option was invalid. (status 4" + details + kUsage},
      {{"--add", "-i", "lo", "-r", "vipT"},
       kRoot,
       4,
       "vyrvip: invalid command line (status 4" + details + kUsage},
      {{"--active", "-r", "vipT", "-g", "grpT"},
       kRoot,
       9,
       "vyrvip: Internal error. (status=9) (status 9" + details},
      {{"--test", "nosuch"},
       kRoot,
       1,
       "vyrvip: the configuration check failed (status 1; verdict in " + check_ + ", details in " +
           trace_ + ")\n"},
      {{"--test", "good"}, kRoot, 0, ""},
  };
  for (const auto& c : cases) {
    std::string line;
    for (const auto& a : c.args) line += " " + a;
    const Ran on_terminal = Spawn(c.args, c.uid, true);
    EXPECT_EQ(c.status, on_terminal.status) << line;
    EXPECT_EQ(c.shown, on_terminal.text) << line;
    const Ran on_pipe = Spawn(c.args, c.uid, false);
    EXPECT_EQ(c.status, on_pipe.status) << line;
    EXPECT_EQ("", on_pipe.text) << line;
  }
  EXPECT_NE(std::string::npos, ReadFile(check_).find("Success in a composition check."));
}

// The ping command answers --help with its usage on standard output.
TEST(PingHelp, HelpPrintsTheUsageAndSucceeds) {
  std::string out;
  EXPECT_EQ(0, vyrtest::Sh(VYR_BINARY_DIR "/platform/vyrping/vyrping --help 2>/dev/null", &out));
  EXPECT_EQ(0u, out.rfind("usage: vyrping -c COUNT ADDRESS\n", 0)) << out;
}

}  // namespace
