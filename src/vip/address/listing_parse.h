// Reading the older "ifconfig -a" layout into an address list: one block
// per interface or alias, "inet addr:" / "Mask:" for IPv4, "inet6 addr: x/64"
// for IPv6, the hardware address after "HWaddr". Takes text, runs nothing,
// so it serves the listing worker and tests on recorded output alike.
#pragma once

#include <cstdlib>
#include <memory>
#include <string_view>

#include "nicCommon/addrinfo.h"

namespace vyr {

class IfconfigListParser {
 public:
  // Reads the IPv6 layout when `ipv6`, else the IPv4 one.
  explicit IfconfigListParser(bool ipv6);
  IfconfigListParser(const IfconfigListParser&) = delete;
  IfconfigListParser& operator=(const IfconfigListParser&) = delete;

  // One line as the listing reads it (at most 1023 characters, the newline
  // may still be on it); the line is cut up in place. Returns 0, or the
  // listing's failure code: 10 no memory, 18 malformed hardware address,
  // 31 invalid IPv6 prefix. Feed nothing more after a failure.
  int FeedLine(char* line);

  // Hands the list over (null when no block was seen; free with std::free)
  // and its count. The parser is empty afterwards.
  void Release(ipaddrinfo** list, int* num);

 private:
  struct Free {
    void operator()(ipaddrinfo* list) const { std::free(list); }
  };

  int AddEntry();
  int OpenBlock(const char* name);
  int TakeHardwareAddress(const char* token);
  int TakeIpv6Address(const char* token);
  int ExamineIpv4(char** tokens, int n, int* i, bool* hw_pending);
  int ExamineIpv6(char** tokens, int n, int* i, bool* hw_pending);
  ipaddrinfo& current() { return list_.get()[count_ - 1]; }

  std::unique_ptr<ipaddrinfo, Free> list_;
  int count_ = 0;
  int capacity_ = 0;
  bool ipv6_ = false;
};

// Parses a whole recorded output of the family `ipv6` says, the way the
// listing reads it (lines of at most 1023 characters). On 0 hands the list
// over as Release does; on a failure the outputs are not touched.
int ParseIfconfigText(std::string_view text, bool ipv6, ipaddrinfo** list, int* num);

}  // namespace vyr
