// How `vyrctl status` prints the resource table.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "vyripc_admin.h"

namespace vyrctl {

// One field of a tab-separated row: backslash, tab, newline and carriage
// return become \\, \t, \n and \r, so a row is always one line of exactly
// four fields. An empty field is written "-" so that it stays visible
// between the tabs, and a field that is "-" itself is written "\-".
std::string TsvField(std::string_view text);

// A JSON string literal, quotes included. Control characters are escaped;
// bytes that are not valid UTF-8 become U+FFFD, so the output always parses.
std::string JsonString(std::string_view text);

// The rows as tab-separated lines (group, type, resource, description).
std::string FormatTsv(const std::vector<ShmrmRow>& rows);
// The rows as a JSON array of objects with the keys "group", "type",
// "resource" and "description", followed by a newline.
std::string FormatJson(const std::vector<ShmrmRow>& rows);

}  // namespace vyrctl
