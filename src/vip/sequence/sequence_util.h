// Pieces shared by the activation and deactivation sequences.
#pragma once

#include <cstdlib>
#include <memory>

#include "nicCommon/addrinfo.h"

namespace vyr {

// Owns an address list returned by the listing (a plain calloc'ed array).
struct AddrListFree {
  void operator()(ipaddrinfo* list) const { std::free(list); }
};
using AddrList = std::unique_ptr<ipaddrinfo[], AddrListFree>;

// Holds the cluster's interface-change critical section for its lifetime,
// or until Leave(). Entering may fail (then the bindings skip the leave); the
// sequence goes on either way.
class IfconfigCriticalSection {
 public:
  IfconfigCriticalSection();
  ~IfconfigCriticalSection() { Leave(); }
  // Leaves the section early (lock/short); later calls do nothing.
  void Leave();
  IfconfigCriticalSection(const IfconfigCriticalSection&) = delete;
  IfconfigCriticalSection& operator=(const IfconfigCriticalSection&) = delete;

 private:
  bool held_ = true;
};

// The node's npsimu flag as the probe sees it: not read (0) when the
// resource probes regardless; a failed read counts as 0.
int ProbeNpsimuFlag(int pingnpsimu);

// The virtual address in network form, for the presence test.
struct NetAddress {
  bool ipv6 = false;
  in_addr v4{};
  in6_addr v6{};
};
NetAddress ToNetAddress(const char* text, bool ipv6);

// Index of the first entry that carries the address, or -1.
int FindAddress(const ipaddrinfo* list, int num, const NetAddress& address);

// Lists every local address with the run's tool and limit. On success the
// list owner and its count are replaced.
int ListAddresses(const char* cmdpath, int timeout, AddrList* list, int* num);

}  // namespace vyr
