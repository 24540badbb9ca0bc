// Building shell command lines from values that came from the configuration
// or the command line.
//
// Quote only what needs it: a value made of characters that /bin/sh passes
// on unchanged outside quotes stands in the line as written, so the line
// reads exactly as its format; any other value is quoted, so that nothing
// in it is ever expanded or run. Either way the command receives the same
// arguments.
#pragma once

#include <string>
#include <string_view>

namespace vyr {

// Quotes `word` so that /bin/sh sees it as exactly one word with the same
// bytes: 'it'\''s' for it's. Nothing inside is expanded.
std::string ShellQuote(std::string_view word);

// True when `word` is not empty and made only of letters, digits and
// ._-:/%+@,= (characters the shell gives no meaning to).
bool IsShellPlain(std::string_view word);

// One argument: `word` as written when it is plain, else ShellQuote(word)
// (an empty value too, so that it still is an argument).
std::string ShellWord(std::string_view word);

// `text` as the shell would split it: blanks and tabs stay where they stand
// as word separators, each word between them goes through ShellWord. A text
// of plain words comes back unchanged.
std::string ShellWords(std::string_view text);

// `word` between double quotes, as the command lines show a command path:
// the four characters still special there (" $ ` \) get a backslash, so the
// shell hands the command exactly these bytes as one word, and a path
// without them reads as written.
std::string ShellDoubleQuote(std::string_view word);

}  // namespace vyr
