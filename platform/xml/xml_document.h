// Loading one configuration file into a parsed document, with a reason that
// names the file, the line and the cause when it cannot be loaded.
#pragma once

#include <memory>
#include <pugixml.hpp>
#include <string>

namespace vyrxml {

struct LoadResult {
  std::unique_ptr<pugi::xml_document> doc;  // set on success
  int status = 0;                           // 0, VYR_XMLERR_NOT_LOAD or VYR_XMLERR_INVALID_XML
  std::string error;                        // "<file>:<line>: <reason>" on failure
};

// Reads and parses `file`. A file that cannot be read gives
// VYR_XMLERR_NOT_LOAD, one that is not well-formed XML (also an empty one)
// VYR_XMLERR_INVALID_XML. Character data is kept exactly as written,
// whitespace-only values included; the blanks that only indent elements
// are dropped.
LoadResult LoadDocument(const std::string& file);

// Parses text that came from `name` (used in the error text only).
LoadResult ParseDocument(const std::string& name, const std::string& text);

// Line (1-based) and column of byte `offset` of `text`.
void LineColumn(const std::string& text, std::ptrdiff_t offset, int* line, int* column);

}  // namespace vyrxml
