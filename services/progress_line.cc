#include "services/progress_line.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "services/text.h"

namespace {

constexpr std::string_view kErase = "\r\x1b[K";
constexpr std::string_view kCut = "...";

// A character of a path as it is shown, and the columns that it may take.
struct Glyph {
  std::string_view text;
  size_t columns;
};

std::vector<Glyph> glyphsOf(std::string_view path) {
  std::vector<Glyph> glyphs;
  while (!path.empty()) {
    const size_t length = utf8SequenceLength(path);
    const auto first = static_cast<unsigned char>(path[0]);
    // U+0080 to U+009F are control characters, too.
    const bool isControl =
        first < 0x20 || first == 0x7F || (first == 0xC2 && length == 2 && (path[1] & 0x20) == 0);
    if (length == 0 || isControl)
      glyphs.push_back({"?", 1});
    else
      glyphs.push_back({path.substr(0, length), length == 1 ? size_t{1} : size_t{2}});
    path.remove_prefix(length == 0 ? 1 : length);
  }
  return glyphs;
}

// As much of the end of `path` as fits into `columns`, behind "..." when the front is cut. Takes
// characters from the end while they fit; then gives up some again to make room for the dots.
std::string pathEnd(std::string_view path, size_t columns) {
  const std::vector<Glyph> glyphs = glyphsOf(path);
  size_t width = 0;
  size_t begin = glyphs.size();
  while (begin > 0 && width + glyphs[begin - 1].columns <= columns)
    width += glyphs[--begin].columns;
  std::string shown;
  if (begin > 0) {
    if (columns < kCut.size())
      return {};
    for (; begin < glyphs.size() && width + kCut.size() > columns; ++begin)
      width -= glyphs[begin].columns;
    shown = kCut;
  }
  for (; begin < glyphs.size(); ++begin)
    shown += glyphs[begin].text;
  return shown;
}

void writeAll(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
    if (written < 0 && errno != EINTR)
      return;
    text.remove_prefix(written > 0 ? static_cast<size_t>(written) : 0);
  }
}

}  // namespace

std::string progressText(const ProgressCounts& counts, std::string_view directory, size_t columns) {
  const double rate = counts.seconds > 0 ? static_cast<double>(counts.seen) / counts.seconds : 0;
  std::string text = std::to_string(counts.seen) + " entries seen, " +
                     std::to_string(counts.changed) + " changed, " +
                     std::to_string(static_cast<uint64_t>(rate)) + " a second: ";
  if (text.size() >= columns)
    return text.substr(0, columns);
  return text + pathEnd(directory, columns - text.size());
}

namespace progress_line {

bool isPossible() {
  const char* const kind = getenv("TERM");
  return isatty(STDERR_FILENO) == 1 && kind != nullptr && *kind != '\0' &&
         strcmp(kind, "dumb") != 0;
}

size_t columns() {
  winsize size = {};
  constexpr unsigned short kUsual = 80;
  const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return (isKnown ? size.ws_col : kUsual) - size_t{1};
}

void draw(const std::string& text) {
  if (tcgetpgrp(STDERR_FILENO) != getpgrp())
    return;
  isShown = true;
  writeAll(std::string(kErase) + text);
}

void erase() {
  const int savedErrno = errno;
  isShown = false;
  writeAll(kErase);
  errno = savedErrno;
}

}  // namespace progress_line
