// Matches the file systems of records with those that are mounted now, across mounts and reboots.
//
// The obvious key, the device number, changes with the next mount; the id of a file system
// (statfs's f_fsid) does not. So each file system gets a class: one for each id, or one for each
// device number where the file system has no id or the record does not tell it. A device that is
// met now belongs to the class of its id and to that of its number, because records of both kinds
// may be about it.
//
// Two devices with the same id may be mounted at the same time (a snapshot beside its origin). They
// are two file systems: the class of the id belongs to the device that was recorded, or else to the
// one that was met first, and the other device has the class of its number.
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
  // The class of a record with this device number. `noted` is what the record's section noted about
  // the device, all zeros when nothing.
  DeviceClass ofRecord(uint64_t device, const NotedFileSystem& noted) {
    if (device != recordedDevice || noted.fsid != recordedId || !hasRecorded) {
      recorded = classOf(device, noted);
      recordedDevice = device;
      recordedId = noted.fsid;
      hasRecorded = true;
    }
    return recorded;
  }

  // The one or two classes of a device that is met now; the first is for new records.
  std::span<const DeviceClass> ofDevice(uint64_t device, const FileSystemFacts& facts) {
    return device == latestDevice && latestCount > 0 ? current() : find(device, facts);
  }

  // The class for new records of `device` if ofDevice() was last called for it, else nothing.
  std::optional<DeviceClass> latestOf(uint64_t device) const {
    return device == latestDevice && latestCount > 0 ? std::optional(latest[0]) : std::nullopt;
  }

 private:
  struct Owner {
    DeviceClass number = 0;
    uint64_t device = 0;   // the one that has the class: recorded in this boot, or met in this run
    bool isKnown = false;  // `device` is set
    // Whether records from before this boot name several devices: it is unknown which of them was
    // this one.
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
  bool hasRecorded = false;  // the next three are of the last call of ofRecord()
  uint64_t recordedDevice = 0;
  uint64_t recordedId = 0;
  DeviceClass recorded = 0;
  uint64_t latestDevice = 0;
  std::array<DeviceClass, 2> latest = {};
  size_t latestCount = 0;
};
