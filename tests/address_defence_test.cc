// Defending the address in a private pair of namespaces: the probes before
// an activation, DAD, gratuitous ARP, advertisements, background announcers,
// lock/short.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <future>
#include <string>
#include <thread>

#include "support/agent_fixture.h"
#include "support/frames.h"
#include "support/netns_fixture.h"
#include "vip/defence/arp.h"
#include "vip/defence/arp_probe.h"
#include "vip/defence/lan_query.h"

namespace {

using vyrtest::AgentE2E;
using vyrtest::Contains;
using vyrtest::kNoArp;
using vyrtest::kNoPingCheck;
using vyrtest::kNoProbe;
using vyrtest::OnVa0;
using vyrtest::Sh;
using Defence = AgentE2E;
using LinkProbe = vyrtest::AgentNetnsTest;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// One probe's result, the claimant's MAC and how long it took.
struct ProbeOutcome {
  int ret;
  std::string mac;
  long took_ms;
};
using ProbeCall = int (*)(const char*, const char*, int, char*, std::size_t);
ProbeOutcome ProbeOnce(ProbeCall probe, const char* dev, const char* addr, int window_ms) {
  char mac[32] = {};
  const Clock::time_point start = Clock::now();
  const int ret = probe(dev, addr, window_ms, mac, sizeof mac);
  return {ret, mac, std::chrono::duration_cast<milliseconds>(Clock::now() - start).count()};
}

// ARP and the agent's own DAD probe: a holder is caught on every try, at
// once, by its MAC; a free address costs the whole window; of two hosts
// probing one free address at once, never both take it.
TEST_F(LinkProbe, ProbesCatchEveryHolderAtOnce) {
  ASSERT_EQ(0, pair_->InAgent("ip addr add 192.0.2.1/24 dev va0"));
  ASSERT_EQ(0, pair_->InPeer("ip addr add 192.0.2.70/24 dev vb0 && "
                             "ip -6 addr add 2001:db8::70/64 dev vb0 nodad"));
  const std::string peer = pair_->PeerMac();
  const struct {
    ProbeCall probe;
    const char *held, *free, *both;
  } cases[] = {{vip_arp_probe, "192.0.2.70", "192.0.2.72", "192.0.2.73"},
               {vip_dad_probe, "2001:db8::70", "2001:db8::72", "2001:db8::73"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.held);
    for (int i = 0; i < 20; ++i) {
      const ProbeOutcome o = ProbeOnce(c.probe, "va0", c.held, 1400);
      EXPECT_EQ(15, o.ret) << "try " << i;
      EXPECT_EQ(peer, o.mac) << "try " << i;
      EXPECT_LT(o.took_ms, 700) << "try " << i;
    }
    const ProbeOutcome alone = ProbeOnce(c.probe, "va0", c.free, 200);
    EXPECT_EQ(0, alone.ret);
    EXPECT_GE(alone.took_ms, 200);
    ProbeOutcome other{};
    std::thread peer_side([&] {
      vyrtest::ScopedNetns inside(pair_->peer());
      other = ProbeOnce(c.probe, "vb0", c.both, 1000);
    });
    const ProbeOutcome ours = ProbeOnce(c.probe, "va0", c.both, 1000);
    peer_side.join();
    EXPECT_TRUE(ours.ret == 15 || other.ret == 15) << ours.ret << " " << other.ret;
    EXPECT_EQ(ours.ret == 15 ? peer : "", ours.mac);
    EXPECT_EQ(other.ret == 15 ? pair_->AgentMac() : "", other.mac);
  }

  // A holder that answers no probe but announces itself is caught as well.
  auto announced = std::async(std::launch::async, [this] {
    vyrtest::ScopedNetns inside(pair_->peer());
    return vip_lan_announce("vb0", "192.0.2.71", 100, 30);
  });
  for (int i = 0; i < 20; ++i) {
    const ProbeOutcome o = ProbeOnce(vip_arp_probe, "va0", "192.0.2.71", 1000);
    EXPECT_EQ(15, o.ret) << "try " << i;
    EXPECT_EQ(peer, o.mac) << "try " << i;
  }
  EXPECT_EQ(0, announced.get());
}

// A holder that drops ping passes the ping probe; the ARP and DAD probes
// refuse it (event 10, forcing as for ping), a DAD time limit fails on the
// kernel's "dadfailed"; free addresses pass and none is left tentative.
TEST_F(Defence, ProbesSeeAHostThatDropsPing) {
  ASSERT_EQ(0, pair_->InPeer("sysctl -qw net.ipv4.icmp_echo_ignore_all=1 "
                             "net.ipv6.icmp.echo_ignore_all=1 && "
                             "ip addr add 192.0.2.70/24 dev vb0 && "
                             "ip -6 addr add 2001:db8::40/64 dev vb0 nodad"));
  const std::string probe = "<arpprobe><timeout>200</timeout></arpprobe>";
  const std::string dad = "<dad><timeout>8000</timeout></dad>";
  const std::string claimed = "192.0.2.70 is already exist.(macaddr : " + pair_->PeerMac() + ")";
  const std::string claimed6 = "2001:db8::40 is already exist.(macaddr : " + pair_->PeerMac() + ")";
  // clang-format off
  RunSteps({
      {.mode = "--active", .rsc = "pingonly", .params = OnVa0("192.0.2.70/24"), .desc = "Success.",
       .shown = "192.0.2.70/24"},
      {.setup = "ip -n $A addr del 192.0.2.70/24 dev va0", .mode = "--active", .rsc = "arpprobe",
       .params = OnVa0("192.0.2.70/24", probe), .code = 15, .desc = "IP address was already used.",
       .gone = "192.0.2.70", .log = claimed.c_str()},
      {.mode = "--active", .rsc = "ev", .params = OnVa0("192.0.2.70/24", kNoProbe + probe),
       .code = 15, .desc = "IP address was already used.", .gone = "192.0.2.70",
       .log = "[event 10] 192.0.2.70"},
      {.mode = "--active", .rsc = "forced",
       .params = OnVa0("192.0.2.70/24", probe + "<ping><force>1</force></ping>"),
       .desc = "Success.",
       .shown = "192.0.2.70/24", .log = "force act vip(192.0.2.70)!"},
      {.setup = "ip -n $A addr del 192.0.2.70/24 dev va0", .mode = "--active", .rsc = "free",
       .params = OnVa0("192.0.2.71/24", probe), .desc = "Success.", .shown = "192.0.2.71/24",
       .log = "vip_arp_probe(192.0.2.71) OK."},
      {.mode = "--active", .rsc = "dadprobe",
       .params = OnVa0("2001:db8::40/64", "<dad><probe>200</probe></dad>"), .code = 15,
       .desc = "IP address was already used.", .gone = "2001:db8::40/", .log = claimed6.c_str()},
      {.mode = "--active", .rsc = "dad", .params = OnVa0("2001:db8::40/64", kNoProbe + dad),
       .code = 15, .desc = "This ip address was already used.  IP=2001:db8::40",
       .gone = "2001:db8::40/", .log = "DAD failed for 2001:db8::40 on va0."},
      {.mode = "--active", .rsc = "nodad", .params = OnVa0("2001:db8::40/64", kNoProbe),
       .desc = "Success.", .shown = "2001:db8::40/64"},
      {.setup = "ip -n $A -6 addr del 2001:db8::40/64 dev va0", .mode = "--active", .rsc = "free6",
       .params = OnVa0("2001:db8::41/64", dad), .desc = "Success.", .shown = "2001:db8::41/64",
       .log = "DAD of 2001:db8::41 on va0 passed."},
      {.mode = "--active", .rsc = "probed",
       .params = OnVa0("2001:db8::42/64",
                       kNoProbe + "<dad><timeout>8000</timeout><probe>200</probe></dad>"),
       .desc = "Success.", .shown = "2001:db8::42/64", .log = "vip_dad_probe(2001:db8::42) OK."},
  });
  // clang-format on
  EXPECT_FALSE(Contains(Addrs("-6"), "tentative")) << Addrs("-6");
}

// After a removal the agent asks the link who still has the address: the
// peer holding it too is named in a warning, or fails the deactivation with
// 25 under check/ping/error (in line even with check/arp/background);
// nobody answering is the confirmation; IPv4 and IPv6 alike. In the
// background the deactivation does not wait: the checker it leaves behind
// writes the same lines, and a host that probes for the address before it
// announces it (the next holder) is not taken for a holder.
TEST_F(Defence, ArpCheckAfterRemovalSeesWhoStillAnswers) {
  const std::string peer = pair_->PeerMac();
  auto checks = [](const std::string& ping, const std::string& arp = "<timeout>200</timeout>") {
    return "<check><ping><execute>0</execute>" + ping + "</ping><arp>" + arp + "</arp></check>";
  };
  const std::string bg = checks("", "<timeout>500</timeout><background>1</background>");
  auto outcome = [this] {  // the background checker's last line, once written
    std::string log = env_.Log();
    for (int i = 0; i < 500 && !Contains(log, "deact check arp OK") &&
                    !Contains(log, "still answers") && !Contains(log, "deact check arp failed");
         ++i) {
      std::this_thread::sleep_for(milliseconds(20));
      log = env_.Log();
    }
    return log;
  };
  const std::string warned = "deact check arp: 192.0.2.80 still answers. (MAC=" + peer + ")";
  const std::string warned6 = "deact check arp: 2001:db8::80 still answers. (MAC=" + peer + ")";
  // clang-format off
  RunSteps({
      {.setup = "agent_has 192.0.2.80 va0:8 && peer_has 192.0.2.80", .mode = "--deactive",
       .rsc = "warned", .params = OnVa0("192.0.2.80/24", checks("")), .desc = "Success.",
       .gone = "192.0.2.80", .log = warned.c_str()},
      {.setup = "agent_has 192.0.2.80 va0:8", .mode = "--deactive", .rsc = "failed",
       .params = OnVa0("192.0.2.80/24", checks("<error>1</error>", "<timeout>200</timeout>"
                                               "<background>1</background>")),
       .code = 25, .desc = "Internal error. (status=25)", .gone = "192.0.2.80",
       .log = warned.c_str()},
      {.setup = "ip -n $P addr del 192.0.2.80/24 dev vb0 && agent_has 192.0.2.80 va0:8",
       .mode = "--deactive", .rsc = "failed", .desc = "Success.", .gone = "192.0.2.80",
       .log = "deact check arp OK"},
      {.setup = "ip -n $A -6 addr add 2001:db8::80/64 dev va0 nodad && "
                "ip -n $P -6 addr add 2001:db8::80/64 dev vb0 nodad",
       .mode = "--deactive", .rsc = "warned6", .params = OnVa0("2001:db8::80/64", checks("")),
       .desc = "Success.", .gone = "2001:db8::80", .log = warned6.c_str()},
      {.setup = "agent_has 192.0.2.82 va0:8 && peer_has 192.0.2.82", .mode = "--deactive",
       .rsc = "stale", .params = OnVa0("192.0.2.82/24", bg), .desc = "Success.",
       .gone = "192.0.2.82", .log = "deact check arp start. (background)"},
  });
  EXPECT_TRUE(Contains(outcome(), "deact check arp: 192.0.2.82 still answers. (MAC=" + peer + ")"));
  RunSteps({{.setup = "agent_has 192.0.2.83 va0:8", .mode = "--deactive", .rsc = "moved",
             .params = OnVa0("192.0.2.83/24", bg), .gone = "192.0.2.83"}});
  // clang-format on
  {
    vyrtest::ScopedNetns inside(pair_->peer());
    char mac[32] = {};
    EXPECT_EQ(0, vip_arp_probe("vb0", "192.0.2.83", 100, mac, sizeof mac)) << mac;
    ASSERT_EQ(0, pair_->InPeer("ip addr add 192.0.2.83/24 dev vb0"));
    EXPECT_EQ(0, vip_lan_announce("vb0", "192.0.2.83", 2, 20));
  }
  const std::string log = outcome();
  EXPECT_TRUE(Contains(log, "deact check arp OK")) << log;
  EXPECT_FALSE(Contains(log, "still answers")) << log;
}

// --lanprobe: a second holder is named with 15; an address only this side
// holds gives 0 and, with -n, gratuitous ARP frames on the peer.
TEST_F(Defence, LanprobeNamesASecondHolder) {
  env_.WriteConfig("", vyrtest::kCommon);
  ASSERT_EQ(0, pair_->InAgent("ip addr add 192.0.2.95/24 dev va0 && "
                              "ip addr add 192.0.2.96/24 dev va0 label va0:6 && "
                              "ip -6 addr add 2001:db8::95/64 dev va0 nodad && "
                              "ip -6 addr add 2001:db8::96/64 dev va0 nodad"));
  ASSERT_EQ(0, pair_->InPeer("ip addr add 192.0.2.95/24 dev vb0 && "
                             "ip -6 addr add 2001:db8::95/64 dev vb0 nodad"));
  const std::string named = "IP address was already used. (MAC=" + pair_->PeerMac() + ")\n";
  vyrtest::PeerCatch frames(*pair_, false, "192.0.2.96");
  ASSERT_TRUE(frames.ok());
  const struct {
    const char* args;
    int code;
    std::string out;
  } cases[] = {
      {"-a 192.0.2.95/24 -i va0", 15, named},
      {"-a 2001:db8::95 -i va0 -w 300", 15, named},
      {"-a 192.0.2.96 -i va0:6 -n 3", 0, ""},
      {"-a 2001:db8::96 -i va0", 0, ""},
      {"-a 192.0.2.96 -i va9", 2, "LAN probe could not run. (ret=20)\n"},
      {"-a 192.0.2.960 -i va0", 4, "Option was invalid.\n"},
      {"-a 192.0.2.96 -i va0 -w 0", 4, "Option was invalid.\n"},
  };
  for (const auto& c : cases) {
    std::string out;
    EXPECT_EQ(c.code, env_.Vyrvip(pair_->agent(), std::string("--lanprobe ") + c.args, &out))
        << c.args << "\n"
        << env_.Log();
    EXPECT_EQ(c.out, out) << c.args;
  }
  EXPECT_TRUE(Contains(env_.Log(), "192.0.2.95 is already exist.(macaddr : " + pair_->PeerMac()));
  ASSERT_EQ(frames.WaitFor(3, std::chrono::seconds(5)), 3u);
  for (std::size_t i = 0; i < frames.frames.size(); ++i) {
    EXPECT_EQ(frames.frames[i],
              vyrtest::GratuitousArp(pair_->AgentMac(), "192.0.2.96", vyrtest::kArpRequest));
    if (i > 0) {
      EXPECT_GE(frames.times[i] - frames.times[i - 1], 0.19);
    }
  }
}

// The peer's stale neighbour entry follows the advertisements (byte by
// byte) and stays without them; one that cannot be sent fails nothing.
TEST_F(Defence, NeighborAdvertisementsMoveThePeersNeighbourEntry) {
  const std::string mac = pair_->AgentMac();
  std::string out;
  pair_->InAgent("ip -6 -o addr show dev va0 scope link", &out);
  const std::size_t at = out.find("fe80:");
  ASSERT_NE(at, std::string::npos) << out;
  const std::string linklocal = out.substr(at, out.find('/', at) - at);
  vyrtest::PeerCatch na(*pair_, true, "2001:db8::50");
  ASSERT_TRUE(na.ok());
  // clang-format off
  RunSteps({
      {.setup = "ip -n $P -6 neigh replace 2001:db8::50 lladdr 02:00:00:00:00:99 dev vb0 nud stale",
       .mode = "--active", .rsc = "na",
       .params = OnVa0("2001:db8::50/64", "<na><retry>2</retry></na>"), .desc = "Success.",
       .shown = "2001:db8::50/64", .log = "vip_send_na() OK."},
      {.setup = "ip -n $P -6 neigh replace 2001:db8::51 lladdr 02:00:00:00:00:99 dev vb0 nud stale",
       .mode = "--active", .rsc = "none", .params = OnVa0("2001:db8::51/64"), .desc = "Success.",
       .shown = "2001:db8::51/64"},
      {.setup = "ip -n $A -6 addr flush dev va0 scope link", .mode = "--active",
       .rsc = "nolinklocal", .params = OnVa0("2001:db8::52/64", "<na><retry>1</retry></na>"),
       .shown = "2001:db8::52/64", .log = "vip_send_na() failed. (ret=20)"},
  });
  // clang-format on
  std::string neigh;
  pair_->InPeer("ip -6 neigh show dev vb0", &neigh);
  EXPECT_TRUE(Contains(neigh, "2001:db8::50 lladdr " + mac)) << neigh;
  EXPECT_TRUE(Contains(neigh, "2001:db8::51 lladdr 02:00:00:00:00:99")) << neigh;
  ASSERT_EQ(na.WaitFor(3, std::chrono::seconds(3)), 2u);
  for (const auto& frame : na.frames) {
    EXPECT_EQ(frame, vyrtest::NeighborAdvert(mac, linklocal, "2001:db8::50"));
  }
}

double WallClock() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

std::string Arp(int frames, int interval_ms, int background) {
  return "<arp><retry>" + std::to_string(frames) + "</retry><interval>" +
         std::to_string(interval_ms) + "</interval><background>" + std::to_string(background) +
         "</background></arp>";
}

class Announcer : public AgentE2E {
 protected:
  // Live announcers in the agent's namespace (zombies left out).
  int Running() const {
    std::string out;
    Sh("for p in $(ip netns pids " + pair_->agent() +
           "); do cat /proc/$p/stat 2>/dev/null; echo; done | grep -c '(vyrannounce) [^Z]'",
       &out);
    return std::atoi(out.c_str());
  }
  bool RunningBecomes(int want) const {
    for (int i = 0; i < 250 && Running() != want; ++i) usleep(20000);
    return Running() == want;
  }
  std::string PidFile(const char* addr) const {
    return env_.dir() + "/run/announce-" + addr + ".pid";
  }
  static bool Exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }
};

