#include "support/log_lines.h"

#include <cctype>
#include <sstream>
#include <string_view>

#include "support/sh.h"

namespace vyrtest {

namespace {

// "YYYY-MM-DD HH:MM:SS.mmm": digits everywhere but the separators.
bool IsStamp(std::string_view s) {
  static constexpr std::string_view kShape = "dddd-dd-dd dd:dd:dd.ddd";
  if (s.size() != kShape.size()) return false;
  for (std::size_t i = 0; i < s.size(); ++i) {
    const bool digit = std::isdigit(static_cast<unsigned char>(s[i])) != 0;
    if (kShape[i] == 'd' ? !digit : s[i] != kShape[i]) return false;
  }
  return true;
}

// Reads "<key><digits>" followed by a blank at `pos`; moves past the blank.
bool ReadNumberField(std::string_view s, std::size_t& pos, std::string_view key, long* out) {
  if (s.substr(pos, key.size()) != key) return false;
  pos += key.size();
  std::size_t start = pos;
  while (pos < s.size() && std::isdigit(static_cast<unsigned char>(s[pos]))) ++pos;
  if (pos == start || pos >= s.size() || s[pos] != ' ') return false;
  *out = std::stol(std::string(s.substr(start, pos - start)));
  ++pos;
  return true;
}

// Reads a word up to the next blank at `pos`; moves past the blank.
bool ReadWord(std::string_view s, std::size_t& pos, std::string_view* out) {
  std::size_t end = s.find(' ', pos);
  if (end == std::string_view::npos || end == pos) return false;
  *out = s.substr(pos, end - pos);
  pos = end + 1;
  return true;
}

}  // namespace

bool ParseLogLine(const std::string& line, LogLine* out) {
  std::string_view s(line);
  if (s.size() < 24 || !IsStamp(s.substr(0, 23)) || s[23] != ' ') return false;
  LogLine parsed;
  parsed.stamp = std::string(s.substr(0, 23));
  std::size_t pos = 24;
  if (!ReadNumberField(s, pos, "pid=", &parsed.pid)) return false;
  if (!ReadNumberField(s, pos, "tid=", &parsed.tid)) return false;
  std::string_view level, source;
  if (!ReadWord(s, pos, &level) || !ReadWord(s, pos, &source)) return false;
  if (level != "ERROR" && level != "WARN" && level != "INFO" && level != "DETAIL" &&
      level != "EVENT") {
    return false;
  }
  const std::size_t colon = source.rfind(':');
  if (colon == std::string_view::npos || colon + 1 >= source.size()) return false;
  for (char c : source.substr(colon + 1)) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
  }
  const std::size_t func_end = s.find(": ", pos);
  if (func_end == std::string_view::npos || func_end == pos) return false;
  parsed.level = std::string(level);
  parsed.file = std::string(source.substr(0, colon));
  parsed.line = std::stoi(std::string(source.substr(colon + 1)));
  parsed.func = std::string(s.substr(pos, func_end - pos));
  parsed.text = std::string(s.substr(func_end + 2));
  *out = parsed;
  return true;
}

std::vector<LogLine> ReadLogLines(const std::string& path) {
  std::vector<LogLine> lines;
  std::istringstream in(ReadFile(path));
  std::string raw;
  while (std::getline(in, raw)) {
    LogLine parsed;
    if (!ParseLogLine(raw, &parsed)) {
      parsed = LogLine{};
      parsed.text = raw;
    }
    lines.push_back(parsed);
  }
  return lines;
}

std::vector<std::string> LogTexts(const std::string& path) {
  std::vector<std::string> texts;
  for (const LogLine& l : ReadLogLines(path)) texts.push_back(l.text);
  return texts;
}

}  // namespace vyrtest
