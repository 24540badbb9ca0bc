// The cluster log library: line layout, level filter, events, rotation and
// lines written by many threads and processes at once.
#include "vyrlog.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "support/log_lines.h"
#include "support/sh.h"

namespace {

using vyrtest::LogLine;
using vyrtest::LogTexts;
using vyrtest::ReadLogLines;

// A log handle on a private file, closed at the end of the test.
struct LogFile {
  LogFile(int level, int size) {
    EXPECT_EQ(0, log_init("vip", &handle, level, size, path.c_str()));
  }
  ~LogFile() { log_term(handle); }
  vyrtest::TempDir dir;
  std::string path = dir / "test.log";
  void* handle = nullptr;
};

long FileSize(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 ? static_cast<long>(st.st_size) : -1;
}

TEST(LogLayout, LineCarriesTimePidTidLevelSourceFunctionAndText) {
  LogFile log(8, 0);
  const std::time_t before = std::time(nullptr);
  log_write(log.handle, 4, 0, "src/vip/entry.cc", 120, "vip_main", "vip rsc %s (%d)", "starting",
            7);
  // A line break inside the text never starts a new line.
  log_write(log.handle, 2, 0, "a.cc", 1, "f", "Invalid option. (argv[i] : %s)",
            "x\n2026-01-01 00:00:00.000 pid=1 tid=1 ERROR forged\r");
  auto lines = ReadLogLines(log.path);
  ASSERT_EQ(2u, lines.size());
  const LogLine& l = lines[0];
  ASSERT_EQ("INFO", l.level) << "unparsed line: " << l.text;
  EXPECT_EQ(std::to_string(::getpid()) + " " + std::to_string(::syscall(SYS_gettid)),
            std::to_string(l.pid) + " " + std::to_string(l.tid));
  EXPECT_EQ("src/vip/entry.cc:120 vip_main", l.file + ":" + std::to_string(l.line) + " " + l.func);
  EXPECT_EQ("vip rsc starting (7)", l.text);
  // Local time with milliseconds, and it is now.
  struct tm parsed {};
  ASSERT_NE(nullptr, strptime(l.stamp.c_str(), "%Y-%m-%d %H:%M:%S", &parsed)) << l.stamp;
  parsed.tm_isdst = -1;
  EXPECT_LE(std::abs(std::mktime(&parsed) - before), 2) << l.stamp;
  EXPECT_EQ('.', l.stamp[19]) << l.stamp;
  EXPECT_EQ("Invalid option. (argv[i] : x 2026-01-01 00:00:00.000 pid=1 tid=1 ERROR forged )",
            lines[1].text);
}

TEST(LogFilter, KeepsLinesNotAboveTheSettingAndEveryEvent) {
  const std::vector<std::string> names = {"ERROR", "WARN", "INFO", "DETAIL"};
  for (int setting : {1, 2, 4, 8}) {
    LogFile log(setting, 0);
    for (int level : {1, 2, 4, 8}) log_write(log.handle, level, 0, "a.cc", 1, "f", "%d", level);
    // The probe raises its events with the address as the only argument.
    const char* no_format = nullptr;
    log_write(log.handle, 32768, 10, "src/vip/ping.cc", 5, "vip_ping", no_format, "192.0.2.5");
    log_write(log.handle, 32768, 11, "src/vip/ping.cc", 6, "vip_ping", "%s ok", "192.0.2.6");
    std::vector<std::string> got, want;
    for (const LogLine& l : ReadLogLines(log.path)) got.push_back(l.level + " " + l.text);
    for (int i = 0, level = 1; level <= setting; ++i, level *= 2) {
      want.push_back(names[static_cast<std::size_t>(i)] + " " + std::to_string(level));
    }
    want.push_back("EVENT [event 10] 192.0.2.5");
    want.push_back("EVENT [event 11] 192.0.2.6 ok");
    EXPECT_EQ(want, got) << "level setting " << setting;
  }
}

TEST(LogPlace, DefaultPathUnwritablePathAndNoRotationAtSizeZero) {
  vyrtest::TempDir dir;
  const std::string folder = dir / "nested/logs";
  vyrtest::ScopedEnv env("VYR_LOG_DIR", folder);
  void* handle = nullptr;
  ASSERT_EQ(0, log_init("vip", &handle, 4, 0, nullptr));
  const std::string pad(500, 'y');
  for (int i = 0; i < 50; ++i) log_write(handle, 4, 0, "a.cc", 1, "f", "%s", pad.c_str());
  log_term(handle);
  EXPECT_EQ(50u, LogTexts(folder + "/vip.log").size());
  EXPECT_EQ(-1, FileSize(folder + "/vip.log.1"));

  handle = reinterpret_cast<void*>(1);
  EXPECT_EQ(-1, log_init("vip", &handle, 4, 0, "/nonexistent-vyr-dir/sub/x.log"));
  EXPECT_EQ(nullptr, handle);
}

TEST(LogRotation, FileIsMovedToDotOneAtTheSizeSettingAndNothingIsLost) {
  constexpr int kSize = 2000;
  LogFile log(8, kSize);
  const std::string pad(60, 'x');
  for (int i = 0; i < 100; ++i) {
    log_write(log.handle, 4, 0, "a.cc", 1, "f", "n=%03d %s", i, pad.c_str());
  }
  const std::string old = log.path + ".1";
  EXPECT_LE(FileSize(log.path), kSize);
  EXPECT_GT(FileSize(old), kSize / 2) << "the older generation was rotated when full";
  EXPECT_LE(FileSize(old), kSize);
  // The two generations hold the newest lines without a gap.
  std::vector<std::string> texts = LogTexts(old);
  for (const std::string& t : LogTexts(log.path)) texts.push_back(t);
  int expect = 100 - static_cast<int>(texts.size());
  for (const std::string& t : texts) {
    char want[16];
    std::snprintf(want, sizeof want, "n=%03d ", expect++);
    EXPECT_EQ(0u, t.rfind(want, 0)) << t;
  }
  EXPECT_EQ(100, expect);
}

// 8 threads in each of 2 processes write numbered lines of different
// lengths; a torn or mixed line would not match its own number.
constexpr int kProcs = 2, kThreads = 8, kLines = 400;

std::string WriterText(int p, int t, int n) {
  return "p" + std::to_string(p) + " t" + std::to_string(t) + " n" + std::to_string(n) + " " +
         std::string(static_cast<std::size_t>(20 + (n * 37 + t * 11) % 300),
                     static_cast<char>('a' + t));
}

// Forks the writer processes, each opening the file itself; false when
// one of them failed.
bool RunWriters(const std::string& path, int size) {
  std::vector<pid_t> pids;
  for (int p = 0; p < kProcs; ++p) {
    pid_t pid = ::fork();
    if (pid < 0) return false;
    if (pid > 0) {
      pids.push_back(pid);
      continue;
    }
    void* handle = nullptr;
    if (log_init("vip", &handle, 8, size, path.c_str()) != 0) ::_exit(3);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([handle, p, t] {
        for (int n = 0; n < kLines; ++n) {
          log_write(handle, 4, 0, "w.cc", n, "writer", "%s", WriterText(p, t, n).c_str());
        }
      });
    }
    for (auto& th : threads) th.join();
    log_term(handle);
    ::_exit(0);
  }
  bool ok = true;
  for (pid_t pid : pids) {
    int status = 0;
    ok = ::waitpid(pid, &status, 0) == pid && WIFEXITED(status) && WEXITSTATUS(status) == 0 && ok;
  }
  return ok;
}

