#include "tests/support/users_mount.h"

#include <fcntl.h>
#include <linux/fuse.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "services/unique_fd.h"
#include "tests/support/child.h"
#include "tests/support/sandbox.h"

namespace {

fuse_attr attributesOf(uint64_t node, const fuse_setattr_in& last) {
  fuse_attr attributes = {};
  attributes.ino = node;
  attributes.mode = node == 1 ? S_IFDIR | 0755 : S_IFREG | 0644;
  attributes.nlink = 1;
  attributes.uid = (last.valid & FATTR_UID) != 0 ? last.uid : 500;
  attributes.gid = (last.valid & FATTR_GID) != 0 ? last.gid : 100;
  return attributes;
}

[[noreturn]] void serve(int channel, int error, uint32_t failing) {
  std::array<char, 1 << 17> request = {};  // the kernel demands a buffer this large
  std::array<fuse_setattr_in, 3> last = {};
  while (read(channel, request.data(), request.size()) > 0) {
    fuse_in_header question = {};
    memcpy(&question, request.data(), sizeof question);
    const char* body = request.data() + sizeof question;
    struct {
      fuse_out_header header = {};
      std::array<char, 256> body = {};
    } answer;
    size_t length = 0;
    const auto put = [&](const auto& value) {
      memcpy(answer.body.data(), &value, length = sizeof value);
    };
    const bool isMeant = failing == 0 ? question.opcode != FUSE_INIT : question.opcode == failing;
    switch (isMeant && error != 0 ? 0 : question.opcode) {
      case 0:
        answer.header.error = -error;
        break;
      case FUSE_INIT:
        put(std::array<uint32_t, 16>{FUSE_KERNEL_VERSION, FUSE_KERNEL_MINOR_VERSION});
        break;
      case FUSE_SETATTR:
        memcpy(&last.at(question.nodeid), body, sizeof last[0]);
        [[fallthrough]];
      case FUSE_GETATTR:
        put(fuse_attr_out{0, 0, 0, attributesOf(question.nodeid, last.at(question.nodeid))});
        break;
      case FUSE_LOOKUP:
        put(fuse_entry_out{2, 0, 0, 0, 0, 0, attributesOf(2, last[2])});
        break;
      case FUSE_STATFS:
        put(fuse_statfs_out{});
        break;
      case FUSE_OPENDIR:
        put(fuse_open_out{});
        break;
      case FUSE_READDIR: {
        fuse_read_in range = {};
        memcpy(&range, body, sizeof range);
        if (range.offset == 0)
          put(std::array<uint64_t, 4>{2, 1, 1, 'f'});  // a fuse_dirent, little endian
        break;
      }
      default:
        answer.header.error = -ENOSYS;
    }
    answer.header.unique = question.unique;
    answer.header.len = static_cast<uint32_t>(sizeof answer.header + length);
    if (write(channel, &answer, answer.header.len) < 0 && errno != ENOENT)
      break;
  }
  _exit(0);
}

}  // namespace

bool UsersMount::mountAt(const std::string& folder, int error, uint32_t opcode, const char* type) {
  requireSandbox();
  const char* device = "/tmp/fuse";
  if (mknod(device, S_IFCHR | 0600, makedev(10, 229)) != 0 && errno != EEXIST)
    return false;
  UniqueFd channel(open(device, O_RDWR | O_CLOEXEC));
  const std::string options = "fd=" + std::to_string(channel.get()) +
                              ",rootmode=40000,user_id=500,group_id=100,allow_other";
  if (!channel || mount("users", folder.c_str(), type, 0, options.c_str()) != 0)
    return false;
  place = folder;
  server = fork();
  if (server == 0)
    serve(channel.get(), error, opcode);
  return server > 0;
}

void UsersMount::freeze() const {
  kill(server, SIGSTOP);
}

void UsersMount::unmount() {
  if (!place.empty())
    umount2(place.c_str(), MNT_DETACH);
  place.clear();
  if (server > 0) {
    kill(server, SIGCONT);
    stopProgram(server);
  }
  server = -1;
}
