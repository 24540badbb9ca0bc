// Every configuration lookup on arbitrary XML: lines of paths up to a line "--",
// then the document; text, integer, server path and children for each path.
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "platform/xml/vyrxml.h"
#include "platform/xml/xml_document.h"
#include "platform/xml/xml_path.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

void Lookup(const pugi::xml_document& doc, std::string_view path) {
  std::vector<vyrxml::PathSegment> segs = vyrxml::ParsePath(path);
  if (segs.empty()) return;
  pugi::xml_node node = vyrxml::FindElement(doc, segs);
  if (!node) return;
  std::string text = vyrxml::ElementText(node);
  char small[8];
  int ret = vyrxml::CopyText(text, small, sizeof small);
  if (ret == 0 && std::strlen(small) != text.size()) std::abort();
  if (ret != 0 && ret != VYR_XMLERR_NOTENOUGH_SIZE) std::abort();
  int value = 0;
  ret = vyrxml::ParseInt(text, &value);
  if (ret != 0 && ret != VYR_XMLERR_NOTEXIST_VALUE && ret != VYR_XMLERR_INVALID_CONTENTS) {
    std::abort();
  }
  vyrxml::ChildNames(node, segs.back().tag);
  std::string server = vyrxml::ServerPath(path, "node1");
  if (!server.empty()) vyrxml::FindElement(doc, vyrxml::ParsePath(server));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view all(reinterpret_cast<const char*>(data), size);
  std::vector<std::string_view> paths;
  std::string_view rest = all;
  while (!rest.empty() && paths.size() < 16) {
    const size_t nl = rest.find('\n');
    const std::string_view line = rest.substr(0, nl);
    rest = nl == std::string_view::npos ? std::string_view() : rest.substr(nl + 1);
    if (line == "--") break;
    paths.push_back(line);
  }
  vyrxml::LoadResult loaded = vyrxml::ParseDocument("fuzz.xml", std::string(rest));
  if (loaded.status != 0) {
    if (loaded.doc != nullptr || loaded.error.empty()) std::abort();
    return 0;
  }
  for (std::string_view path : paths) Lookup(*loaded.doc, path);
  return 0;
}
