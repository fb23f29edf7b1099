// Two disks whose power goes at one moment: /etc with the account files and the log on the one, the
// trees on the other, as a machine with a data disk has them.
#pragma once

#include <filesystem>
#include <string>
#include <utility>

#include "tests/support/loop_disk.h"

// What a file system may have written back by itself just before the power goes.
enum WrittenBack { kNothing, kTree, kLog, kWrittenBackCount };

struct CutDisks {
  // Moves /etc to a disk of its own and mounts the other one at /trees. Why it cannot be had, or
  // nothing.
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
