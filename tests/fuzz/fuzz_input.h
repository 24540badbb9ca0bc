// Turning a fuzzer's byte buffer into the texts the agent's parsers take.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vyrfuzz {

// The bytes as a text that ends at its first NUL, as a C string would.
inline std::string CText(const uint8_t* data, size_t size) {
  std::string s(reinterpret_cast<const char*>(data), size);
  s.resize(s.find('\0') == std::string::npos ? s.size() : s.find('\0'));
  return s;
}

// Splits off the first line (without its newline); the rest stays in *rest.
inline std::string_view FirstLine(std::string_view all, std::string_view* rest) {
  size_t nl = all.find('\n');
  if (nl == std::string_view::npos) {
    *rest = {};
    return all;
  }
  *rest = all.substr(nl + 1);
  return all.substr(0, nl);
}

}  // namespace vyrfuzz
