#include "entry/mount_table.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace {

template <size_t count>
bool isOneOf(const std::array<std::string_view, count>& words, std::string_view word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// Splits at each blank: mountinfo separates its fields by single blanks.
std::vector<std::string_view> fieldsOf(std::string_view line) {
  std::vector<std::string_view> fields;
  while (!line.empty()) {
    const size_t end = std::min(line.find(' '), line.size());
    fields.push_back(line.substr(0, end));
    line.remove_prefix(std::min(end + 1, line.size()));
  }
  return fields;
}

int numberOf(std::string_view text) {
  int number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

bool isOctal(char c) {
  return c >= '0' && c <= '7';
}

// mountinfo writes blanks, line ends and backslashes as a backslash and three octal digits.
std::string unescaped(std::string_view field) {
  std::string text;
  for (size_t i = 0; i < field.size(); ++i) {
    const bool isEscape = field[i] == '\\' && field.size() - i > 3 &&
                          std::all_of(&field[i + 1], &field[i + 1] + 3, isOctal);
    if (!isEscape) {
      text += field[i];
      continue;
    }
    text += static_cast<char>((field[i + 1] - '0') << 6 | (field[i + 2] - '0') << 3 |
                              (field[i + 3] - '0'));
    i += 3;
  }
  return text;
}

// Where `option` begins in a list between commas, or npos.
size_t findOption(std::string_view list, std::string_view option) {
  for (size_t at = 0; at <= list.size();) {
    const size_t end = std::min(list.find(',', at), list.size());
    const std::string_view found = list.substr(at, end - at);
    if (found.substr(0, found.find('=')) == option)
      return at;
    at = end + 1;
  }
  return list.npos;
}

bool isHidden(const Mount& mount, const std::vector<Mount>& mounts) {
  return std::any_of(mounts.begin(), mounts.end(), [&](const Mount& other) {
    return other.parent == mount.id && other.point == mount.point && other.id != mount.id;
  });
}

// The mount that holds `path`, or null when the table has none.
const Mount* holderOf(std::string_view path, const std::vector<Mount>& mounts) {
  const Mount* holder = nullptr;
  for (const Mount& mount : mounts) {
    if (isWithin(path, mount.point) &&
        (holder == nullptr || mount.point.size() >= holder->point.size()))
      holder = &mount;
  }
  return holder;
}

bool isWithinOne(std::string_view path, const std::vector<std::string>& folders) {
  return std::any_of(folders.begin(), folders.end(),
                     [&](const std::string& folder) { return isWithin(path, folder); });
}

}  // namespace

bool Mount::has(std::string_view option) const {
  return findOption(options, option) != options.npos ||
         findOption(superOptions, option) != superOptions.npos;
}

std::string Mount::valueOf(std::string_view option) const {
  const size_t at = findOption(superOptions, option);
  if (at == superOptions.npos)
    return {};
  const std::string found = superOptions.substr(at, superOptions.find(',', at) - at);
  const size_t equals = found.find('=');
  return equals == found.npos ? std::string() : found.substr(equals + 1);
}

bool Mount::isKernelsOwn() const {
  constexpr std::array<std::string_view, 20> kTypes = {
      "proc",    "sysfs",     "cgroup",   "cgroup2",    "devpts",     "devtmpfs",   "mqueue",
      "debugfs", "tracefs",   "configfs", "securityfs", "efivarfs",   "hugetlbfs",  "bpf",
      "pstore",  "selinuxfs", "fusectl",  "autofs",     "rpc_pipefs", "binfmt_misc"};
  return isOneOf(kTypes, type);
}

bool Mount::isRemote() const {
  constexpr std::array<std::string_view, 25> kTypes = {
      "nfs",           "nfs4",           "cifs",
      "smb3",          "smbfs",          "ncpfs",
      "afs",           "ceph",           "9p",
      "gfs2",          "lustre",         "beegfs",
      "gpfs",          "orangefs",       "coda",
      "fuse.sshfs",    "fuse.rclone",    "fuse.s3fs",
      "fuse.davfs",    "fuse.glusterfs", "fuse.ceph",
      "fuse.gcsfuse",  "fuse.smbnetfs",  "fuse.ceph-fuse",
      "fuse.curlftpfs"};
  return isOneOf(kTypes, type);
}

bool Mount::isClosedFuse() const {
  const bool isFuse = type == "fuse" || type == "fuseblk" || type.starts_with("fuse.");
  const std::string user = valueOf("user_id");
  return isFuse && !user.empty() && user != "0" && !has("allow_other");
}

bool Mount::hasQuota() const {
  constexpr std::array<std::string_view, 12> kOptions = {
      "quota",  "usrquota", "grpquota", "prjquota",    "usrjquota",   "grpjquota",
      "uquota", "gquota",   "pquota",   "uqnoenforce", "gqnoenforce", "pqnoenforce"};
  return std::any_of(kOptions.begin(), kOptions.end(),
                     [this](std::string_view option) { return has(option); });
}

std::vector<Mount> parseMounts(std::string_view text) {
  std::vector<Mount> mounts;
  while (!text.empty()) {
    const size_t end = std::min(text.find('\n'), text.size());
    const std::vector<std::string_view> fields = fieldsOf(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    const auto dash = std::find(fields.begin(), fields.end(), "-");
    if (dash - fields.begin() < 6 || fields.end() - dash < 4)
      continue;
    mounts.push_back({.id = numberOf(fields[0]),
                      .parent = numberOf(fields[1]),
                      .device = std::string(fields[2]),
                      .point = unescaped(fields[4]),
                      .options = std::string(fields[5]),
                      .type = unescaped(dash[1]),
                      .superOptions = std::string(dash[3])});
  }
  return mounts;
}

bool isWithin(std::string_view path, std::string_view folder) {
  if (folder == "/" || path == folder)
    return true;
  return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

std::vector<Mount> mountsOfTrees(const std::vector<Mount>& mounts,
                                 const std::vector<std::string>& trees,
                                 const std::vector<std::string>& excluded,
                                 bool acrossMounts) {
  std::vector<Mount> met;
  for (const Mount& mount : mounts) {
    const bool isHolder = std::any_of(trees.begin(), trees.end(), [&](const std::string& tree) {
      return holderOf(tree, mounts) == &mount;
    });
    const bool isBelow = acrossMounts && isWithinOne(mount.point, trees) &&
                         !isWithinOne(mount.point, excluded) && !isHidden(mount, mounts);
    if (isHolder || isBelow)
      met.push_back(mount);
  }
  return met;
}
