// Watching one link for hosts that speak for an address: the engine under
// the ARP probe, the agent's own IPv6 duplicate address detection and the
// "who has this address" queries. A packet socket bound to the interface
// with a kernel filter that passes only ARP or Neighbor Discovery frames
// about the address; frames go out of the same socket, and our own frames
// and those from the interface's own MAC never count.
//
// One object per probe, used by one thread at a time (any thread).
#pragma once

#include <netinet/in.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <random>

#include "unique_fd.h"
#include "vip/defence/arp.h"
#include "vip/defence/raw_link.h"

namespace vyr {

using Clock = std::chrono::steady_clock;

// The address asked about.
struct LinkTarget {
  bool ipv6 = false;
  in_addr v4{};
  in6_addr v6{};
};

// Reads an IPv4 or IPv6 address (no prefix). False when it is neither.
bool ParseLinkTarget(const char* text, LinkTarget* out);

// Which frames count as a claim on the address.
enum class Claims {
  // A host speaks for it: an ARP frame with it as sender protocol address,
  // a Neighbor Advertisement for it.
  kAnswers,
  // Also a host about to take it (RFC 5227 2.1.1, RFC 4862 5.4.3): an ARP
  // probe (sender 0.0.0.0) for it, a Neighbor Solicitation from :: for it.
  kAnswersAndProbes,
};

class ClaimWatch {
 public:
  // Opens the watch on `ifname` (an alias name stands for its interface).
  // With kAnswersAndProbes and an IPv6 target the solicited-node group of
  // the address is joined, so another host's probe reaches us. 0, 19 (socket,
  // filter) or 20 (the interface's index or MAC); traced, no description.
  int Open(const char* ifname, const LinkTarget& target, Claims claims);

  // Sends one whole frame out of the interface. 0, or 21 traced.
  int Send(const void* frame, std::size_t len);

  // Waits until `until` for a claim from another MAC. 15 with that MAC in
  // `claimant` as soon as one arrives; 0 once `until` has passed; 19 when
  // the socket fails.
  int WaitClaim(Clock::time_point until, unsigned char* claimant);

  // Whether the claim WaitClaim reported last was a probe (a host about
  // to take the address) rather than an answer.
  bool ClaimWasProbe() const { return probe_; }

  const unsigned char* mac() const { return mac_; }
  // The descriptors the watch holds (-1 when none), for a detached process
  // that keeps watching.
  int fd() const { return sock_.get(); }
  int group_fd() const { return group_.get(); }
  unsigned ifindex() const { return ifindex_; }

 private:
  bool IsClaim(const unsigned char* frame, std::size_t len) const;
  bool IsProbe(const unsigned char* frame) const;
  void JoinSolicitedNode();

  UniqueFd sock_;
  UniqueFd group_;  // IPv6 probes: holds the solicited-node membership
  LinkTarget target_;
  Claims claims_ = Claims::kAnswers;
  unsigned ifindex_ = 0;
  unsigned char mac_[kMacLen] = {};
  bool probe_ = false;
};

// RFC 5227's probe count.
inline constexpr int kProbeNum = 3;

// When the probes of a window of `window_ms` go out, from its start: RFC
// 5227's intervals scaled to the window, with the window taking the place of
// the RFC's longest run (PROBE_WAIT + 2 x PROBE_MAX + ANNOUNCE_WAIT, seven
// seconds): the first probe after a random wait of up to 1/7 of the window,
// each next one 1/7 to 2/7 later, so at least 2/7 of the window (the scaled
// ANNOUNCE_WAIT) is left after the last one.
std::array<std::chrono::microseconds, kProbeNum> ProbeTimes(int window_ms, std::mt19937& random);

// Sends `frame` at `times` from now and watches until `window_ms` has
// passed; the first claim ends it at once. 0, 15 (claimant in `claimant`),
// 19 or 21.
template <std::size_t N>
int RunProbes(ClaimWatch& watch, const void* frame, std::size_t len,
              const std::array<std::chrono::microseconds, N>& times, int window_ms,
              unsigned char* claimant) {
  const Clock::time_point start = Clock::now();
  for (const std::chrono::microseconds at : times) {
    int ret = watch.WaitClaim(start + at, claimant);
    if (ret == 0) ret = watch.Send(frame, len);
    if (ret != 0) return ret;
  }
  return watch.WaitClaim(start + std::chrono::milliseconds(window_ms), claimant);
}

// The frame as it goes on the wire: Ethernet header, IPv6 header, the
// solicitation and its optional Source Link-Layer Address option. Numbers in
// network order.
struct __attribute__((packed)) ns_frame {
  unsigned char eth_dst[6];  // 33:33:ff + the target's last three bytes
  unsigned char eth_src[6];
  uint16_t eth_type;  // 0x86dd
  uint32_t ip_vtcfl;
  uint16_t ip_plen;  // 24, or 32 with the option
  uint8_t ip_next;   // 58, ICMPv6
  uint8_t ip_hlim;   // 255
  unsigned char ip_src[16];
  unsigned char ip_dst[16];  // ff02::1:ff + the target's last three bytes
  uint8_t icmp_type;         // 135
  uint8_t icmp_code;
  uint16_t icmp_cksum;
  uint32_t reserved;
  unsigned char target[16];
  uint8_t opt_type;  // 1, Source Link-Layer Address
  uint8_t opt_len;   // 1 (units of 8 bytes)
  unsigned char opt_mac[6];
};
static_assert(sizeof(ns_frame) == 86, "a solicitation with its option is 86 bytes");

// An ARP request for `addr` from `mac` with sender protocol address 0.0.0.0
// and a zero target MAC (RFC 5227's probe): it disturbs no neighbour cache,
// and a host that holds the address answers it.
struct arp_packet ArpProbeFrame(const unsigned char* mac, in_addr addr);

// A Neighbor Solicitation for `target` to its solicited-node group, from
// `mac`. With `source` null it comes from :: and carries no link-layer
// option (duplicate address detection); otherwise from `source` with the
// Source Link-Layer Address option. The frame's length goes to *len.
struct ns_frame NsFrame(const unsigned char* mac, const in6_addr* source, const in6_addr& target,
                        std::size_t* len);

}  // namespace vyr
