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

using vyrtest::LogLine;
using vyrtest::LogTexts;
using vyrtest::ReadLogLines;

// The trace log opened on a private file; closed again at the end.
class TraceLog {
 public:
  explicit TraceLog(int level = 8) : path_(dir_ / "vip.log") {
    traceopen("vip", level, 0, path_.c_str());
  }
  ~TraceLog() { traceclose(); }
  const std::string& path() const { return path_; }
  std::vector<std::string> Texts() const { return LogTexts(path_); }
  LogLine Last() const {
    auto lines = ReadLogLines(path_);
    return lines.empty() ? LogLine{} : lines.back();
  }

 private:
  vyrtest::TempDir dir_;
  std::string path_;
};

TEST(TracePrefix, ResourceNameIsCutToEightAndLeftJustified) {
  struct Case {
    const char* name;
    const char* want;
  };
  const Case cases[] = {
      {"", "ready 1"},
      {"vip1", "vip1    : ready 1"},
      {"vip12", "vip12   : ready 1"},
      {"abcdefgh", "abcdefgh: ready 1"},
      {"resource-12a", "resource: ready 1"},
  };
  for (const Case& c : cases) {
    TraceLog log;
    tracetell(c.name);
    trace(4, "src/vip/entry.cc", 10, "vip_main", "ready %d", 1);
    EXPECT_EQ(std::vector<std::string>{c.want}, log.Texts()) << "name " << c.name;
    if (c.name[0] != '\0') {
      EXPECT_EQ(':', log.Texts()[0][8]);
    }
  }
}

TEST(TracePrefix, LineNamesTheCallersFileLineAndFunction) {
  TraceLog log;
  const int line = __LINE__ + 1;
  TRACE(TRACE_WARNING, "warned %s", "here");
  LogLine l = log.Last();
  EXPECT_EQ("WARN", l.level);
  EXPECT_EQ("tests/tracersc_test.cc", l.file) << "source names are relative to the tree";
  EXPECT_EQ(line, l.line);
  EXPECT_EQ("TestBody", l.func);
  EXPECT_EQ("warned here", l.text);
}

TEST(TracePrefix, PercentInsideAMessageIsWrittenLiterally) {
  TraceLog log;
  TRACE(TRACE_WARNING, "Invalid option. (argv[i] : %s)", "-x%d%s%n");
  tracetell("vip1");
  TRACE(TRACE_WARNING, "Invalid option. (argv[i] : %s)", "-x%d%s%n");
  trace2(TRACE_WARNING, "a.cc", 1, "f", "%s", "50%");
  EXPECT_EQ((std::vector<std::string>{"Invalid option. (argv[i] : -x%d%s%n)",
                                      "vip1    : Invalid option. (argv[i] : -x%d%s%n)",
                                      "vip1    :   50%"}),
            log.Texts());
}

TEST(TracePrefix, SecondLevelLinesAreIndented) {
  TraceLog log;
  trace2(TRACE_INFO, "a.cc", 1, "f", "inner %d", 2);
  tracetell("grp-vip");
  trace2(TRACE_INFO, "a.cc", 1, "f", "inner %d", 3);
  EXPECT_EQ((std::vector<std::string>{"  inner 2", "grp-vip :   inner 3"}), log.Texts());
}

TEST(TracePrefix, LongMessageIsCutTo1023Characters) {
  TraceLog log;
  const std::string big(3000, 'm');
  TRACE(TRACE_INFO, "%s", big.c_str());
  EXPECT_EQ(std::vector<std::string>{std::string(1023, 'm')}, log.Texts());
}

TEST(TraceResult, FormatsOfTheResultReportingEntryPoints) {
  TraceLog log;
  tracexml(4, "a.cc", 1, "f", "xmllib_get_value(%s)", "/root/x");
  EXPECT_EQ("ERROR", log.Last().level);
  EXPECT_EQ("  xmllib_get_value(/root/x) failed. (0x4 VYR_XMLERR_NOTEXIST_PATH)", log.Last().text);
  tracexml(0, "a.cc", 1, "f", "xmllib_init(%s)", "vip");
  EXPECT_EQ("DETAIL", log.Last().level);
  EXPECT_EQ("  xmllib_init(vip) success.", log.Last().text);
  traceshmrm(9, "a.cc", 1, "f", "shmrm_attach");
  EXPECT_EQ("  shmrm_attach failed. (0x9 SHMRM_ERR_SHMAT)", log.Last().text);
  traceshmrm(77, "a.cc", 1, "f", "shmrm_attach");
  EXPECT_EQ(
      "  shmrm_attach failed. (0x4d ?"
      "?)",
      log.Last().text);
  tracefunc(0x1f, "a.cc", 1, "f", "sem_attach");
  EXPECT_EQ("ERROR", log.Last().level);
  EXPECT_EQ("  sem_attach failed. (0x1f)", log.Last().text);
  tracefunc(0, "a.cc", 1, "f", "sem_attach");
  EXPECT_EQ("  sem_attach success.", log.Last().text);
  tracesys(-1, 13, "a.cc", 1, "f", "open(%s)", "/x");
  EXPECT_EQ("ERROR", log.Last().level);
  EXPECT_EQ("  open(/x) failed. (ret=-1,errno=13)", log.Last().text);

  tracetell("vip1");
  tracexml(4, "a.cc", 1, "f", "lookup");
  EXPECT_EQ("vip1    :   lookup failed. (0x4 VYR_XMLERR_NOTEXIST_PATH)", log.Last().text);
  tracesys(2, 5, "a.cc", 1, "f", "write");
  EXPECT_EQ("vip1    :   write failed. (ret=2,errno=5)", log.Last().text);
  tracefunc(0, "a.cc", 1, "f", "call");
  EXPECT_EQ("DETAIL", log.Last().level);
  EXPECT_EQ("vip1    :   call success.", log.Last().text);
}

