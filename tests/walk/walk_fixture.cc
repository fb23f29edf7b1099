#include "tests/walk/walk_fixture.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <regex>

#include "idmap/id_maps.h"
#include "privatelog/private_log.h"
#include "services/paths.h"
#include "walk/tree_walk.h"
#include "walk/visited.h"

namespace {

using Actions = std::map<std::string, std::function<void()>>;

// Gets everything written to stderr, passes it on, and acts when a line is one of `actions`.
ssize_t writeAndAct(void* cookie, const char* bytes, size_t size) {
  const ssize_t written = ::write(STDERR_FILENO, bytes, size);
  const auto& actions = *static_cast<const Actions*>(cookie);
  const auto action = actions.find(std::string(bytes, size > 0 ? size - 1 : 0));
  if (action != actions.end())
    action->second();
  return written;
}

}  // namespace

void WalkTest::arrange() {
  options.commit = true;
  joinDomain("corp");
  uidMap = {{500, 10500}, {501, 10501}};
  gidMap = {{100, 10100}, {101, 10101}};
  userLocalGid = {{500, 100}};
  userZoneGid = {{500, 20100}};
  excludeList = {"/proc/", "/dev/fd/"};
}

RunResult WalkTest::walk(const std::string& top, const RunOptions& childOptions) {
  return runInChild([&] { return walkInChild(top); }, childOptions);
}

int WalkTest::walkInChild(const std::string& top) {
  if (append)
    privateLog.loadPrivateLog(true);
  if (options.commit && !privateLog.openPrivateLog(append))
    return 1;
  struct stat status = {};
  if (::lstat(top.c_str(), &status) == 0)
    visitedDirs.insert({status.st_dev, status.st_ino});
  stderr = fopencookie(&actions, "w", {nullptr, writeAndAct, nullptr, nullptr});
  setvbuf(stderr, nullptr, _IOLBF, 1 << 20);
  const int walked = MapFilesInDir(top, status.st_dev, options);
  const bool isOnDisk = privateLog.close();
  std::printf("%d %lu %s\n", walked, static_cast<unsigned long>(privateLog.changeCount),
              std::filesystem::current_path().c_str());
  return isOnDisk ? 0 : 6;
}

std::multiset<std::string> WalkTest::records() {
  const std::regex idBeforeOwner(R"(:\d+:\d+(:\d+:\d+))");
  std::multiset<std::string> lines;
  for (const std::string& line : linesOf(readFile(paths::kPrivateLog)))
    if (!line.starts_with('!') && !line.starts_with("domain:"))
      lines.insert(std::regex_replace(line, idBeforeOwner, "$1"));
  return lines;
}