// In the background the first frame is out when start returns, a detached
// announcer sends the rest and ends after the last, at deactivation or when
// its address vanished; the same for IPv6 advertisements.
TEST_F(Announcer, SendsTheRestInTheBackgroundAndEndsWithTheAddress) {
  vyrtest::PeerCatch arp(*pair_, false, "192.0.2.80");
  vyrtest::PeerCatch longer(*pair_, false, "192.0.2.81");
  vyrtest::PeerCatch na(*pair_, true, "2001:db8::60");
  ASSERT_TRUE(arp.ok() && longer.ok() && na.ok());
  const std::string quiet = kNoProbe + kNoPingCheck;
  env_.WriteConfig(
      vyrtest::Resource("bg", OnVa0("192.0.2.80/24", quiet + Arp(8, 200, 1))) +
          vyrtest::Resource("long", OnVa0("192.0.2.81/24", quiet + Arp(100, 200, 1))) +
          vyrtest::Resource("v6", OnVa0("2001:db8::60/64",
                                        quiet + Arp(1, 200, 1) + "<na><retry>100</retry></na>")),
      vyrtest::kCommon);

  ASSERT_EQ(0, Run("--active -r bg -g g")) << env_.Log();
  const double returned = WallClock();
  ASSERT_EQ(arp.WaitFor(8, std::chrono::seconds(20)), 8u);
  EXPECT_LT(arp.times.front(), returned);
  EXPECT_GT(arp.times.back(), returned);
  for (std::size_t i = 1; i < arp.times.size(); ++i) {
    EXPECT_GT(arp.times[i] - arp.times[i - 1], 0.15) << "frame " << i;
  }
  EXPECT_TRUE(RunningBecomes(0));
  EXPECT_FALSE(Exists(PidFile("192.0.2.80")));

  ASSERT_EQ(0, Run("--active -r long -g g")) << env_.Log();
  EXPECT_EQ(1, Running());
  // It holds nothing of the run's: /dev/null and its packet socket.
  std::string fds;
  Sh("cd /proc/$(cut -d' ' -f1 '" + PidFile("192.0.2.81") +
         "')/fd && for f in *; do readlink $f; done",
     &fds);
  EXPECT_EQ(fds.substr(0, 30), "/dev/null\n/dev/null\n/dev/null\n") << fds;
  EXPECT_EQ(std::count(fds.begin(), fds.end(), '\n'), 4) << fds;
  ASSERT_EQ(0, Run("--deactive -r long -g g")) << env_.Log();
  EXPECT_EQ(0, Running());
  EXPECT_FALSE(Exists(PidFile("192.0.2.81")));
  const std::size_t sent = longer.WaitFor(1000, std::chrono::milliseconds(700));
  EXPECT_GE(sent, 1u);
  EXPECT_EQ(longer.WaitFor(1000, std::chrono::milliseconds(700)), sent) << "sent after the stop";

  ASSERT_EQ(0, Run("--active -r long -g g")) << env_.Log();
  EXPECT_EQ(1, Running());
  ASSERT_EQ(0, pair_->InAgent("ip addr del 192.0.2.81/24 dev va0"));
  EXPECT_TRUE(RunningBecomes(0));
  EXPECT_FALSE(Exists(PidFile("192.0.2.81")));

  ASSERT_EQ(0, Run("--active -r v6 -g g")) << env_.Log();
  const double v6_returned = WallClock();
  EXPECT_EQ(1, Running());
  ASSERT_GE(na.WaitFor(2, std::chrono::seconds(5)), 2u);
  EXPECT_LT(na.times.front(), v6_returned);
  ASSERT_EQ(0, Run("--deactive -r v6 -g g")) << env_.Log();
  EXPECT_EQ(0, Running());
  EXPECT_FALSE(Exists(PidFile("2001:db8::60")));
}

