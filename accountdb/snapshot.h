// A copy of an account file, made by a command and read line by line while updates change the file
// itself.
//
// take() lets "/bin/cat" write the file into a temporary file without a name, which lives until
// drop() or the end of the object. Marker lines are left out. Lines::Whole reads lines of any
// length and with any bytes, and leaves out a line with a NUL byte in its name. Lines::Pieces reads
// as older releases did: a line of 1,024 bytes or more, its newline included, comes in pieces, and
// a piece ends at its first NUL byte. Reports by bool; the caller has the messages.
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

  // Goes back to the first line; false when that failed.
  bool rewind();

  // The next line or piece; an empty string at the end. Required: an empty line reads like the end,
  // as it does in the store that rewrites the file.
  std::string readLine();

  // The text of the copy, with marker lines and what lies behind an empty line. Shorter when it
  // cannot be read.
  std::string text() const;

  // Whether a line could not be read.
  bool hasFailed() const { return std::ferror(stream.get()) != 0; }

  // The name that the temporary file had, or the template when none could be made.
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
