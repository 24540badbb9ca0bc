// Reading command output: the line buffer, the tokenizer, keyword
// comparison ignoring case and the address-text check. Plain functions over
// caller-owned text; safe from any thread.
#pragma once

#include <cstddef>
#include <string_view>

namespace vyr {

// Command output is read line by line through buffers of this size.
inline constexpr std::size_t kLineMax = 1024;
// A line that fits kLineMax holds at most this many tokens.
inline constexpr int kMaxTokens = static_cast<int>(kLineMax / 2);

// Cuts `line` in place into tokens separated by blanks, tabs and newlines,
// as strtok_r does: each token is terminated where its separator was. Stores
// at most `max` token pointers in `tokens` and returns how many it stored.
int CutTokens(char* line, char** tokens, int max);

// `a` and `b` are the same word, ignoring letter case.
bool EqualsNoCase(std::string_view a, std::string_view b);
// `token` begins with `prefix`, ignoring letter case.
bool StartsWithNoCase(std::string_view token, std::string_view prefix);

// True when `text` is an address of `family` (AF_INET or AF_INET6) as
// inet_pton reads it: the check a value passes before it may stand in a
// command line unquoted.
bool IsInetAddress(int family, std::string_view text);

}  // namespace vyr
