// The private log, or its index, as a file that is written: appended to, marked in place, synced.
// The caller holds the run's lock (run_lock.h).
//
// Where the file system can promise room, bytes are copied into a mapping of the file whose room
// has been reserved in steps: no system call for a record, and a full disk is found before anything
// is changed. What lies behind the last byte reads as zeros, and after a kill a piece is wholly
// there or begins with a NUL, which ends the content (FORMAT.md, "The end of the file"). Elsewhere
// each piece is one write(), which a kill can only cut at the end of a page.
//
// Functions that return bool leave errno when they return false. A failed sync is remembered: from
// then on nothing is taken any more.
#pragma once

#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "privatelog/mapped_window.h"
#include "privatelog/piece_reader.h"
#include "services/unique_fd.h"

// Not writable for the group: a log that the group can write is refused later on.
inline constexpr mode_t kReadableByAll = 0644;
inline constexpr mode_t kReadableByRoot = 0600;

class LogFile {
 public:
  LogFile() = default;
  ~LogFile() { close(); }
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  // Opens the file and makes it where it is missing. Nothing in it is changed. Refused: a symbolic
  // link, anything but a regular file with one name (EPERM), a file of another user or one that
  // others can write (EPERM).
  bool open(const char* path, mode_t creationMode = kReadableByAll);

  bool isOpen() const { return static_cast<bool>(file); }
  int descriptor() const { return file.get(); }

  // Sets the end of the content and truncates there; call once after open(). end() returns it.
  bool setEnd(uint64_t newEnd);
  uint64_t end() const { return contentEnd; }

  // Makes sure that `length` more bytes can be appended.
  bool reserve(size_t length) { return isReady(length) || makeReady(length); }

  // Appends all of `text`, which is not empty, or nothing.
  bool append(std::string_view text);

  // Appends a text for which room was reserved, or which must not get lost: what cannot be written
  // now is kept and written before anything else.
  void appendKept(std::string_view text);

  // Whether `text` stands at `offset` of the content. False also when that cannot be read.
  bool holds(uint64_t offset, std::string_view text) {
    return file && pieces.holds(file.get(), offset, text, contentEnd);
  }

  // Overwrites bytes of the content. Of several a kill may leave the last ones as they were.
  bool overwrite(uint64_t offset, std::string_view bytes);

  // Takes back what was appended behind `newEnd`, which has been the end before.
  bool takeBack(uint64_t newEnd);

  // The same for a piece of a length that the compiler knows, and always in place where possible.
  template <size_t Length>
  bool append(const std::array<char, Length>& piece) {
    if (!isReady(Length))
      return append(std::string_view(piece.data(), Length));
    char* target = window.at(file.get(), contentEnd, Length);
    memcpy(target + 1, piece.data() + 1, Length - 1);
    std::atomic_ref<char>(*target).store(piece.front(), std::memory_order_release);
    contentEnd += Length;
    dirty = true;
    return true;
  }

  // Brings everything to the disk.
  bool sync();
  // The same, and the file's own name.
  bool syncName();
  // Another second than that of the last sync has begun. `now` is in seconds since 1970.
  bool isSyncDue(int64_t now) const { return now != lastSync; }

  // Cuts off the reserved room, syncs, and gives the file up. False when the content may not
  // be on the disk. Harmless when nothing is open.
  bool close();

 private:
  enum class Means { Undecided, Mapped, Written };

  // Nothing stands in the way of a copy into the window.
  bool isReady(size_t length) const { return contentEnd + length <= readyEnd; }
  bool makeReady(size_t length);
  bool check() const;
  void decideMeans();
  bool allocate(uint64_t needed);
  bool writePending();
  bool writeOut(std::string_view text);

  UniqueFd file;
  std::string directory;  // that holds it
  Means means = Means::Undecided;
  bool roomIsPromised = false;
  uint64_t contentEnd = 0;
  uint64_t allocatedEnd = 0;  // the file's size: content and reserved room
  uint64_t readyEnd = 0;      // the room before it is in the window; 0 when nothing may be copied
  size_t allocationStep = 0;
  MappedWindow window;
  PieceReader pieces;
  MappedWindow markWindow;  // marks run far behind the end
  std::string pending;      // kept by appendKept, not yet in the file
  bool dirty = false;
  int syncError = 0;
  int64_t lastSync = 0;  // seconds since 1970
};
