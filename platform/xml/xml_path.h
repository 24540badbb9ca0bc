// Configuration paths and values of the XML configuration library.
//
// A path is "/seg/seg/...", read from the document element down. A segment
// "tag" names the first child <tag> without a name attribute, "tag@x" the
// first child <tag name="x">. Pure functions over a parsed document: safe
// from any thread while the document is not being replaced.
#pragma once

#include <optional>
#include <pugixml.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace vyrxml {

struct PathSegment {
  std::string tag;
  std::optional<std::string> name;  // set for "tag@name"
};

// Splits a path into its segments. Empty when the path is not of the form
// above (no leading '/', an empty segment, an empty tag or name).
std::vector<PathSegment> ParsePath(std::string_view path);

// The path with "server@<server>" inserted after its third segment (the
// resource: /root/resource/vip@vip1/server@node1/...). Empty when the path
// has fewer than four segments.
std::string ServerPath(std::string_view path, std::string_view server);

// The element a parsed path names in `doc`, or an empty node.
pugi::xml_node FindElement(const pugi::xml_document& doc, const std::vector<PathSegment>& segs);

// The element's own text exactly as written: its character-data children
// joined, without trimming.
std::string ElementText(pugi::xml_node element);

// Copies `text` and its terminator into buf (capacity `size`).
// 0, or VYR_XMLERR_NOTENOUGH_SIZE when it does not fit.
int CopyText(std::string_view text, void* buf, int size);

// Converts "[+-]digits" into an int. VYR_XMLERR_NOTEXIST_VALUE for empty
// text, VYR_XMLERR_INVALID_CONTENTS for anything else that is not such a
// number or lies outside the int range.
int ParseInt(std::string_view text, int* out);

// The name attributes of the `tag` children of `parent`, in document order
// (children without a name are skipped).
std::vector<std::string> ChildNames(pugi::xml_node parent, std::string_view tag);

}  // namespace vyrxml
