// vyrping -c COUNT ADDRESS
//
// The cluster's ping command: sends COUNT echo requests to ADDRESS (IPv4 or
// IPv6), one second apart with the first at once, and exits
//   0 as soon as a reply to one of them arrives,
//   1 when none has arrived one second after the last request,
//   2 on any error (bad arguments, an address of neither family, a socket
//     that cannot be opened or used).
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "echo.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int kReply = 0;
constexpr int kNoReply = 1;
constexpr int kError = 2;
constexpr long kMaxCount = 65535;  // sequence numbers are 16 bits

constexpr const char* kUsage = "usage: vyrping -c COUNT ADDRESS\n";

constexpr const char* kHelp =
    "\n"
    "Sends COUNT echo requests (1 to 65535) to ADDRESS, IPv4 or IPv6, one\n"
    "second apart with the first at once. Exit status: 0 a reply arrived,\n"
    "1 no reply within one second after the last request, 2 an error.\n";

void Usage() { std::fputs(kUsage, stderr); }

bool AsksForHelp(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--") == 0) return false;
    if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) return true;
  }
  return false;
}

struct Args {
  long count = 0;
  const char* address = nullptr;
};

// Strict parsing: a mistyped count must not turn into a different probe.
bool ParseArgs(int argc, char** argv, Args* args) {
  bool have_count = false;
  int opt;
  opterr = 0;
  while ((opt = ::getopt(argc, argv, "c:")) != -1) {
    if (opt != 'c') {
      std::fprintf(stderr, "vyrping: unknown option or missing value: -%c\n", optopt);
      return false;
    }
    char* end = nullptr;
    errno = 0;
    const long n = std::strtol(optarg, &end, 10);
    if (errno != 0 || end == optarg || *end != '\0' || n < 1 || n > kMaxCount) {
      std::fprintf(stderr, "vyrping: invalid count: %s (1 to %ld)\n", optarg, kMaxCount);
      return false;
    }
    args->count = n;
    have_count = true;
  }
  if (!have_count) {
    std::fprintf(stderr, "vyrping: the count (-c) is required\n");
    return false;
  }
  if (argc - optind != 1) {
    std::fprintf(stderr, "vyrping: exactly one address is required\n");
    return false;
  }
  args->address = argv[optind];
  return true;
}

// Milliseconds from now until `when`, rounded up, at least 0.
int MillisUntil(Clock::time_point when) {
  const auto left = when - Clock::now();
  if (left <= Clock::duration::zero()) return 0;
  const auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  return ms > INT_MAX ? INT_MAX : static_cast<int>(ms);
}

// A send that fails because nobody can be reached is an unanswered request.
bool Unreachable(int err) {
  return err == EHOSTUNREACH || err == ENETUNREACH || err == EHOSTDOWN || err == ENOBUFS ||
         err == EAGAIN;
}

int Probe(vyrping::EchoSocket& sock, const vyrping::Target& target, const Args& args) {
  const auto start = Clock::now();
  const auto deadline = start + std::chrono::seconds(args.count);
  long sent = 0;
  for (;;) {
    const auto now = Clock::now();
    if (sent < args.count && now >= start + std::chrono::seconds(sent)) {
      const int err = sock.Send(target, static_cast<uint16_t>(sent + 1));
      if (err != 0 && !Unreachable(err)) {
        std::fprintf(stderr, "vyrping: sendto %s: %s\n", args.address, std::strerror(err));
        return kError;
      }
      ++sent;
      continue;
    }
    if (sent >= args.count && now >= deadline) break;
    const auto wake = sent < args.count ? start + std::chrono::seconds(sent) : deadline;
    pollfd pfd = {sock.fd(), POLLIN, 0};
    const int n = ::poll(&pfd, 1, MillisUntil(wake));
    if (n < 0 && errno != EINTR) {
      std::fprintf(stderr, "vyrping: poll: %s\n", std::strerror(errno));
      return kError;
    }
    if (n <= 0) continue;
    uint16_t seq = 0;
    int err = 0;
    switch (sock.Drain(target, static_cast<uint16_t>(sent), &seq, &err)) {
      case vyrping::ReadResult::kReply: {
        const auto ms = std::chrono::duration<double, std::milli>(Clock::now() - start).count() -
                        1000.0 * (seq - 1);
        std::printf("reply from %s: seq=%u time=%.3f ms\n", args.address, seq, ms);
        return kReply;
      }
      case vyrping::ReadResult::kError:
        std::fprintf(stderr, "vyrping: recvfrom: %s\n", std::strerror(err));
        return kError;
      case vyrping::ReadResult::kNothing:
        break;
    }
  }
  std::printf("no reply from %s to %ld request%s\n", args.address, args.count,
              args.count == 1 ? "" : "s");
  return kNoReply;
}

}  // namespace

int main(int argc, char** argv) {
  if (AsksForHelp(argc, argv)) {
    std::fputs(kUsage, stdout);
    std::fputs(kHelp, stdout);
    return kReply;
  }
  Args args;
  if (!ParseArgs(argc, argv, &args)) {
    Usage();
    return kError;
  }
  const auto target = vyrping::ParseTarget(args.address);
  if (!target) {
    std::fprintf(stderr, "vyrping: not an IPv4 or IPv6 address: %s\n", args.address);
    return kError;
  }
  std::string why;
  auto sock = vyrping::EchoSocket::Open(target->family, &why);
  if (!sock) {
    std::fprintf(stderr, "vyrping: cannot open socket: %s\n", why.c_str());
    return kError;
  }
  const int status = Probe(*sock, *target, args);
  std::fflush(stdout);
  return status;
}
