#include "common/shell.h"

#include <algorithm>

namespace vyr {

namespace {

constexpr std::string_view kSeparators = " \t";

bool IsPlainChar(char c) {
  const bool alnum = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
  return alnum || std::string_view("._-:/%+@,=").find(c) != std::string_view::npos;
}

}  // namespace

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

bool IsShellPlain(std::string_view word) {
  return !word.empty() && std::ranges::all_of(word, IsPlainChar);
}

std::string ShellWord(std::string_view word) {
  return IsShellPlain(word) ? std::string(word) : ShellQuote(word);
}

std::string ShellWords(std::string_view text) {
  std::string line;
  std::size_t pos = 0;
  while (pos < text.size()) {
    const std::size_t word = std::min(text.find_first_not_of(kSeparators, pos), text.size());
    line.append(text.substr(pos, word - pos));
    if (word == text.size()) break;
    pos = std::min(text.find_first_of(kSeparators, word), text.size());
    line.append(ShellWord(text.substr(word, pos - word)));
  }
  return line;
}

std::string ShellDoubleQuote(std::string_view word) {
  std::string quoted = "\"";
  for (char c : word) {
    if (c == '"' || c == '$' || c == '`' || c == '\\') quoted.push_back('\\');
    quoted.push_back(c);
  }
  quoted.push_back('"');
  return quoted;
}

}  // namespace vyr
