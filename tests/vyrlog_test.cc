// The cluster log library and the agent's trace log on it.
#include "vyrlog.h"

#include <gtest/gtest.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/log_lines.h"
#include "support/sh.h"
#include "support/trace_capture.h"
#include "tracersc/tracersc.h"

namespace {

// A wrong layout field, a time that is not local now, or a newline forging a line.
TEST(LogLayout, LineCarriesTimePidTidLevelPlaceAndText) {
  vyrtest::TempDir dir;
  void* handle = nullptr;
  ASSERT_EQ(0, log_init("vip", &handle, 8, 0, (dir / "vip.log").c_str()));
  const std::time_t before = std::time(nullptr);
  log_write(handle, 4, 0, "src/vip/entry.cc", 120, "vip_main", "vip rsc %s (%d)", "starting", 7);
  log_write(handle, 2, 0, "a.cc", 1, "f", "bad: %s", "x\n2026-01-01 00:00:00.000 pid=1 ERROR y\r");
  log_term(handle);
  auto lines = vyrtest::ReadLogLines(dir / "vip.log");
  ASSERT_EQ(2u, lines.size());
  const vyrtest::LogLine& l = lines[0];
  EXPECT_EQ(std::to_string(::getpid()) + " " + std::to_string(::syscall(SYS_gettid)) +
                " INFO src/vip/entry.cc:120 vip_main: vip rsc starting (7)",
            std::to_string(l.pid) + " " + std::to_string(l.tid) + " " + l.level + " " + l.file +
                ":" + std::to_string(l.line) + " " + l.func + ": " + l.text);
  struct tm parsed {};
  ASSERT_NE(nullptr, strptime(l.stamp.c_str(), "%Y-%m-%d %H:%M:%S", &parsed)) << l.stamp;
  parsed.tm_isdst = -1;
  EXPECT_LE(std::abs(std::mktime(&parsed) - before), 2) << "not local time now: " << l.stamp;
  EXPECT_EQ("bad: x 2026-01-01 00:00:00.000 pid=1 ERROR y ", lines[1].text);
}

// Thread t of process p writes line n with a text of its own length.
std::string WriterText(unsigned p, unsigned t, unsigned n) {
  return "p" + std::to_string(p) + " t" + std::to_string(t) + " n" + std::to_string(n) + " " +
         std::string(20u + (n * 37u + t * 11u) % 300u, static_cast<char>('a' + t));
}

// 2 processes of 8 threads, 400 lines each, one rotation: no torn or lost line.
TEST(LogConcurrency, ThreadsAndProcessesNeverMixOrLoseLinesAcrossRotation) {
  constexpr int kSize = 1024 * 1024;
  vyrtest::TempDir dir;
  const std::string path = dir / "vip.log";
  std::vector<pid_t> writers;
  for (unsigned p = 0; p < 2; ++p) {
    if (writers.emplace_back(::fork()) != 0) continue;
    void* handle = nullptr;
    if (log_init("vip", &handle, 8, kSize, path.c_str()) != 0) ::_exit(3);
    std::vector<std::thread> threads;
    for (unsigned t = 0; t < 8; ++t) {
      threads.emplace_back([=] {
        for (unsigned n = 0; n < 400; ++n) {
          log_write(handle, 4, 0, "w.cc", 1, "writer", "%s", WriterText(p, t, n).c_str());
        }
      });
    }
    for (auto& th : threads) th.join();
    log_term(handle);
    ::_exit(0);
  }
  for (pid_t pid : writers) {
    int status = -1;
    EXPECT_TRUE(pid > 0 && ::waitpid(pid, &status, 0) == pid && status == 0) << "writer failed";
  }
  std::vector<std::string> texts;
  for (const std::string& file : {path + ".1", path}) {
    for (const vyrtest::LogLine& l : vyrtest::ReadLogLines(file)) {
      unsigned p = 0, t = 0, n = 0;
      ASSERT_EQ(3, std::sscanf(l.text.c_str(), "p%u t%u n%u", &p, &t, &n)) << "torn: " << l.text;
      ASSERT_EQ(WriterText(p, t, n), l.text);
      texts.push_back(l.text);
    }
  }
  EXPECT_EQ(texts.size(), 2u * 8u * 400u) << "lines lost or doubled";
  EXPECT_EQ(std::set<std::string>(texts.begin(), texts.end()).size(), texts.size());
  const std::size_t older = vyrtest::ReadFile(path + ".1").size();
  EXPECT_TRUE(older > kSize / 2 && older <= kSize + 16 * 1024) << "rotated at " << older;
}

using Texts = std::vector<std::string>;

// A wrong prefix width or cut, a value's '%' read as a format, a lost indent, a
// long text not cut, a wrong result or error name, or a held-back event.
TEST(TraceLines, PrefixIndentPercentResultsEventsAndSilence) {
  vyrtest::TraceCapture log;
  for (const char* name : {"vip12", "abcdefgh", "resource-12a", ""}) {
    tracetell(name);
    TRACE(TRACE_WARNING, "Invalid option. (argv[i] : %s)", "-x%d%s%n");
  }
  trace2(TRACE_INFO, "a.cc", 1, "f", "inner %d", 2);
  TRACE(TRACE_INFO, "%s", std::string(3000, 'm').c_str());
  tracexml(4, "a.cc", 1, "f", "xmllib_get_value(%s)", "/root/x");
  tracexml(0, "a.cc", 1, "f", "xmllib_init(%s)", "vip");
  traceshmrm(9, "a.cc", 1, "f", "shmrm_attach");
  traceshmrm(77, "a.cc", 1, "f", "shmrm_attach");
  tracefunc(0x1f, "a.cc", 1, "f", "sem_attach");
  tracetell("vip1");
  tracefunc(0, "a.cc", 1, "f", "sem_attach");
  tracesys(-1, 13, "a.cc", 1, "f", "open(%s)", "/x");
  EXPECT_EQ((Texts{"WARN vip12   : Invalid option. (argv[i] : -x%d%s%n)",
                   "WARN abcdefgh: Invalid option. (argv[i] : -x%d%s%n)",
                   "WARN resource: Invalid option. (argv[i] : -x%d%s%n)",
                   "WARN Invalid option. (argv[i] : -x%d%s%n)", "INFO   inner 2",
                   "INFO " + std::string(1023, 'm'),
                   "ERROR   xmllib_get_value(/root/x) failed. (0x4 VYR_XMLERR_NOTEXIST_PATH)",
                   "DETAIL   xmllib_init(vip) success.",
                   "ERROR   shmrm_attach failed. (0x9 SHMRM_ERR_SHMAT)",
                   "ERROR   shmrm_attach failed. (0x4d \?\?)", "ERROR   sem_attach failed. (0x1f)",
                   "DETAIL vip1    :   sem_attach success.",
                   "ERROR vip1    :   open(/x) failed. (ret=-1,errno=13)"}),
            log.Texts(""));
  // Events pass the level setting without prefix; a closed log takes nothing.
  vyrtest::TraceCapture errors(TRACE_ERROR);
  tracetell("vip1");
  const char* no_format = nullptr;
  tracemess(TRACE_EVENT, 10, "src/vip/ping.cc", 3, "vip_ping", no_format, "192.0.2.9");
  tracemess2(TRACE_EVENT, 11, "a.cc", 1, "f", "%s on %s", "192.0.2.9", "va0");
  tracemess(TRACE_INFO, 0, "a.cc", 1, "f", "%s", "below the level setting");
  traceclose();
  TRACE(TRACE_ERROR, "closed");
  tracemess(TRACE_EVENT, 10, "a.cc", 1, "f", no_format, "192.0.2.1");
  EXPECT_EQ((Texts{"EVENT [event 10] 192.0.2.9", "EVENT [event 11] 192.0.2.9 on va0"}),
            errors.Texts(""));
}

}  // namespace
