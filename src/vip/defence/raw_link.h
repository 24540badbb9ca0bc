// Raw link-layer sockets shared by the frames the agent builds itself (the
// ARP probe, the Neighbor Advertisements): opening one on an interface and
// reading the interface's index and MAC address. Any thread.
#pragma once

#include <netinet/in.h>

#include <cstddef>
#include <cstdint>

#include "unique_fd.h"
#include "vip/base/status.h"

namespace vyr {

inline constexpr int kMacLen = 6;

// Protocol numbers of the frames the agent builds and watches.
inline constexpr uint16_t kEtherTypeArp = 0x0806;
inline constexpr uint16_t kEtherTypeIpv6 = 0x86dd;
inline constexpr uint16_t kArpRequest = 1;
inline constexpr uint8_t kIcmpv6 = 58;
inline constexpr uint8_t kNeighborSolicit = 135;
inline constexpr uint8_t kNeighborAdvert = 136;

// The cluster events of the duplicate probes: the address answered, and the
// activation went on despite that (forcing).
inline constexpr int kEventInUse = 10;
inline constexpr int kEventForced = 11;

// Statuses of the frames the agent sends itself (gratuitous ARP, ARP probe,
// Neighbor Advertisements): the packet socket could not be opened, the
// interface's index or MAC address could not be read, a frame was not sent.
inline constexpr int kRawSocketFailed = status::kLinkSocket;
inline constexpr int kRawNoInterface = status::kRawNoInterface;
inline constexpr int kRawSendFailed = status::kRawSendFailed;

// A close-on-exec AF_PACKET raw socket that receives nothing until it is
// bound (protocol 0): a filter can be attached before the first frame is
// queued. Invalid on failure, with errno set.
UniqueFd OpenPacketSocket();

// The index of the interface `name`; an alias name ("eth0:1") stands for its
// interface. 0 on failure, with errno set.
unsigned LinkIndex(int fd, const char* name);

// The interface's own MAC address (6 bytes). False on failure, errno set.
bool LinkMac(int fd, const char* name, unsigned char* mac);

// Binds `fd` to receive frames of `ethertype` (host order) on `ifindex`.
bool BindLink(int fd, unsigned ifindex, uint16_t ethertype);

// Sends one whole frame out of `ifindex`. False on failure, errno set.
bool SendFrame(int fd, unsigned ifindex, const void* frame, std::size_t len);

// "xx:xx:xx:xx:xx:xx" into `out` (at least 18 bytes).
void FormatMac(const unsigned char* mac, char* out, std::size_t outlen);

// The first link-local IPv6 address of `device`; false when it has none.
bool LinkLocal(const char* device, in6_addr* out);

// The ICMPv6 checksum of the `len` bytes of `message` (checksum field zero)
// sent from `source` to `dest`, over RFC 4443's pseudo-header.
uint16_t Icmpv6Checksum(const unsigned char* source, const unsigned char* dest,
                        const unsigned char* message, std::size_t len);

}  // namespace vyr
