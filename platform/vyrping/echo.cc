#include "echo.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/icmp6.h>
#include <netinet/ip_icmp.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vyrping {

namespace {

constexpr std::size_t kHeaderLen = 8;  // type, code, checksum, identifier, sequence
constexpr std::size_t kCookieOffset = kHeaderLen;
constexpr std::size_t kPacketLen = 64;  // header, cookie and a filler pattern

uint16_t Load16(const uint8_t* p) { return static_cast<uint16_t>((p[0] << 8) | p[1]); }

void Store16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v >> 8);
  p[1] = static_cast<uint8_t>(v & 0xff);
}

std::string ErrnoText(const char* what, int err) {
  return std::string(what) + ": " + std::strerror(err);
}

}  // namespace

std::optional<Target> ParseTarget(const char* text) {
  Target t;
  auto* v4 = reinterpret_cast<sockaddr_in*>(&t.addr);
  if (::inet_pton(AF_INET, text, &v4->sin_addr) == 1) {
    v4->sin_family = AF_INET;
    t.family = AF_INET;
    t.len = sizeof(sockaddr_in);
    return t;
  }
  auto* v6 = reinterpret_cast<sockaddr_in6*>(&t.addr);
  if (::inet_pton(AF_INET6, text, &v6->sin6_addr) == 1) {
    v6->sin6_family = AF_INET6;
    t.family = AF_INET6;
    t.len = sizeof(sockaddr_in6);
    return t;
  }
  return std::nullopt;
}

uint16_t InternetChecksum(const uint8_t* data, std::size_t len) {
  // Summing the words as they lie in memory and storing the result the same
  // way gives the right bytes on either byte order.
  uint32_t sum = 0;
  std::size_t i = 0;
  for (; i + 1 < len; i += 2) {
    uint16_t word;
    std::memcpy(&word, data + i, sizeof word);
    sum += word;
  }
  if (i < len) {
    uint8_t last[2] = {data[i], 0};
    uint16_t word;
    std::memcpy(&word, last, sizeof word);
    sum += word;
  }
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<uint16_t>(~sum & 0xffff);
}

void RandomBytes(void* buf, std::size_t len) {
  auto* out = static_cast<uint8_t*>(buf);
  std::size_t got = 0;
  while (got < len) {
    ssize_t n = ::getrandom(out + got, len - got, 0);
    if (n > 0) {
      got += static_cast<std::size_t>(n);
    } else if (n < 0 && errno != EINTR) {
      break;
    }
  }
  if (got == len) return;
  // No entropy source: mix the clock and the process id, still distinct
  // between processes started at the same moment.
  timespec ts{};
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  uint64_t x = static_cast<uint64_t>(ts.tv_nsec) ^ (static_cast<uint64_t>(::getpid()) << 32) ^
               static_cast<uint64_t>(ts.tv_sec);
  for (; got < len; ++got) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    out[got] = static_cast<uint8_t>(x);
  }
}

std::optional<EchoSocket> EchoSocket::Open(int family, std::string* why) {
  const int proto = family == AF_INET ? int{IPPROTO_ICMP} : int{IPPROTO_ICMPV6};
  Cookie cookie;
  RandomBytes(cookie.data(), cookie.size());
  uint16_t id;
  RandomBytes(&id, sizeof id);

  vyr::UniqueFd fd(::socket(family, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, proto));
  if (fd) {
    if (family == AF_INET6) {
      // Only echo replies; the kernel still hands us those of every process.
      icmp6_filter filter;
      ICMP6_FILTER_SETBLOCKALL(&filter);
      ICMP6_FILTER_SETPASS(ICMP6_ECHO_REPLY, &filter);
      if (::setsockopt(fd.get(), IPPROTO_ICMPV6, ICMP6_FILTER, &filter, sizeof filter) != 0) {
        *why = ErrnoText("setsockopt(ICMP6_FILTER)", errno);
        return std::nullopt;
      }
    }
    return EchoSocket(std::move(fd), family, true, id, cookie);
  }
  const int raw_err = errno;
  if (raw_err != EPERM && raw_err != EACCES) {
    *why = ErrnoText("raw socket", raw_err);
    return std::nullopt;
  }

  // Not root: an unprivileged ping socket. The kernel writes the socket's
  // bound "port" as the identifier, so bind it to ours.
  fd.reset(::socket(family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, proto));
  if (!fd) {
    *why = ErrnoText("raw socket", raw_err) + "; " + ErrnoText("ping socket", errno);
    return std::nullopt;
  }
  for (int attempt = 0; attempt < 32; ++attempt) {
    sockaddr_storage local{};
    socklen_t len;
    if (family == AF_INET) {
      auto* v4 = reinterpret_cast<sockaddr_in*>(&local);
      v4->sin_family = AF_INET;
      v4->sin_port = htons(id);
      len = sizeof *v4;
    } else {
      auto* v6 = reinterpret_cast<sockaddr_in6*>(&local);
      v6->sin6_family = AF_INET6;
      v6->sin6_port = htons(id);
      len = sizeof *v6;
    }
    if (::bind(fd.get(), reinterpret_cast<sockaddr*>(&local), len) == 0) {
      return EchoSocket(std::move(fd), family, false, id, cookie);
    }
    if (errno != EADDRINUSE) break;
    RandomBytes(&id, sizeof id);
  }
  *why = ErrnoText("bind(ping socket)", errno);
  return std::nullopt;
}

