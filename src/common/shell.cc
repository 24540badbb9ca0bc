#include "common/shell.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>

namespace vyr {

std::string ShellQuote(std::string_view word) {
  std::string quoted;
  quoted.reserve(word.size() + 2);
  quoted.push_back('\'');
  for (char c : word) {
    if (c == '\'') {
      quoted.append("'\\''");
    } else {
      quoted.push_back(c);
    }
  }
  quoted.push_back('\'');
  return quoted;
}

bool IsInetAddress(int family, std::string_view text) {
  const std::string copy(text);  // inet_pton wants a terminated text
  unsigned char buf[sizeof(in6_addr)];
  return inet_pton(family, copy.c_str(), buf) == 1;
}

bool StartsWithNoCase(std::string_view token, std::string_view prefix) {
  return token.size() >= prefix.size() &&
         ::strncasecmp(token.data(), prefix.data(), prefix.size()) == 0;
}

WaitResult DecodeWaitStatus(int status) {
  if ((status & 0x7f) != 0) return {false, 0};
  return {true, (status >> 8) & 0xff};
}

}  // namespace vyr
