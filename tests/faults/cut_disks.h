// Two disks whose power fails at one moment, as in a machine with a data disk. One holds /etc with
// account files and log, the other the trees.
#pragma once

#include <filesystem>
#include <string>
#include <utility>

#include "tests/support/loop_disk.h"

// What the file systems have written back on their own when the power fails.
enum WrittenBack { kNothing, kTree, kLog, kWrittenBackCount };

struct CutDisks {
  // Moves /etc to one disk and mounts the other at /trees. Returns why the disks cannot be had, or
  // an empty string.
  std::string create() {
    for (auto [disk, image] : {std::pair(&etc, "/var/etc.img"), {&trees, "/var/trees.img"}}) {
      if (std::string reason = disk->create(image); !reason.empty())
        return reason;
    }
    etc.mountAt("/trees");
    std::filesystem::copy("/etc", "/trees", std::filesystem::copy_options::recursive);
    etc.mountAt("/etc");
    trees.mountAt("/trees");
    return {};
  }

  void flush() const {
    etc.flush();
    trees.flush();
  }

  void cutPower(WrittenBack writtenBack) const {
    if (writtenBack == kTree)
      trees.flush();
    if (writtenBack == kLog)
      etc.flush();
    etc.cutPower();
    trees.cutPower();
  }

  void startAgain() {
    etc.remount();
    trees.remount();
  }

  LoopDisk etc;
  LoopDisk trees;
};
