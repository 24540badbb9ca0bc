// The run's statuses (the exit status table of vyrvip(1)) and the one way a
// failure writes its status description.
//
// A status travels up unchanged from the part that detected the failure to
// become the exit status. The part that detects it writes the description
// once, with Fail, so that the text and the status cannot drift apart.
// Safe from any thread (the description is written under its lock).
#pragma once

namespace vyr::status {

inline constexpr int kSuccess = 0;
inline constexpr int kCheckFinding = 1;         // check mode: a finding, or no check
inline constexpr int kPingUnexpected = 2;       // ping ended with an unexpected status
inline constexpr int kToolFailed = 3;           // the interface tool exited non-zero
inline constexpr int kInvalidOption = 4;        // invalid command line
inline constexpr int kNotRoot = 5;              // not run as root
inline constexpr int kXmlInit = 6;              // configuration library not initialised
inline constexpr int kConfigLoad = 7;           // cluster configuration not loaded
inline constexpr int kPolicyLoad = 8;           // a configuration policy not loaded
inline constexpr int kServerNotConfigured = 9;  // this server's address or interface
inline constexpr int kNoMemory = 10;            // out of memory
inline constexpr int kAbnormalEnd = 11;         // a command did not end normally
inline constexpr int kToolNotStarted = 12;      // the interface tool could not be started
inline constexpr int kNoPingCommand = 13;       // the ping command does not exist
inline constexpr int kNoAddress = 14;           // the listing returned no address
inline constexpr int kInUse = 15;               // the address is already in use
inline constexpr int kNoInterface = 17;         // no interface configured, or no free alias
inline constexpr int kBadMac = 18;              // malformed hardware address in the listing
inline constexpr int kLinkSocket = 19;          // the link-check socket could not be opened
inline constexpr int kNoThread = 22;            // a worker thread could not be started
inline constexpr int kTimeout = 23;             // the time limit passed
inline constexpr int kStillListed = 24;         // still listed after deactivation
inline constexpr int kStillAnswers = 25;        // still answering after deactivation
inline constexpr int kAliasInUse = 28;          // the configured alias carries an address
inline constexpr int kNameTooLong = 30;         // alias name longer than 15 characters
inline constexpr int kBadPrefix = 31;           // invalid prefix length
inline constexpr int kPathMissing = 32;         // a configuration path is missing
inline constexpr int kNoHostname = 33;          // the host name is not available
inline constexpr int kLinkDown = 34;            // the NIC link is down
inline constexpr int kLinkMethod = 35;          // the link check got an unknown method
inline constexpr int kKernelList = 38;          // the kernel interface list not read
inline constexpr int kAddFailed = 39;           // the address not added by ioctl
inline constexpr int kRemoveFailed = 40;        // the address not removed by ioctl
inline constexpr int kInternal = 99;            // internal error

}  // namespace vyr::status

namespace vyr {

// Writes "Internal error. (status=<status>)" as the status description and
// returns `status`: return Fail(status::kTimeout);
int Fail(int status);
// Writes the formatted text as the status description and returns `status`:
// return Fail(status::kInUse, "IP address was already used.");
int Fail(int status, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace vyr
