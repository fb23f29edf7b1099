// Writes the private log or its index: appends, marks in place, syncs. The caller holds the run's
// lock (run_lock.h).
//
// Where the file system keeps reserved room, room is reserved in steps and bytes are copied into a
// mapping of the file. So a record costs no system call, and a full disk is noticed before anything
// is changed. Reserved room reads as zeros; after a kill a piece is complete or begins with a NUL,
// which ends the content (FORMAT.md, "The end of the file"). On other file systems each piece is
// one write(), which a kill can only cut at the end of a page.
//
// Functions that return bool leave errno when they return false. After a failed sync every further
// append fails.
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

// No write permission for the group: open() refuses a file that a group other than root's can
// write.
inline constexpr mode_t kReadableByAll = 0644;
inline constexpr mode_t kReadableByRoot = 0600;

class LogFile {
 public:
  LogFile() = default;
  ~LogFile() { close(); }
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  // Opens the file, or creates it; changes nothing in it. Refuses a symbolic link (ELOOP). Refuses
  // with EPERM anything but a regular file with one name, a file of another user, and one that
  // others can write.
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

  // Appends a text that must not get lost: when it cannot be written now, it is kept and written
  // before any other text.
  void appendKept(std::string_view text);

  // Whether the content has `text` at `offset`. False also when reading fails.
  bool holds(uint64_t offset, std::string_view text) {
    return file && pieces.holds(file.get(), offset, text, contentEnd);
  }

  // Overwrites bytes of the content in place. After a kill the last ones may still be the old ones.
  bool overwrite(uint64_t offset, std::string_view bytes);

  // Removes what was appended behind `newEnd`, which was an earlier end().
  bool takeBack(uint64_t newEnd);

  // append() for a piece of constant length, which the compiler copies without a call.
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

  // Syncs the content (fdatasync).
  bool sync();
  // sync(), and the directory entry of the file.
  bool syncName();
  // Whether the last sync was not in the second `now`, which counts from 1970.
  bool isSyncDue(int64_t now) const { return now != lastSync; }

  // Cuts the reserved room off, syncs and closes the file. False when the content may not be on the
  // disk. Does nothing when no file is open.
  bool close();

 private:
  enum class Means { Undecided, Mapped, Written };

  // Whether `length` bytes can be copied into the window right now.
  bool isReady(size_t length) const { return contentEnd + length <= readyEnd; }
  bool makeReady(size_t length);
  bool check() const;
  void decideMeans();
  bool allocate(uint64_t needed);
  bool writePending();
  bool writeOut(std::string_view text);

  UniqueFd file;
  std::string directory;  // the one that holds the file
  Means means = Means::Undecided;
  bool roomIsPromised = false;
  uint64_t contentEnd = 0;
  uint64_t allocatedEnd = 0;  // the file's size: content and reserved room
  uint64_t readyEnd = 0;      // room up to here is in the window; 0 when nothing may be copied
  size_t allocationStep = 0;
  MappedWindow window;
  PieceReader pieces;
  MappedWindow markWindow;  // marks are written far from the end
  std::string pending;      // kept by appendKept(), not yet written
  bool dirty = false;
  int syncError = 0;
  int64_t lastSync = 0;  // seconds since 1970
};
