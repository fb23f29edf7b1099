// Which recorded files can be the file at hand: file systems told apart across mounts and reboots.
//
// A device number changes with the next mount, a file system's own id does not. So every file
// system, as far as records are concerned, is a class: named by its id, or by its device number
// where it has none or the record does not tell. A device that is met now stands for the class of
// its id and for that of its number. Two devices of one id that are mounted at the same time (a
// snapshot beside its origin) are two file systems: the class belongs to the one that was recorded,
// or else to the one that was met first.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "entry/file_systems.h"
#include "privatelog/log_scan.h"

using DeviceClass = uint32_t;

class DeviceClasses {
 public:
  // The class of a record of this device. `noted` is what its section says of the device, all zeros
  // when it says nothing.
  DeviceClass ofRecord(uint64_t device, const NotedFileSystem& noted) {
    if (device != recordedDevice || noted.fsid != recordedId || !hasRecorded) {
      recorded = classOf(device, noted);
      recordedDevice = device;
      recordedId = noted.fsid;
      hasRecorded = true;
    }
    return recorded;
  }

  // The classes of a device that is met now; one or two, the one for new records first.
  std::span<const DeviceClass> ofDevice(uint64_t device, const FileSystemFacts& facts) {
    return device == latestDevice && latestCount > 0 ? current() : find(device, facts);
  }

  // The class for new records of the device that was asked about last; nothing for another one.
  std::optional<DeviceClass> latestOf(uint64_t device) const {
    return device == latestDevice && latestCount > 0 ? std::optional(latest[0]) : std::nullopt;
  }

 private:
  struct Owner {
    DeviceClass number = 0;
    uint64_t device = 0;   // that was recorded in this boot, or has been met in this run
    bool isKnown = false;  // `device` is set
    // Records of before this boot may be of several devices: nobody can tell any more whose.
    bool isShared = false;
    std::map<uint64_t, DeviceClass> recorded;  // by device
  };

  std::span<const DeviceClass> current() const { return {latest.data(), latestCount}; }
  DeviceClass classOf(uint64_t device, const NotedFileSystem& noted);
  std::span<const DeviceClass> find(uint64_t device, const FileSystemFacts& facts);
  DeviceClass byNumber(uint64_t device);
  static bool claims(uint64_t device, uint64_t fsid, Owner& owner);

  DeviceClass nextClass = 0;
  std::map<uint64_t, Owner> byId;
  std::map<uint64_t, DeviceClass> byDevice;
  std::map<uint64_t, std::vector<DeviceClass>> met;
  bool hasRecorded = false;  // the three that follow are those of the record asked about last
  uint64_t recordedDevice = 0;
  uint64_t recordedId = 0;
  DeviceClass recorded = 0;
  uint64_t latestDevice = 0;
  std::array<DeviceClass, 2> latest = {};
  size_t latestCount = 0;
};
