// Turning a fuzzer's byte buffer into the texts the agent's parsers take.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace vyrfuzz {

// The bytes as a text that ends at its first NUL, as a C string would.
inline std::string CText(const uint8_t* data, size_t size) {
  return std::string(reinterpret_cast<const char*>(data), size).c_str();
}

}  // namespace vyrfuzz
