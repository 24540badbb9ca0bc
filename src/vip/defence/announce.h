// Pacing of the announcements of an added address (gratuitous ARP frames,
// unsolicited Neighbor Advertisements), and the detached announcer that
// sends all but the first of them when the run must not wait for them.
//
// The announcer is a process of its own: started with a double fork and a
// new session, its standard streams on /dev/null and every inherited
// descriptor closed, so that it holds neither the run's pipes nor its locks
// nor the semaphore. It records itself in "$VYR_RUN_DIR/announce-<address>.pid"
// (the run folder defaults to /run/vyrcluster) and removes that file when it
// ends. Before each frame it checks that the address is still on its
// interface and ends as soon as it is not; deactivation ends it at once.
//
// Main thread only (the announcer is forked while no worker thread runs).
#pragma once

#include <netinet/in.h>

#include <cstddef>

namespace vyr {

// How the frames of one announcement follow each other.
struct AnnouncePace {
  int interval_ms = 0;      // between two frames; 0: one second, also after the last
  bool background = false;  // all frames after the first from a detached announcer
};

// What the frames announce and where they leave.
struct AnnounceTarget {
  unsigned ifindex = 0;     // the interface the frames leave through
  const char* device = "";  // the device that carries the address (an alias name is fine)
  bool ipv6 = false;
  in_addr v4{};  // the address, network form
  in6_addr v6{};
};

// Sends `num` copies of `frame` out of the target's interface through the
// packet socket `sock`, paced by `pace`. Returns 0, or -1 with errno set
// when a frame could not be sent (frames sent before stay sent). In the
// background the first frame goes out here and the call returns once the
// announcer has recorded itself; when no announcer can be started, the
// remaining frames are sent here.
int SendAnnouncements(int sock, const AnnounceTarget& target, const void* frame, std::size_t len,
                      int num, const AnnouncePace& pace);

// Ends the announcer of the address, if one runs, and waits until it is
// gone. A record left by a process that is not (or no longer) an announcer
// is only removed. True when an announcer was ended.
bool EndAnnouncer(bool ipv6, const void* addr);

// The pid file of the address's announcer.
void AnnouncerPidFile(bool ipv6, const void* addr, char* out, std::size_t outlen);

// The name an announcer carries (/proc/<pid>/comm).
inline constexpr const char* kAnnouncerName = "vyrannounce";

}  // namespace vyr
