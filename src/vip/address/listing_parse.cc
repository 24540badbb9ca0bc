#include "vip/address/listing_parse.h"

#include <arpa/inet.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/text.h"
#include "tracersc/tracersc.h"
#include "vip/address/addrtext.h"
#include "vip/base/globals.h"
#include "vip/base/status.h"

namespace vyr {

namespace {

constexpr int kFirstCapacity = 16;

}  // namespace

IfconfigListParser::IfconfigListParser(bool ipv6) : ipv6_(ipv6) {}

// Grows geometrically so that long listings cost linear time; new room is
// zeroed as every entry starts empty.
int IfconfigListParser::AddEntry() {
  if (count_ == capacity_) {
    const int wanted = capacity_ == 0 ? kFirstCapacity : capacity_ * 2;
    const std::size_t bytes = sizeof(ipaddrinfo) * static_cast<std::size_t>(wanted);
    void* grown = std::realloc(list_.get(), bytes);
    if (grown == nullptr) {
      TRACE(TRACE_ERROR,
            capacity_ == 0 ? "malloc(%d) failed. (errno=%d)" : "realloc(%d) failed. (errno=%d)",
            static_cast<int>(bytes), errno);
      list_.reset();
      count_ = capacity_ = 0;
      return Fail(status::kNoMemory);
    }
    (void)list_.release();  // realloc has taken the old block over
    list_.reset(static_cast<ipaddrinfo*>(grown));
    std::memset(list_.get() + capacity_, 0,
                sizeof(ipaddrinfo) * static_cast<std::size_t>(wanted - capacity_));
    capacity_ = wanted;
  }
  list_.get()[count_].index = static_cast<unsigned int>(count_);
  ++count_;
  return 0;
}

int IfconfigListParser::OpenBlock(const char* name) {
  const int ret = AddEntry();
  if (ret != 0) return ret;
  std::snprintf(current().ifname, sizeof current().ifname, "%s", name);
  return 0;
}

int IfconfigListParser::TakeHardwareAddress(const char* token) {
  ipaddrinfo& entry = current();
  std::snprintf(entry.smac, sizeof entry.smac, "%s", token);
  const int ret = vip_crt_macaddr(entry.smac, entry.macaddr);
  if (ret != 0) TRACE(TRACE_ERROR, "vip_crt_macaddr() failed. (ret=%d)", ret);
  return ret;
}

// A second IPv6 address of a block becomes an entry of its own with the
// block's name and hardware address.
int IfconfigListParser::TakeIpv6Address(const char* token) {
  if (current().sipel.addr[0] != '\0') {
    const int from = count_ - 1;
    const int ret = AddEntry();
    if (ret != 0) return ret;
    const ipaddrinfo& block = list_.get()[from];
    ipaddrinfo& entry = current();
    std::memcpy(entry.ifname, block.ifname, sizeof entry.ifname);
    std::memcpy(entry.smac, block.smac, sizeof entry.smac);
    std::memcpy(entry.macaddr, block.macaddr, 6);
  }
  ipaddrinfo& entry = current();
  const int ret =
      vip_div_ipmask(token, entry.sipel.addr, entry.sipel.mask, &entry.sipel.masklen, true);
  if (ret != 0) {
    TRACE(TRACE_ERROR, "vip_div_ipmask failed. (ret=%d)", ret);
    return ret;
  }
  ::inet_pton(AF_INET6, entry.sipel.addr, &entry.nipel6.addr);
  ::inet_pton(AF_INET6, entry.sipel.mask, &entry.nipel6.mask);
  return 0;
}

int IfconfigListParser::ExamineIpv4(char** tokens, int n, int* i, bool* hw_pending) {
  const char* tok = tokens[*i];
  ipaddrinfo& entry = current();
  if (EqualsNoCase(tok, "inet")) {
    if (*i + 1 >= n) return 0;  // an "inet" ending the line takes nothing
    tok = tokens[++*i];
    if (StartsWithNoCase(tok, "addr:")) {
      std::snprintf(entry.sipel.addr, sizeof entry.sipel.addr, "%s", tok + 5);
      if (::inet_pton(AF_INET, entry.sipel.addr, &entry.nipel.addr) != 1) entry.nipel.addr = {};
      return 0;
    }
  }
  if (StartsWithNoCase(tok, "mask:")) {
    std::snprintf(entry.sipel.mask, sizeof entry.sipel.mask, "%s", tok + 5);
    if (::inet_pton(AF_INET, entry.sipel.mask, &entry.nipel.mask) != 1) entry.nipel.mask = {};
  } else if (EqualsNoCase(tok, "HWaddr")) {
    *hw_pending = true;
  }
  return 0;
}

int IfconfigListParser::ExamineIpv6(char** tokens, int n, int* i, bool* hw_pending) {
  const char* tok = tokens[*i];
  if (EqualsNoCase(tok, "inet6")) {
    if (*i + 1 >= n) return 0;
    tok = tokens[++*i];
    if (StartsWithNoCase(tok, "addr:")) {
      if (*i + 1 >= n) return 0;
      return TakeIpv6Address(tokens[++*i]);
    }
  }
  if (EqualsNoCase(tok, "HWaddr")) *hw_pending = true;
  return 0;
}

int IfconfigListParser::FeedLine(char* line) {
  vip_chop(line);
  const bool opens_block = line[0] != '\0' && !std::isspace(static_cast<unsigned char>(line[0]));
  char* tokens[kMaxTokens];
  const int n = CutTokens(line, tokens, kMaxTokens);
  int i = 0;
  if (opens_block && n > 0) {
    const int ret = OpenBlock(tokens[0]);
    if (ret != 0) return ret;
    i = 1;
  }
  if (count_ == 0) return 0;  // nothing before the first block counts
  bool hw_pending = false;
  for (; i < n; ++i) {
    if (hw_pending) {
      hw_pending = false;
      const int ret = TakeHardwareAddress(tokens[i]);
      if (ret != 0) return ret;
    }
    const int ret =
        ipv6_ ? ExamineIpv6(tokens, n, &i, &hw_pending) : ExamineIpv4(tokens, n, &i, &hw_pending);
    if (ret != 0) return ret;
  }
  return 0;
}

void IfconfigListParser::Release(ipaddrinfo** list, int* num) {
  *num = count_;
  *list = list_.release();
  count_ = capacity_ = 0;
}

int ParseIfconfigText(std::string_view text, bool ipv6, ipaddrinfo** list, int* num) {
  IfconfigListParser parser(ipv6);
  char line[kLineMax];
  while (!text.empty()) {
    // Cut like a 1024-byte line read: up to the newline, at most 1023 bytes.
    std::size_t take = text.find('\n');
    take = take == std::string_view::npos ? text.size() : take + 1;
    if (take > kLineMax - 1) take = kLineMax - 1;
    std::memcpy(line, text.data(), take);
    line[take] = '\0';
    text.remove_prefix(take);
    const int ret = parser.FeedLine(line);
    if (ret != 0) return ret;
  }
  parser.Release(list, num);
  return 0;
}

}  // namespace vyr
