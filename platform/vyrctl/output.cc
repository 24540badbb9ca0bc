#include "output.h"

#include <cstdio>

namespace vyrctl {

namespace {

// Length of the valid UTF-8 sequence at the start of `s`, or 0.
std::size_t Utf8Length(std::string_view s) {
  auto byte = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
  unsigned char c = byte(0);
  std::size_t len = 0;
  unsigned int min = 0;
  unsigned int cp = 0;
  if (c >= 0xc2 && c <= 0xdf) {
    len = 2, cp = c & 0x1fu, min = 0x80;
  } else if (c >= 0xe0 && c <= 0xef) {
    len = 3, cp = c & 0x0fu, min = 0x800;
  } else if (c >= 0xf0 && c <= 0xf4) {
    len = 4, cp = c & 0x07u, min = 0x10000;
  } else {
    return 0;
  }
  if (s.size() < len) return 0;
  for (std::size_t i = 1; i < len; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
    cp = (cp << 6) | (byte(i) & 0x3fu);
  }
  // Overlong forms, surrogates and code points past U+10FFFF are invalid.
  if (cp < min || (cp >= 0xd800 && cp <= 0xdfff) || cp > 0x10ffff) return 0;
  return len;
}

}  // namespace

std::string TsvField(std::string_view text) {
  if (text.empty()) return "-";
  if (text == "-") return "\\-";
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        out += c;
    }
  }
  return out;
}

std::string JsonString(std::string_view text) {
  std::string out = "\"";
  for (std::size_t i = 0; i < text.size();) {
    unsigned char c = static_cast<unsigned char>(text[i]);
    if (c >= 0x80) {
      std::size_t len = Utf8Length(text.substr(i));
      if (len == 0) {
        out += "\\ufffd";
        ++i;
      } else {
        out.append(text.substr(i, len));
        i += len;
      }
      continue;
    }
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\t':
        out += "\\t";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        if (c < 0x20 || c == 0x7f) {
          char esc[8];
          std::snprintf(esc, sizeof esc, "\\u%04x", c);
          out += esc;
        } else {
          out += static_cast<char>(c);
        }
    }
    ++i;
  }
  out += '"';
  return out;
}

std::string FormatTsv(const std::vector<ShmrmRow>& rows) {
  std::string out;
  for (const ShmrmRow& r : rows) {
    out += TsvField(r.group) + '\t' + TsvField(r.type) + '\t' + TsvField(r.rsc) + '\t' +
           TsvField(r.descript) + '\n';
  }
  return out;
}

std::string FormatJson(const std::vector<ShmrmRow>& rows) {
  std::string out = "[";
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const ShmrmRow& r = rows[i];
    out += i == 0 ? "\n  " : ",\n  ";
    out += "{\"group\": " + JsonString(r.group) + ", \"type\": " + JsonString(r.type) +
           ", \"resource\": " + JsonString(r.rsc) + ", \"description\": " + JsonString(r.descript) +
           "}";
  }
  out += rows.empty() ? "]\n" : "\n]\n";
  return out;
}

}  // namespace vyrctl
