#include "common/text.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <string.h>
#include <strings.h>

#include <string>

namespace vyr {

namespace {
constexpr const char* kSeparators = " \t\n";
}  // namespace

int CutTokens(char* line, char** tokens, int max) {
  int n = 0;
  char* save = nullptr;
  for (char* tok = ::strtok_r(line, kSeparators, &save); tok != nullptr && n < max;
       tok = ::strtok_r(nullptr, kSeparators, &save)) {
    tokens[n++] = tok;
  }
  return n;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && ::strncasecmp(a.data(), b.data(), b.size()) == 0;
}

bool StartsWithNoCase(std::string_view token, std::string_view prefix) {
  return token.size() >= prefix.size() &&
         ::strncasecmp(token.data(), prefix.data(), prefix.size()) == 0;
}

bool IsInetAddress(int family, std::string_view text) {
  const std::string copy(text);  // inet_pton wants a terminated text
  unsigned char buf[sizeof(in6_addr)];
  return inet_pton(family, copy.c_str(), buf) == 1;
}

}  // namespace vyr
