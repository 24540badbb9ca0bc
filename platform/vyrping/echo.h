// ICMP and ICMPv6 echo for vyrping: the target address, the socket, the
// requests and the recognition of our own replies.
//
// Every process picks a random identifier and a random 16-byte cookie that
// travels in the payload of each request. A reply counts only when it comes
// from the target address and carries our identifier, a sequence number we
// have sent and our cookie, so that many vyrping processes probing the same
// address at the same moment never take each other's replies.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

// The agent's descriptor owner; header-only, so vyrping links nothing of the agent.
#include "unique_fd.h"

namespace vyrping {

struct Target {
  int family = AF_UNSPEC;  // AF_INET or AF_INET6
  sockaddr_storage addr{};
  socklen_t len = 0;
};

// A numeric IPv4 or IPv6 address (inet_pton); nullopt for anything else.
std::optional<Target> ParseTarget(const char* text);

using Cookie = std::array<uint8_t, 16>;

// The Internet checksum (RFC 1071) of `len` bytes.
uint16_t InternetChecksum(const uint8_t* data, std::size_t len);

// Outcome of reading what is waiting on the socket.
enum class ReadResult {
  kReply,    // one of our replies arrived
  kNothing,  // nothing (more) of ours is waiting
  kError,    // the socket failed
};

class EchoSocket {
 public:
  // Opens a raw ICMP/ICMPv6 socket, or, when raw sockets are not permitted,
  // an ICMP datagram ("ping") socket bound to our identifier. Returns
  // nullopt with a reason in *why.
  static std::optional<EchoSocket> Open(int family, std::string* why);

  int fd() const { return fd_.get(); }
  uint16_t identifier() const { return id_; }

  // Sends request `seq`. Returns 0, or the errno of the failed send.
  int Send(const Target& target, uint16_t seq);

  // Reads every datagram waiting on the (non-blocking) socket and stops at
  // the first of our replies to a request with sequence 1..`last_seq`.
  // On kReply, *seq holds its sequence number.
  ReadResult Drain(const Target& target, uint16_t last_seq, uint16_t* seq, int* err);

 private:
  EchoSocket(vyr::UniqueFd fd, int family, bool raw, uint16_t id, const Cookie& cookie)
      : fd_(std::move(fd)), family_(family), raw_(raw), id_(id), cookie_(cookie) {}
  bool IsOurReply(const uint8_t* icmp, std::size_t len, uint16_t last_seq, uint16_t* seq) const;
  bool FromTarget(const Target& target, const sockaddr_storage& from) const;

  vyr::UniqueFd fd_;
  int family_;
  bool raw_;  // raw sockets see IPv4 headers and every echo reply on the host
  uint16_t id_;
  Cookie cookie_;
};

// Fills `buf` with random bytes (getrandom, with a clock-based fallback).
void RandomBytes(void* buf, std::size_t len);

}  // namespace vyrping
