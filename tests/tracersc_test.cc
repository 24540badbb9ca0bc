// The trace log: resource prefix, line formats of every entry point, error
// names, open/close counting and silence while closed.
#include "tracersc/tracersc.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/log_lines.h"
#include "support/sh.h"

namespace {

using Texts = std::vector<std::string>;
using vyrtest::LogTexts;

// The trace log opened on a private file; closed again at the end.
class TraceLog {
 public:
  explicit TraceLog(int level = 8) : path_(dir_ / "vip.log") {
    traceopen("vip", level, 0, path_.c_str());
  }
  ~TraceLog() { traceclose(); }
  const std::string& path() const { return path_; }
  Texts texts() const { return LogTexts(path_); }
  // "LEVEL text" of every line.
  Texts Leveled() const {
    Texts out;
    for (const auto& l : vyrtest::ReadLogLines(path_)) out.push_back(l.level + " " + l.text);
    return out;
  }

 private:
  vyrtest::TempDir dir_;
  std::string path_;
};

TEST(TracePrefix, ResourceNameIsCutToEightAndLeftJustified) {
  const std::pair<const char*, const char*> cases[] = {
      {"", "ready 1"},
      {"vip12", "vip12   : ready 1"},
      {"abcdefgh", "abcdefgh: ready 1"},
      {"resource-12a", "resource: ready 1"},
  };
  for (const auto& [name, want] : cases) {
    TraceLog log;
    tracetell(name);
    trace(4, "src/vip/entry.cc", 10, "vip_main", "ready %d", 1);
    EXPECT_EQ(Texts{want}, log.texts()) << "name " << name;
  }
}

TEST(TracePrefix, CallerPercentIndentAndLength) {
  TraceLog log;
  const int line = __LINE__ + 1;
  TRACE(TRACE_WARNING, "Invalid option. (argv[i] : %s)", "-x%d%s%n");
  auto lines = vyrtest::ReadLogLines(log.path());
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ("tests/tracersc_test.cc:" + std::to_string(line) + " TestBody",
            lines[0].file + ":" + std::to_string(lines[0].line) + " " + lines[0].func);
  trace2(TRACE_INFO, "a.cc", 1, "f", "inner %d", 2);
  tracetell("grp-vip");
  TRACE(TRACE_WARNING, "Invalid option. (argv[i] : %s)", "-x%d%s%n");
  trace2(TRACE_WARNING, "a.cc", 1, "f", "%s", "50%");
  tracetell("");
  TRACE(TRACE_INFO, "%s", std::string(3000, 'm').c_str());
  EXPECT_EQ((Texts{"WARN Invalid option. (argv[i] : -x%d%s%n)", "INFO   inner 2",
                   "WARN grp-vip : Invalid option. (argv[i] : -x%d%s%n)", "WARN grp-vip :   50%",
                   "INFO " + std::string(1023, 'm')}),
            log.Leveled());
}

TEST(TraceResult, FormatsOfTheResultReportingEntryPoints) {
  TraceLog log;
  tracexml(4, "a.cc", 1, "f", "xmllib_get_value(%s)", "/root/x");
  tracexml(0, "a.cc", 1, "f", "xmllib_init(%s)", "vip");
  traceshmrm(9, "a.cc", 1, "f", "shmrm_attach");
  traceshmrm(77, "a.cc", 1, "f", "shmrm_attach");
  tracefunc(0x1f, "a.cc", 1, "f", "sem_attach");
  tracefunc(0, "a.cc", 1, "f", "sem_attach");
  tracesys(-1, 13, "a.cc", 1, "f", "open(%s)", "/x");
  tracetell("vip1");
  tracexml(4, "a.cc", 1, "f", "lookup");
  tracesys(2, 5, "a.cc", 1, "f", "write");
  tracefunc(0, "a.cc", 1, "f", "call");
  EXPECT_EQ((Texts{
                "ERROR   xmllib_get_value(/root/x) failed. (0x4 VYR_XMLERR_NOTEXIST_PATH)",
                "DETAIL   xmllib_init(vip) success.",
                "ERROR   shmrm_attach failed. (0x9 SHMRM_ERR_SHMAT)",
                "ERROR   shmrm_attach failed. (0x4d ?"
                "?)",
                "ERROR   sem_attach failed. (0x1f)",
                "DETAIL   sem_attach success.",
                "ERROR   open(/x) failed. (ret=-1,errno=13)",
                "ERROR vip1    :   lookup failed. (0x4 VYR_XMLERR_NOTEXIST_PATH)",
                "ERROR vip1    :   write failed. (ret=2,errno=5)",
                "DETAIL vip1    :   call success.",
            }),
            log.Leveled());
}

TEST(TraceErrorNames, KnownNumbersGetTheirNameOthersQuestionMarks) {
  std::string got;
  auto name = [&got](void (*namer)(int, char*), int ret) {
    char buf[128] = "stale";
    namer(ret, buf);
    got += std::string(buf) + " ";
  };
  for (int ret : {0, 4, 10, 11, -1}) name(makeerrstr_xml, ret);
  for (int ret : {0, 1, 2, 9, 15, 16}) name(makeerrstr_shmrm, ret);
  EXPECT_EQ(
      "VYR_XMLERR_SUCCESS VYR_XMLERR_NOTEXIST_PATH VYR_XMLERR_OTHER ?? ?? "
      "?? ?? SHMRM_ERR_NOTINIT SHMRM_ERR_SHMAT SHMRM_ERR_LOADCONF ?? ",
      got);
}

TEST(TraceEvents, MessagesGoStraightToTheLibraryWithoutPrefix) {
  TraceLog log(1);
  tracetell("vip1");
  const char* no_format = nullptr;
  tracemess(TRACE_EVENT, 10, "src/vip/ping.cc", 3, "vip_ping", no_format, "192.0.2.9");
  tracemess2(TRACE_EVENT, 11, "a.cc", 1, "f", "%s on %s", "192.0.2.9", "va0");
  tracemess3(TRACE_EVENT, 11, "a.cc", 1, "f", "%s/%s/%s", "a", "b", "c");
  tracemess4(TRACE_EVENT, 11, "a.cc", 1, "f", "%s %s %d", "x", "y", 42);
  tracemess(TRACE_INFO, 0, "a.cc", 1, "f", "%s", "filtered by the level setting");
  EXPECT_EQ((Texts{"[event 10] 192.0.2.9", "[event 11] 192.0.2.9 on va0", "[event 11] a/b/c",
                   "[event 11] x y 42"}),
            log.texts());
}

// A second open keeps the first log and clears the prefix; one close ends
// both; nothing is written while closed; the _ex handle is independent.
TEST(TraceLifecycle, OpenCountSecondHandleAndSilenceWhileClosed) {
  vyrtest::TempDir dir;
  vyrtest::ScopedEnv env("VYR_LOG_DIR", dir / "default");
  TraceLog log;
  tracetell("vip1");
  traceopen("vip", 8, 0, (dir / "second.log").c_str());
  TRACE(TRACE_INFO, "after reopen");
  tracetell("vip2");
  traceopen_ex("vipex", 8, 0, (dir / "ex.log").c_str());
  trace_ex(TRACE_INFO, "a.cc", 1, "f", "to the second log");
  traceclose_ex();
  trace_ex(TRACE_INFO, "a.cc", 1, "f", "after its close");
  TRACE(TRACE_INFO, "first still open");
  traceclose();
  const char* no_format = nullptr;
  TRACE(TRACE_ERROR, "closed");
  trace2(TRACE_ERROR, "a.cc", 1, "f", "closed");
  tracemess(TRACE_EVENT, 10, "a.cc", 1, "f", no_format, "192.0.2.1");
  tracefunc(1, "a.cc", 1, "f", "closed");
  tracesys(1, 2, "a.cc", 1, "f", "closed");
  tracexml(4, "a.cc", 1, "f", "closed");
  traceshmrm(4, "a.cc", 1, "f", "closed");
  EXPECT_EQ((Texts{"after reopen", "vip2    : first still open"}), log.texts());
  EXPECT_EQ("", vyrtest::ReadFile(dir / "second.log")) << "the library is opened only once";
  EXPECT_EQ(Texts{"vip2    : to the second log"}, LogTexts(dir / "ex.log"));
  EXPECT_FALSE(std::filesystem::exists(dir / "default")) << "no default log was opened";
}

}  // namespace
