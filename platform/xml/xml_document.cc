#include "xml_document.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "unique_fd.h"
#include "vyrxml.h"

namespace vyrxml {

namespace {

// Whole file into `out`; 0 or an errno.
int ReadWholeFile(const std::string& file, std::string* out) {
  vyr::UniqueFd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (!fd) return errno;
  std::string text;
  char chunk[8192];
  int err = 0;
  for (;;) {
    ssize_t n = ::read(fd.get(), chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      err = errno;
      break;
    }
    if (n == 0) break;
    text.append(chunk, static_cast<std::size_t>(n));
  }
  if (err == 0) *out = std::move(text);
  return err;
}

}  // namespace

void LineColumn(const std::string& text, std::ptrdiff_t offset, int* line, int* column) {
  std::size_t end = offset < 0 ? 0 : static_cast<std::size_t>(offset);
  if (end > text.size()) end = text.size();
  int l = 1;
  int c = 1;
  for (std::size_t i = 0; i < end; ++i) {
    if (text[i] == '\n') {
      ++l;
      c = 1;
    } else {
      ++c;
    }
  }
  *line = l;
  *column = c;
}

LoadResult ParseDocument(const std::string& name, const std::string& text) {
  LoadResult result;
  auto doc = std::make_unique<pugi::xml_document>();
  // Default parsing keeps no whitespace-only data; parse_ws_pcdata_single
  // keeps it when it is an element's only content, so "<x>  </x>" is two
  // blanks while the indentation between elements is dropped.
  unsigned int options = pugi::parse_default | pugi::parse_ws_pcdata_single;
  pugi::xml_parse_result parsed = doc->load_buffer(text.data(), text.size(), options);
  if (!parsed) {
    int line = 0;
    int column = 0;
    LineColumn(text, parsed.offset, &line, &column);
    result.status = VYR_XMLERR_INVALID_XML;
    result.error = name + ":" + std::to_string(line) + ":" + std::to_string(column) +
                   ": malformed XML: " + parsed.description();
    return result;
  }
  result.doc = std::move(doc);
  return result;
}

LoadResult LoadDocument(const std::string& file) {
  std::string text;
  int err = ReadWholeFile(file, &text);
  if (err != 0) {
    LoadResult result;
    result.status = VYR_XMLERR_NOT_LOAD;
    result.error = file + ": cannot read: " + std::strerror(err);
    return result;
  }
  return ParseDocument(file, text);
}

}  // namespace vyrxml
