// The address-change pieces' tests: the test thread on the agent's side of
// a namespace pair, and builders for the records the pieces take.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "nicCommon/addrinfo.h"
#include "support/netns.h"
#include "vip/base/globals.h"

namespace vyrtest {

// The status description as the cluster would read it.
inline std::string StatusText() {
  char text[VIP_SHMBUF_LEN];
  vip_get_shmbuf(text);
  return text;
}

// An IPv4 record: text and network forms of the address and mask.
inline vdevinfo Vdev4(const char* ifname, const char* vdevname, const char* addr,
                      const char* mask = "255.255.255.0", const char* bcast = "192.0.2.255") {
  vdevinfo v{};
  std::snprintf(v.ifname, sizeof v.ifname, "%s", ifname);
  std::snprintf(v.vdevname, sizeof v.vdevname, "%s", vdevname);
  std::snprintf(v.sipel.addr, sizeof v.sipel.addr, "%s", addr);
  std::snprintf(v.sipel.mask, sizeof v.sipel.mask, "%s", mask);
  std::snprintf(v.bcast, sizeof v.bcast, "%s", bcast);
  inet_pton(AF_INET, addr, &v.nipel.addr);
  if (mask[0] != '\0') inet_pton(AF_INET, mask, &v.nipel.mask);
  return v;
}

// An IPv6 record: the address on the interface itself with its prefix.
inline vdevinfo Vdev6(const char* ifname, const char* addr, int masklen) {
  vdevinfo v = Vdev4(ifname, "", addr, "", "");
  v.sipel.masklen = masklen;
  inet_pton(AF_INET6, addr, &v.nipel6.addr);
  return v;
}

// An entry of an address list, as the listing would give it.
inline ipaddrinfo ListEntry(const std::string& name, const char* mask = "255.255.255.0",
                            const char* mac = "02:00:00:00:00:01", int masklen = 0) {
  ipaddrinfo e{};
  std::snprintf(e.ifname, sizeof e.ifname, "%s", name.c_str());
  inet_pton(AF_INET, mask, &e.nipel.mask);
  std::snprintf(e.smac, sizeof e.smac, "%s", mac);
  unsigned char* b = e.macaddr;
  std::sscanf(mac, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5]);
  e.sipel.masklen = masklen;
  return e;
}

// The test thread sits in the agent's namespace (device va0, peer vb0).
class AgentNetnsTest : public NetnsTest {
 protected:
  void SetUp() override {
    SetUpNamespaces();
    if (IsSkipped() || HasFatalFailure()) return;
    inside_ = std::make_unique<ScopedNetns>(pair_->agent());
    ASSERT_TRUE(inside_->ok());
    ipv6flag = 0;
    vip_clear_shmbuf();
  }
  // The thread leaves the namespaces (inside_ goes first) with the fixture.
  void TearDown() override { ipv6flag = 0; }

  std::unique_ptr<ScopedNetns> inside_;
};

}  // namespace vyrtest
