// Building shell command lines from values that came from the configuration
// or the command line.
#pragma once

#include <string>
#include <string_view>

namespace vyr {

// Quotes `word` so that /bin/sh sees it as exactly one word with the same
// bytes: 'it'\''s' for it's. Nothing inside is expanded.
std::string ShellQuote(std::string_view word);

}  // namespace vyr
