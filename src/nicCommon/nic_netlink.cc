#include "nicCommon/nic_netlink.h"

#include <arpa/inet.h>
#include <linux/if_addr.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <bit>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "nicCommon/nic_ipck.h"
#include "tracersc/tracersc.h"
#include "unique_fd.h"

// The interface layer names itself by module in its trace lines.
#define NIC_TRACE(level, ...) trace((level), "src/nicCommon", __LINE__, __func__, __VA_ARGS__)

namespace {

// The kernel answers a request before sendto returns; the limit only keeps a
// lost answer from hanging the run.
constexpr time_t kAnswerLimitSeconds = 5;
constexpr uint32_t kForever = 0xFFFFFFFFu;

// One request: the header, the family's fixed part and its attributes.
struct Request {
  nlmsghdr hdr;
  union {
    ifaddrmsg addr;
    ifinfomsg link;
  };
  char attrs[256];
};
// The largest request, an IPv4 add, carries five attributes of at most 16
// bytes and the label: AddAttr needs no bound check.
static_assert(sizeof(Request::attrs) >= 5 * RTA_SPACE(16) + RTA_SPACE(VIP_NAME_LEN));

void StartRequest(Request* req, uint16_t type, uint16_t flags, size_t body) {
  std::memset(req, 0, sizeof *req);
  req->hdr.nlmsg_len = static_cast<uint32_t>(NLMSG_LENGTH(body));
  req->hdr.nlmsg_type = type;
  req->hdr.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
}

void AddAttr(Request* req, uint16_t type, const void* data, size_t len) {
  const size_t at = NLMSG_ALIGN(req->hdr.nlmsg_len);
  auto* rta = reinterpret_cast<rtattr*>(reinterpret_cast<char*>(req) + at);
  rta->rta_type = type;
  rta->rta_len = static_cast<unsigned short>(RTA_LENGTH(len));
  std::memcpy(RTA_DATA(rta), data, len);
  req->hdr.nlmsg_len = static_cast<uint32_t>(at + RTA_ALIGN(rta->rta_len));
}

// A NETLINK_ROUTE socket that talks to the kernel only.
class RouteSocket {
 public:
  RouteSocket() : fd_(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE)) {
    if (!fd_) {
      error_ = -errno;
      NIC_TRACE(TRACE_ERROR, "socket(NETLINK_ROUTE) failed.(errno=%d)", errno);
      return;
    }
    timeval limit{kAnswerLimitSeconds, 0};
    ::setsockopt(fd_.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  }
  int error() const { return error_; }

  // Sends the request and waits for its acknowledgement: 0 or -errno.
  int Transact(Request* req) {
    req->hdr.nlmsg_seq = ++seq_;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (::sendto(fd_.get(), req, req->hdr.nlmsg_len, 0, reinterpret_cast<sockaddr*>(&kernel),
                 sizeof kernel) < 0) {
      return -errno;
    }
    return AwaitAck(req->hdr.nlmsg_seq);
  }

 private:
  int AwaitAck(uint32_t seq) {
    alignas(nlmsghdr) char buf[8192];
    for (;;) {
      const ssize_t got = ::recv(fd_.get(), buf, sizeof buf, 0);
      if (got < 0) {
        if (errno == EINTR) continue;
        return -errno;
      }
      auto left = static_cast<unsigned int>(got);
      for (auto* msg = reinterpret_cast<nlmsghdr*>(buf); NLMSG_OK(msg, left);
           msg = NLMSG_NEXT(msg, left)) {
        if (msg->nlmsg_seq != seq || msg->nlmsg_type != NLMSG_ERROR) continue;
        if (msg->nlmsg_len < NLMSG_LENGTH(sizeof(nlmsgerr))) return -EPROTO;
        // error 0 is the acknowledgement, otherwise the negative errno.
        return static_cast<const nlmsgerr*>(NLMSG_DATA(msg))->error;
      }
    }
  }

  vyr::UniqueFd fd_;
  int error_ = 0;
  uint32_t seq_ = 0;
};

// The interface the record names: vdevname (else ifname) up to its ':'.
int InterfaceIndex(const vdevinfo* vdev, unsigned int* index) {
  const char* name = vdev->vdevname[0] != '\0' ? vdev->vdevname : vdev->ifname;
  char base[IF_NAMESIZE] = {};
  const size_t len = std::strcspn(name, ":");
  std::snprintf(base, sizeof base, "%.*s", static_cast<int>(len), name);
  *index = len < IF_NAMESIZE ? ::if_nametoindex(base) : 0;
  if (*index == 0) {
    const int err = len < IF_NAMESIZE ? errno : ENAMETOOLONG;
    NIC_TRACE(TRACE_ERROR, "if_nametoindex(%s) failed.(errno=%d)", base, err);
    return -err;
  }
  return 0;
}

// The prefix length of a contiguous IPv4 mask, or -1.
int PrefixOf(in_addr mask) {
  const uint32_t host = ntohl(mask.s_addr);
  const int ones = std::popcount(host);
  const uint32_t contiguous = ones == 0 ? 0 : ~uint32_t{0} << (32 - ones);
  return host == contiguous ? ones : -1;
}

// The fixed part and the address of an RTM_NEWADDR or RTM_DELADDR; false
// with the trace line when the record's prefix cannot be told.
bool FillAddress(const vdevinfo* vdev, unsigned int index, Request* req) {
  req->addr.ifa_index = index;
  req->addr.ifa_scope = RT_SCOPE_UNIVERSE;
  if (nic_ipck(vdev->sipel.addr)) {
    req->addr.ifa_family = AF_INET6;
    req->addr.ifa_prefixlen = static_cast<unsigned char>(vdev->sipel.masklen);
    AddAttr(req, IFA_LOCAL, &vdev->nipel6.addr, sizeof vdev->nipel6.addr);
    AddAttr(req, IFA_ADDRESS, &vdev->nipel6.addr, sizeof vdev->nipel6.addr);
    return true;
  }
  const int prefix = PrefixOf(vdev->nipel.mask);
  if (prefix < 0) {
    NIC_TRACE(TRACE_ERROR, "netmask %s is not contiguous.", vdev->sipel.mask);
    return false;
  }
  req->addr.ifa_family = AF_INET;
  req->addr.ifa_prefixlen = static_cast<unsigned char>(prefix);
  AddAttr(req, IFA_LOCAL, &vdev->nipel.addr, sizeof vdev->nipel.addr);
  return true;
}

// The IPv4 extras of an add: the peer (the address itself), the broadcast
// address and the label. False with the trace line for a broadcast text
// that is not an address.
bool FillIpv4Extras(const vdevinfo* vdev, Request* req) {
  AddAttr(req, IFA_ADDRESS, &vdev->nipel.addr, sizeof vdev->nipel.addr);
  if (vdev->bcast[0] != '\0') {
    in_addr bcast{};
    if (inet_pton(AF_INET, vdev->bcast, &bcast) != 1) {
      NIC_TRACE(TRACE_ERROR, "broadcast %s is not an address.", vdev->bcast);
      return false;
    }
    AddAttr(req, IFA_BROADCAST, &bcast, sizeof bcast);
  }
  if (std::strchr(vdev->vdevname, ':') != nullptr) {
    AddAttr(req, IFA_LABEL, vdev->vdevname, std::strlen(vdev->vdevname) + 1);
  }
  return true;
}

// The flags and lifetimes every family takes.
void FillOptions(const ipaddropt& opt, Request* req) {
  req->addr.ifa_flags = static_cast<unsigned char>(opt.flags & 0xFFu);
  if (opt.flags != 0) {
    const uint32_t flags = opt.flags;
    AddAttr(req, IFA_FLAGS, &flags, sizeof flags);
  }
  if (opt.preferred_lft >= 0) {
    ifa_cacheinfo life{};
    life.ifa_prefered = static_cast<uint32_t>(opt.preferred_lft);
    life.ifa_valid = kForever;
    AddAttr(req, IFA_CACHEINFO, &life, sizeof life);
  }
}

int RaiseInterface(RouteSocket& sock, unsigned int index) {
  Request req;
  StartRequest(&req, RTM_NEWLINK, 0, sizeof(ifinfomsg));
  req.link.ifi_family = AF_UNSPEC;
  req.link.ifi_index = static_cast<int>(index);
  req.link.ifi_flags = IFF_UP;
  req.link.ifi_change = IFF_UP;
  const int err = sock.Transact(&req);
  if (err != 0) NIC_TRACE(TRACE_ERROR, "RTM_NEWLINK(up) failed.(errno=%d)", -err);
  return err;
}

int AddAddress(const vdevinfo* vdev) {
  RouteSocket sock;
  if (sock.error() != 0) return sock.error();
  unsigned int index = 0;
  int err = InterfaceIndex(vdev, &index);
  if (err != 0) return err;
  // Up before the add: a failure then leaves nothing to take back.
  err = RaiseInterface(sock, index);
  if (err != 0) return err;
  Request req;
  StartRequest(&req, RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL, sizeof(ifaddrmsg));
  if (!FillAddress(vdev, index, &req)) return -EINVAL;
  if (req.addr.ifa_family == AF_INET && !FillIpv4Extras(vdev, &req)) return -EINVAL;
  FillOptions(vdev->opt, &req);
  err = sock.Transact(&req);
  if (err != 0) NIC_TRACE(TRACE_ERROR, "RTM_NEWADDR failed.(errno=%d)", -err);
  return err;
}

int DeleteAddress(const vdevinfo* vdev) {
  RouteSocket sock;
  if (sock.error() != 0) return sock.error();
  unsigned int index = 0;
  int err = InterfaceIndex(vdev, &index);
  if (err != 0) return err;
  Request req;
  StartRequest(&req, RTM_DELADDR, 0, sizeof(ifaddrmsg));
  // IPv4 is matched by its local address alone, so neither its label nor
  // the mask the listing read has to agree.
  if (!FillAddress(vdev, index, &req)) return -EINVAL;
  err = sock.Transact(&req);
  if (err != 0) {
    NIC_TRACE(TRACE_ERROR, "RTM_DELADDR failed.(errno=%d)", -err);
    return err;
  }
  NIC_TRACE(TRACE_INFO, "Delete IP successfully.");
  return 0;
}

}  // namespace

int nic_act_ipaddr_netlink(const struct vdevinfo* vdev) {
  NIC_TRACE(TRACE_DETAIL, "nic_act_ipaddr_netlink(%s)  ENTRY...", vdev->sipel.addr);
  const int ret = AddAddress(vdev);
  NIC_TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}

int nic_deact_ipaddr_netlink(const struct vdevinfo* vdev) {
  NIC_TRACE(TRACE_DETAIL, "nic_deact_ipaddr_netlink(%s)  ENTRY...", vdev->sipel.addr);
  const int ret = DeleteAddress(vdev);
  NIC_TRACE(TRACE_DETAIL, "return(%d)", ret);
  return ret;
}
