// A copy of an account file, made by a command and read line by line while updates go on.
//
// take() lets "/bin/cat" write the account file into a temporary file, which lives until drop() or
// the end of the object. A line of 1,024 bytes or more, its newline included, arrives in pieces.
// Marker lines never arrive. Reports by bool; the words are the caller's.
#pragma once

#include <array>
#include <cstdio>
#include <memory>
#include <string>

#include "services/unique_fd.h"

namespace orvs {

class Snapshot {
 public:
  static constexpr std::size_t kReadBufferSize = 1024;

  enum class Taken { Done, NoTemporaryFile, Failed };

  Snapshot() = default;
  ~Snapshot() { drop(); }
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

  Taken take(const char* accountFile);
  void drop();

  bool isTaken() const { return stream != nullptr; }

  // Back to the first line. False when that failed.
  bool rewind();

  // The next line or piece of a line; an empty string at the end. Required: an empty line reads
  // like the end, as it does in the store that rewrites the file.
  std::string readLine();

  // A line could not be read.
  bool hasFailed() const { return std::ferror(stream.get()) != 0; }

  // The temporary file's name, or the template of it.
  const std::string& path() const { return temporaryPath; }

 private:
  struct StreamCloser {
    void operator()(FILE* file) const { std::fclose(file); }
  };

  std::string temporaryPath;
  bool isThere = false;  // the temporary file
  std::unique_ptr<FILE, StreamCloser> stream;
  std::array<char, kReadBufferSize> buffer = {};
};

}  // namespace orvs
