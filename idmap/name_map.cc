#include "idmap/name_map.h"

#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <memory>
#include <string>

#include "services/interrupt.h"

namespace {

constexpr int kNotLoaded = 6;
constexpr std::string_view kWhiteSpace = " \t\n\v\f\r";  // of the C locale

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};

// The buffer that getline allocates and enlarges.
struct LineBuffer {
  LineBuffer() = default;
  LineBuffer(const LineBuffer&) = delete;
  LineBuffer& operator=(const LineBuffer&) = delete;
  ~LineBuffer() { free(text); }

  char* text = nullptr;
  size_t capacity = 0;
};

// Cuts the first word off `rest` and returns it; empty when there is none.
std::string_view takeWord(std::string_view& rest) {
  rest.remove_prefix(std::min(rest.find_first_not_of(kWhiteSpace), rest.size()));
  const std::string_view word = rest.substr(0, rest.find_first_of(kWhiteSpace));
  rest.remove_prefix(word.size());
  return word;
}

// A read that a signal cut short is no failure, because the run is about to end anyway.
int failureUnlessInterrupted() {
  return interrupt::pending() != 0 ? 0 : kNotLoaded;
}

}  // namespace

std::optional<NamePair> parseNameMapLine(std::string_view line) {
  NamePair pair;
  pair.localName = takeWord(line);
  pair.zoneName = takeWord(line);
  if (pair.zoneName.empty())
    return std::nullopt;
  return pair;
}

int LoadNameMap(const char* path, NameMap& map) {
  if (path == nullptr)
    return 0;
  const std::unique_ptr<FILE, FileCloser> file(fopen(path, "re"));
  if (!file)
    return failureUnlessInterrupted();

  LineBuffer buffer;
  for (;;) {
    const ssize_t length = getline(&buffer.text, &buffer.capacity, file.get());
    if (ferror(file.get()) || (length < 0 && !feof(file.get())))
      return failureUnlessInterrupted();
    // Required: a last line without a line feed is dropped, even if it looks whole. It may be cut
    // inside a name, and half a name may be another account's.
    if (feof(file.get()))
      return 0;
    const std::string_view line(buffer.text, static_cast<size_t>(length));
    if (const auto pair = parseNameMapLine(line))
      map.insert_or_assign(std::string(pair->localName), std::string(pair->zoneName));
  }
}
