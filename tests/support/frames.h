// The frames the agent puts on the wire, built byte by byte (not from the
// agent's structures), and those of one address caught on the peer.
#pragma once

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "support/netns.h"
#include "unique_fd.h"

namespace vyrtest {

using Bytes = std::vector<unsigned char>;

inline constexpr int kArpRequest = 1;
inline constexpr int kArpReply = 2;

inline Bytes MacBytes(const std::string& mac) {
  Bytes out(6);
  std::sscanf(mac.c_str(), "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &out[0], &out[1], &out[2], &out[3],
              &out[4], &out[5]);
  return out;
}

inline Bytes AddrBytes(const char* addr) {
  Bytes out(16);
  if (inet_pton(AF_INET, addr, out.data()) == 1) return Bytes(out.begin(), out.begin() + 4);
  inet_pton(AF_INET6, addr, out.data());
  return out;
}

inline void Append(Bytes* frame, const Bytes& part) {
  frame->insert(frame->end(), part.begin(), part.end());
}

// A gratuitous ARP (RFC 5227) from `mac` for `addr`, padded to 60 bytes.
inline Bytes GratuitousArp(const std::string& mac, const char* addr, int op) {
  Bytes f(6, 0xff);
  Append(&f, MacBytes(mac));
  Append(&f, {0x08, 0x06, 0x00, 0x01, 0x08, 0x00, 6, 4, 0, static_cast<unsigned char>(op)});
  for (int side = 0; side < 2; ++side) {
    Append(&f, MacBytes(mac));
    Append(&f, AddrBytes(addr));
  }
  f.resize(60, 0);
  return f;
}

// An unsolicited Neighbor Advertisement (RFC 4861, override flag, target
// link-layer option) from `mac` and link-local `source` to all nodes.
inline Bytes NeighborAdvert(const std::string& mac, const std::string& source, const char* target) {
  Bytes f = {0x33, 0x33, 0, 0, 0, 1};
  Append(&f, MacBytes(mac));
  Append(&f, {0x86, 0xdd, 0x60, 0, 0, 0, 0, 32, 58, 255});
  Append(&f, AddrBytes(source.c_str()));
  Append(&f, AddrBytes("ff02::1"));
  Append(&f, {136, 0, 0, 0, 0x20, 0, 0, 0});
  Append(&f, AddrBytes(target));
  Append(&f, {2, 1});
  Append(&f, MacBytes(mac));
  uint32_t sum = 32 + 58;
  for (std::size_t i = 22; i < f.size(); i += 2) sum += static_cast<uint32_t>(f[i] << 8 | f[i + 1]);
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  f[56] = static_cast<unsigned char>(~sum >> 8);
  f[57] = static_cast<unsigned char>(~sum);
  return f;
}

// The ARP frames or advertisements of one address as vb0 receives them.
class PeerCatch {
 public:
  PeerCatch(const NetnsPair& pair, bool ipv6, const char* addr) : ipv6_(ipv6) {
    inet_pton(ipv6 ? AF_INET6 : AF_INET, addr, addr_);
    const uint16_t type = ipv6 ? ETH_P_IPV6 : ETH_P_ARP;
    ScopedNetns peer(pair.peer());
    sock_.reset(::socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(type)));
    sockaddr_ll where{};
    where.sll_family = AF_PACKET;
    where.sll_protocol = htons(type);
    where.sll_ifindex = static_cast<int>(if_nametoindex("vb0"));
    ok_ = peer.ok() &&
          ::bind(sock_.get(), reinterpret_cast<const sockaddr*>(&where), sizeof where) == 0;
    timeval stamp{};
    ::ioctl(sock_.get(), SIOCGSTAMP, &stamp);  // from now on frames are stamped on arrival
  }
  bool ok() const { return ok_; }

  // Takes in what has arrived, waiting at most `limit` for `count` in all.
  std::size_t WaitFor(std::size_t count, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
      unsigned char buf[256];
      ssize_t n;
      while ((n = ::recv(sock_.get(), buf, sizeof buf, MSG_DONTWAIT)) > 0) {
        if (!Ours(buf, static_cast<std::size_t>(n))) continue;
        timeval stamp{};
        ::ioctl(sock_.get(), SIOCGSTAMP, &stamp);
        frames.emplace_back(buf, buf + n);
        times.push_back(static_cast<double>(stamp.tv_sec) +
                        static_cast<double>(stamp.tv_usec) / 1e6);
      }
      const auto left =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (times.size() >= count || left.count() <= 0) break;
      pollfd ready{sock_.get(), POLLIN, 0};
      ::poll(&ready, 1, static_cast<int>(left.count()));  // the drain above takes what came
    }
    return times.size();
  }

  std::vector<Bytes> frames;
  std::vector<double> times;  // arrival, seconds of the wall clock

 private:
  // An advertisement (next header 58, ICMPv6 type 136) for the address at
  // 62; an ARP frame with it as sender (28) and target (38).
  bool Ours(const unsigned char* f, std::size_t n) const {
    if (ipv6_) {
      return n >= 78 && f[20] == 58 && f[54] == 136 && std::memcmp(f + 62, addr_, 16) == 0;
    }
    return n >= 42 && std::memcmp(f + 28, addr_, 4) == 0 && std::memcmp(f + 38, addr_, 4) == 0;
  }
  bool ipv6_;
  unsigned char addr_[16] = {};
  vyr::UniqueFd sock_;
  bool ok_ = false;
};

}  // namespace vyrtest
