#include "xml_path.h"

#include <cstdint>
#include <cstring>
#include <limits>

#include "vyrxml.h"

namespace vyrxml {

namespace {

bool MatchesSegment(pugi::xml_node node, const PathSegment& seg) {
  if (node.type() != pugi::node_element || seg.tag != node.name()) return false;
  pugi::xml_attribute attr = node.attribute("name");
  if (!seg.name) return attr.empty();
  return !attr.empty() && *seg.name == attr.value();
}

}  // namespace

std::vector<PathSegment> ParsePath(std::string_view path) {
  std::vector<PathSegment> segs;
  if (path.size() < 2 || path.front() != '/') return {};
  std::size_t pos = 1;
  while (pos <= path.size()) {
    std::size_t end = path.find('/', pos);
    if (end == std::string_view::npos) end = path.size();
    std::string_view seg = path.substr(pos, end - pos);
    if (seg.empty()) return {};
    PathSegment out;
    std::size_t at = seg.find('@');
    if (at == std::string_view::npos) {
      out.tag = std::string(seg);
    } else {
      if (at == 0 || at + 1 == seg.size()) return {};
      out.tag = std::string(seg.substr(0, at));
      out.name = std::string(seg.substr(at + 1));
    }
    segs.push_back(std::move(out));
    pos = end + 1;
  }
  return segs;
}

std::string ServerPath(std::string_view path, std::string_view server) {
  // Position of the '/' that ends the third segment.
  std::size_t pos = 0;
  for (int i = 0; i < 4; ++i) {
    pos = path.find('/', pos + (i == 0 ? 0 : 1));
    if (pos == std::string_view::npos) return {};
  }
  std::string out(path.substr(0, pos));
  out += "/server@";
  out += server;
  out += path.substr(pos);
  return out;
}

pugi::xml_node FindElement(const pugi::xml_document& doc, const std::vector<PathSegment>& segs) {
  if (segs.empty()) return {};
  pugi::xml_node node = doc.document_element();
  if (!node || !MatchesSegment(node, segs.front())) return {};
  for (std::size_t i = 1; i < segs.size(); ++i) {
    pugi::xml_node next;
    for (pugi::xml_node child : node.children(segs[i].tag.c_str())) {
      if (MatchesSegment(child, segs[i])) {
        next = child;
        break;
      }
    }
    if (!next) return {};
    node = next;
  }
  return node;
}

std::string ElementText(pugi::xml_node element) {
  std::string text;
  for (pugi::xml_node child : element.children()) {
    if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) {
      text += child.value();
    }
  }
  return text;
}

int CopyText(std::string_view text, void* buf, int size) {
  if (size < 0 || text.size() + 1 > static_cast<std::size_t>(size)) {
    return VYR_XMLERR_NOTENOUGH_SIZE;
  }
  std::memcpy(buf, text.data(), text.size());
  static_cast<char*>(buf)[text.size()] = '\0';
  return VYR_XMLERR_SUCCESS;
}

int ParseInt(std::string_view text, int* out) {
  if (text.empty()) return VYR_XMLERR_NOTEXIST_VALUE;
  bool negative = false;
  std::size_t pos = 0;
  if (text[0] == '+' || text[0] == '-') {
    negative = text[0] == '-';
    pos = 1;
  }
  if (pos == text.size()) return VYR_XMLERR_INVALID_CONTENTS;
  // Accumulate the magnitude; one past INT_MAX is allowed for INT_MIN.
  const std::int64_t limit =
      static_cast<std::int64_t>(std::numeric_limits<int>::max()) + (negative ? 1 : 0);
  std::int64_t value = 0;
  for (; pos < text.size(); ++pos) {
    char c = text[pos];
    if (c < '0' || c > '9') return VYR_XMLERR_INVALID_CONTENTS;
    value = value * 10 + (c - '0');
    if (value > limit) return VYR_XMLERR_INVALID_CONTENTS;
  }
  *out = static_cast<int>(negative ? -value : value);
  return VYR_XMLERR_SUCCESS;
}

std::vector<std::string> ChildNames(pugi::xml_node parent, std::string_view tag) {
  std::vector<std::string> names;
  std::string tagname(tag);
  for (pugi::xml_node child : parent.children(tagname.c_str())) {
    pugi::xml_attribute attr = child.attribute("name");
    if (!attr.empty()) names.emplace_back(attr.value());
  }
  return names;
}

}  // namespace vyrxml
