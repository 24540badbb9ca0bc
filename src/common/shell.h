// Building shell command lines from values that came from the configuration
// or the command line, and reading wait statuses.
#pragma once

#include <string>
#include <string_view>

namespace vyr {

// Quotes `word` so that /bin/sh sees it as exactly one word with the same
// bytes: 'it'\''s' for it's. Nothing inside is expanded.
std::string ShellQuote(std::string_view word);

// True when `text` is an address of `family` (AF_INET or AF_INET6) as
// inet_pton reads it: the check a value passes before it may stand in a
// command line unquoted.
bool IsInetAddress(int family, std::string_view text);

// True when `token` begins with `prefix`, ignoring letter case.
bool StartsWithNoCase(std::string_view token, std::string_view prefix);

// A wait status as system(), pclose() and waitpid() give it.
struct WaitResult {
  bool normal;    // the low seven bits are zero: the command ended by exit
  int exit_code;  // bits 8 to 15 when normal
};
WaitResult DecodeWaitStatus(int status);

}  // namespace vyr
