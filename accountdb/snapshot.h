// A copy of an account file, made by a command and read line by line while updates go on.
//
// take() lets "/bin/cat" write the account file into a temporary file, which has lost its name by
// then and lives until drop() or the end of the object. Marker lines never arrive. Lines are read
// whole, whatever their length and bytes, and one with a NUL byte in its name does not arrive; or,
// on request, as they always were: a line of 1,024 bytes or more, its newline included, arrives in
// pieces, and a piece ends at its first NUL byte. Reports by bool; the words are the caller's.
#pragma once

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "services/unique_fd.h"

namespace orvs {

class Snapshot {
 public:
  static constexpr std::size_t kReadBufferSize = 1024;

  enum class Taken { Done, NoTemporaryFile, Failed };
  enum class Lines { Whole, Pieces };

  Snapshot() = default;
  ~Snapshot() { std::free(lineBuffer); }
  Snapshot(const Snapshot&) = delete;
  Snapshot& operator=(const Snapshot&) = delete;

  Taken take(const char* accountFile, Lines how);
  void drop() { stream.reset(); }

  bool isTaken() const { return stream != nullptr; }

  // Back to the first line. False when that failed.
  bool rewind();

  // The next line or piece of a line; an empty string at the end. Required: an empty line reads
  // like the end, as it does in the store that rewrites the file.
  std::string readLine();

  // All of it, marker lines and what is behind an empty line included; less when it cannot be read.
  std::string text() const;

  // A line could not be read.
  bool hasFailed() const { return std::ferror(stream.get()) != 0; }

  // The temporary file's name, or the template of it.
  const std::string& path() const { return temporaryPath; }

 private:
  struct StreamCloser {
    void operator()(FILE* file) const { std::fclose(file); }
  };

  std::string readWholeLine();
  std::string readPiece();

  Lines lines = Lines::Whole;
  std::string temporaryPath;
  std::unique_ptr<FILE, StreamCloser> stream;
  std::array<char, kReadBufferSize> buffer = {};  // of pieces
  char* lineBuffer = nullptr;                     // getdelim's own, kept from line to line
  std::size_t lineCapacity = 0;
};

}  // namespace orvs