TEST(TraceErrorNames, KnownNumbersGetTheirNameOthersQuestionMarks) {
  struct Case {
    void (*namer)(int, char*);
    int ret;
    const char* want;
  };
  const Case cases[] = {
      {makeerrstr_xml, 0, "VYR_XMLERR_SUCCESS"},
      {makeerrstr_xml, 4, "VYR_XMLERR_NOTEXIST_PATH"},
      {makeerrstr_xml, 10, "VYR_XMLERR_OTHER"},
      {makeerrstr_xml, 11, "??"},
      {makeerrstr_xml, -1, "??"},
      {makeerrstr_shmrm, 0, "??"},
      {makeerrstr_shmrm, 1, "??"},
      {makeerrstr_shmrm, 2, "SHMRM_ERR_NOTINIT"},
      {makeerrstr_shmrm, 9, "SHMRM_ERR_SHMAT"},
      {makeerrstr_shmrm, 15, "SHMRM_ERR_LOADCONF"},
      {makeerrstr_shmrm, 16, "??"},
  };
  for (const Case& c : cases) {
    char buf[128] = "stale";
    c.namer(c.ret, buf);
    EXPECT_STREQ(c.want, buf) << c.ret;
  }
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
  EXPECT_EQ((std::vector<std::string>{"[event 10] 192.0.2.9", "[event 11] 192.0.2.9 on va0",
                                      "[event 11] a/b/c", "[event 11] x y 42"}),
            log.Texts());
}

TEST(TraceLifecycle, SecondOpenKeepsTheLogButClearsThePrefix) {
  TraceLog first;
  tracetell("vip1");
  vyrtest::TempDir other;
  traceopen("vip", 8, 0, (other / "second.log").c_str());
  TRACE(TRACE_INFO, "after reopen");
  EXPECT_EQ(std::vector<std::string>{"after reopen"}, first.Texts());
  EXPECT_EQ("", vyrtest::ReadFile(other / "second.log")) << "the library is opened only once";

  traceclose();  // one close ends both opens
  TRACE(TRACE_INFO, "after close");
  EXPECT_EQ(std::vector<std::string>{"after reopen"}, first.Texts());
}

TEST(TraceLifecycle, NothingIsWrittenWhileClosed) {
  vyrtest::TempDir dir;
  vyrtest::ScopedEnv env("VYR_LOG_DIR", dir.path());
  TraceLog log;
  const std::string path = log.path();
  TRACE(TRACE_INFO, "open");
  traceclose();
  const char* no_format = nullptr;
  TRACE(TRACE_ERROR, "closed");
  trace2(TRACE_ERROR, "a.cc", 1, "f", "closed");
  tracemess(TRACE_EVENT, 10, "a.cc", 1, "f", no_format, "192.0.2.1");
  tracefunc(1, "a.cc", 1, "f", "closed");
  tracesys(1, 2, "a.cc", 1, "f", "closed");
  tracexml(4, "a.cc", 1, "f", "closed");
  traceshmrm(4, "a.cc", 1, "f", "closed");
  trace_ex(TRACE_ERROR, "a.cc", 1, "f", "closed");
  EXPECT_EQ(std::vector<std::string>{"open"}, LogTexts(path));
  EXPECT_TRUE(std::filesystem::is_empty(dir.path())) << "no default log was opened";
}

TEST(TraceLifecycle, SecondHandleIsIndependentAndSharesThePrefix) {
  TraceLog main_log;
  vyrtest::TempDir dir;
  const std::string ex_path = dir / "ex.log";
  tracetell("vip2");
  traceopen_ex("vipex", 8, 0, ex_path.c_str());
  trace_ex(TRACE_INFO, "a.cc", 1, "f", "to the second log");
  TRACE(TRACE_INFO, "to the first log");
  traceclose_ex();
  trace_ex(TRACE_INFO, "a.cc", 1, "f", "after its close");
  TRACE(TRACE_INFO, "first still open");
  EXPECT_EQ(std::vector<std::string>{"vip2    : to the second log"}, LogTexts(ex_path));
  EXPECT_EQ((std::vector<std::string>{"vip2    : to the first log", "vip2    : first still open"}),
            main_log.Texts());
}

}  // namespace