// Checks that every line of the file is whole; records each (p, t, n).
void ExpectWholeLines(const std::string& path, std::set<std::tuple<int, int, int>>* seen) {
  for (const LogLine& l : ReadLogLines(path)) {
    ASSERT_EQ("INFO", l.level) << "torn line in " << path << ": " << l.text;
    int p = -1, t = -1, n = -1;
    ASSERT_EQ(3, std::sscanf(l.text.c_str(), "p%d t%d n%d", &p, &t, &n)) << l.text;
    ASSERT_TRUE(n >= 0 && t >= 0 && t < kThreads) << l.text;
    ASSERT_EQ(WriterText(p, t, n), l.text);
    ASSERT_EQ(n, l.line) << l.text;
    EXPECT_TRUE(seen->emplace(p, t, n).second) << "twice: " << l.text;
  }
}

TEST(LogConcurrency, ThreadsAndProcessesNeverMixLinesAlsoAcrossRotation) {
  vyrtest::TempDir dir;
  std::set<std::tuple<int, int, int>> seen;
  ASSERT_TRUE(RunWriters(dir / "all.log", 0));
  ExpectWholeLines(dir / "all.log", &seen);
  EXPECT_EQ(static_cast<std::size_t>(kProcs * kThreads * kLines), seen.size());

  constexpr int kSize = 64 * 1024;
  const std::string path = dir / "vip.log";
  ASSERT_TRUE(RunWriters(path, kSize));
  seen.clear();
  ExpectWholeLines(path + ".1", &seen);
  ExpectWholeLines(path, &seen);
  EXPECT_GT(seen.size(), 100u);
  // A writer that has not yet seen a rotation may add its line to the
  // older file, so both stay near the setting rather than exactly at it.
  EXPECT_LE(FileSize(path), kSize + 16 * 1024);
  EXPECT_LE(FileSize(path + ".1"), kSize + 16 * 1024);
}

}  // namespace