int EchoSocket::Send(const Target& target, uint16_t seq) {
  uint8_t pkt[kPacketLen] = {};
  pkt[0] = static_cast<uint8_t>(family_ == AF_INET ? int{ICMP_ECHO} : int{ICMP6_ECHO_REQUEST});
  Store16(pkt + 4, id_);
  Store16(pkt + 6, seq);
  std::memcpy(pkt + kCookieOffset, cookie_.data(), cookie_.size());
  for (std::size_t i = kCookieOffset + cookie_.size(); i < kPacketLen; ++i) {
    pkt[i] = static_cast<uint8_t>(i);
  }
  // The kernel fills in the ICMPv6 checksum (it covers the pseudo-header).
  if (family_ == AF_INET) {
    const uint16_t sum = InternetChecksum(pkt, sizeof pkt);
    std::memcpy(pkt + 2, &sum, sizeof sum);
  }
  ssize_t n;
  do {
    n = ::sendto(fd_.get(), pkt, sizeof pkt, 0, reinterpret_cast<const sockaddr*>(&target.addr),
                 target.len);
  } while (n < 0 && errno == EINTR);
  return n < 0 ? errno : 0;
}

bool EchoSocket::FromTarget(const Target& target, const sockaddr_storage& from) const {
  if (from.ss_family != target.family) return false;
  if (target.family == AF_INET) {
    return reinterpret_cast<const sockaddr_in&>(from).sin_addr.s_addr ==
           reinterpret_cast<const sockaddr_in&>(target.addr).sin_addr.s_addr;
  }
  return std::memcmp(&reinterpret_cast<const sockaddr_in6&>(from).sin6_addr,
                     &reinterpret_cast<const sockaddr_in6&>(target.addr).sin6_addr,
                     sizeof(in6_addr)) == 0;
}

bool EchoSocket::IsOurReply(const uint8_t* icmp, std::size_t len, uint16_t last_seq,
                            uint16_t* seq) const {
  if (len < kCookieOffset + cookie_.size()) return false;
  const int reply_type = family_ == AF_INET ? int{ICMP_ECHOREPLY} : int{ICMP6_ECHO_REPLY};
  if (icmp[0] != reply_type || icmp[1] != 0) return false;
  // Raw IPv4 sockets get packets before the ICMP layer has checked them.
  if (family_ == AF_INET && InternetChecksum(icmp, len) != 0) return false;
  if (Load16(icmp + 4) != id_) return false;
  const uint16_t s = Load16(icmp + 6);
  if (s == 0 || s > last_seq) return false;
  if (std::memcmp(icmp + kCookieOffset, cookie_.data(), cookie_.size()) != 0) return false;
  *seq = s;
  return true;
}

ReadResult EchoSocket::Drain(const Target& target, uint16_t last_seq, uint16_t* seq, int* err) {
  for (;;) {
    uint8_t buf[2048];
    sockaddr_storage from{};
    socklen_t from_len = sizeof from;
    ssize_t n =
        ::recvfrom(fd_.get(), buf, sizeof buf, 0, reinterpret_cast<sockaddr*>(&from), &from_len);
    if (n < 0) {
      switch (errno) {
        case EINTR:
          continue;
        case EAGAIN:
          return ReadResult::kNothing;
        // An ICMP error reported for one of our requests (nobody there):
        // not a failure of the probe.
        case EHOSTUNREACH:
        case ENETUNREACH:
        case EHOSTDOWN:
        case ECONNREFUSED:
          continue;
        default:
          *err = errno;
          return ReadResult::kError;
      }
    }
    const uint8_t* icmp = buf;
    std::size_t len = static_cast<std::size_t>(n);
    if (raw_ && family_ == AF_INET) {
      if (len < 20) continue;
      const std::size_t ihl = static_cast<std::size_t>(buf[0] & 0x0f) * 4;
      if (ihl < 20 || len < ihl) continue;
      icmp += ihl;
      len -= ihl;
    }
    if (!FromTarget(target, from)) continue;
    if (IsOurReply(icmp, len, last_seq, seq)) return ReadResult::kReply;
  }
}

}  // namespace vyrping
