// The trace log: resource prefix, line formats of the entry points, error
// names, events and silence while closed.
#include "tracersc/tracersc.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/trace_capture.h"

namespace {

using Texts = std::vector<std::string>;

// A wrong prefix width or cut, a '%' from a value read as a format, a lost
// indent, a long text not cut, or a wrong result or error name.
TEST(TraceLines, PrefixIndentPercentAndResults) {
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
                   "ERROR   shmrm_attach failed. (0x4d ?"
                   "?)",
                   "ERROR   sem_attach failed. (0x1f)", "DETAIL vip1    :   sem_attach success.",
                   "ERROR vip1    :   open(/x) failed. (ret=-1,errno=13)"}),
            log.Texts(""));
}

// Events pass the level setting without prefix; nothing is written once
// the log is closed.
TEST(TraceLines, EventsAndSilenceWhenClosed) {
  vyrtest::TraceCapture log(TRACE_ERROR);
  tracetell("vip1");
  const char* no_format = nullptr;
  tracemess(TRACE_EVENT, 10, "src/vip/ping.cc", 3, "vip_ping", no_format, "192.0.2.9");
  tracemess2(TRACE_EVENT, 11, "a.cc", 1, "f", "%s on %s", "192.0.2.9", "va0");
  tracemess(TRACE_INFO, 0, "a.cc", 1, "f", "%s", "below the level setting");
  traceclose();
  TRACE(TRACE_ERROR, "closed");
  tracemess(TRACE_EVENT, 10, "a.cc", 1, "f", no_format, "192.0.2.1");
  EXPECT_EQ((Texts{"EVENT [event 10] 192.0.2.9", "EVENT [event 11] 192.0.2.9 on va0"}),
            log.Texts(""));
}

}  // namespace