// With lock/short another start finishes before the last frame of a
// foreground announcement; without it, it waits for the whole announcement.
TEST_F(Announcer, ShortLockLetsAnotherStartPass) {
  for (const int lockshort : {1, 0}) {
    SCOPED_TRACE("lock/short " + std::to_string(lockshort));
    vyrtest::PeerCatch frames(*pair_, false, "192.0.2.90");
    ASSERT_TRUE(frames.ok());
    const std::string lock = "<lock><short>" + std::to_string(lockshort) + "</short></lock>";
    env_.WriteConfig(
        vyrtest::Resource("slow", OnVa0("192.0.2.90/24", kNoProbe + Arp(9, 500, 0) + lock)) +
            vyrtest::Resource("quick", OnVa0("192.0.2.91/24", kNoProbe + kNoArp + lock)),
        vyrtest::kCommon);
    auto slow = std::async(std::launch::async, [this] { return Run("--active -r slow -g g"); });
    ASSERT_EQ(frames.WaitFor(1, std::chrono::seconds(20)), 1u);
    EXPECT_EQ(0, Run("--active -r quick -g g")) << env_.Log();
    const double quick_returned = WallClock();
    EXPECT_EQ(0, slow.get());
    ASSERT_EQ(frames.WaitFor(9, std::chrono::seconds(5)), 9u);
    EXPECT_EQ(quick_returned < frames.times.back(), lockshort == 1);
    EXPECT_TRUE(HasAddr("-4", "192.0.2.91/24"));
    pair_->InAgent("ip addr del 192.0.2.90/24 dev va0; ip addr del 192.0.2.91/24 dev va0");
  }
}

// The exact frames leave through ifname, also with the address on an alias, one second apart
// or at the pace asked for; only the opcode's low 16 bits count.
TEST_F(LinkProbe, GratuitousArpFramesLeaveThroughTheInterfaceOneSecondApart) {
  vyrtest::PeerCatch watch(*pair_, false, "192.0.2.10");
  ASSERT_TRUE(watch.ok());
  ASSERT_EQ(pair_->InAgent("ip addr add 192.0.2.10/24 dev va0 label va0:0"), 0);
  vdevinfo v = vyrtest::Vdev4("va0", "va0:0", "192.0.2.10");
  const unsigned char mac[6] = {0x02, 0x00, 0x5e, 0x10, 0x20, 0x30};
  std::memcpy(v.macaddr, mac, 6);
  EXPECT_EQ(vip_send_arp(&v, 2, 1), 0);
  EXPECT_EQ(vip_send_arp(&v, 1, 0x10002), 0);
  EXPECT_EQ(vip_send_arp(&v, 2, 2, {.interval_ms = 300}), 0);
  std::snprintf(v.ifname, sizeof v.ifname, "nosuch0");
  EXPECT_EQ(vip_send_arp(&v, 1, 1), 20);
  EXPECT_EQ(vyrtest::StatusText(), "Internal error. (status=20)");

  EXPECT_EQ(watch.WaitFor(6, std::chrono::milliseconds(200)), 5u);
  for (std::size_t i = 0; i < watch.frames.size(); ++i) {
    const int op = i < 2 ? vyrtest::kArpRequest : vyrtest::kArpReply;
    EXPECT_EQ(watch.frames[i], vyrtest::GratuitousArp("02:00:5e:10:20:30", "192.0.2.10", op)) << i;
    const double gap = i == 4 ? 0.3 : 1.0;  // the paced pair, after the others' seconds
    const double apart = i == 0 ? gap : watch.times[i] - watch.times[i - 1];
    EXPECT_TRUE(apart > gap * 0.9 && apart < gap * 3) << apart;
  }
}

}  // namespace
