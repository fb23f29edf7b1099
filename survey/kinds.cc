#include "survey/kinds.h"

#include <array>
#include <cstddef>

namespace {

constexpr std::array kWords = {
    KindWords{Kind::Changes, "changes", "Entries that would change",
              "A commit of these directories converts them."},
    KindWords{Kind::ChangesOfUser, "changes-of-user", "Entries whose uid changes", ""},
    KindWords{Kind::ChangesOfGroup, "changes-of-group", "Entries whose gid changes", ""},
    KindWords{
        Kind::UnknownUser, "unknown-user", "Entries of a uid that nobody has",
        "Nobody has this uid, here or in the zone: a commit leaves them. Find out whose they were."},
    KindWords{
        Kind::UnknownGroup, "unknown-group", "Entries of a gid that no group has",
        "No group has this gid, here or in the zone: a commit leaves them. Find out whose they were."},
    KindWords{
        Kind::AclEntry, "acl-entry", "ACL entries that name ids which change",
        "Unless idshift.convert.acls is on, the rights go to whoever has the old id afterwards."},
    KindWords{
        Kind::Capability, "capability", "File capabilities that are lost or name old ids",
        "A change of owner clears them unless idshift.preserve.capabilities is on; root ids stay."},
    KindWords{Kind::SetId, "set-id", "Set-id files that change hands",
              "A change of owner clears these bits unless idshift.preserve.execution.bits is on."},
    KindWords{Kind::Unchangeable, "unchangeable", "Immutable and append-only entries",
              "They refuse a change: remove the flags with chattr until the commit is done."},
    KindWords{Kind::ReadOnlyMount, "read-only-mount", "Read-only file systems",
              "Nothing can be changed there: remount them for writing, or leave them out."},
    KindWords{Kind::RemoteMount, "remote-mount", "Remote file systems",
              "Convert them on their servers. NFS and CIFS are left out here without --nfs."},
    KindWords{Kind::ClosedFuseMount, "closed-fuse-mount", "FUSE mounts that root cannot enter",
              "Unmount them, and convert their files where these are stored."},
    KindWords{Kind::LineFeed, "line-feed", "Names with a line feed",
              "Their lines in the log and the report are broken: rename them if you can."},
    KindWords{
        Kind::NoBirthTime, "no-birth-time", "File systems without birth times",
        "An undo recognises a file there by its inode number only: undo soon if you have to."},
    KindWords{Kind::Process, "process", "Processes of ids that change",
              "They keep their old ids: end them before the commit."},
    KindWords{Kind::SubordinateIds, "subordinate-ids", "Lines of subordinate ids by number",
              "Write the user's name, or the new number after the commit."},
    KindWords{Kind::Sudoers, "sudoers", "Rules of sudo by number",
              "Write the name, or the new number after the commit."},
    KindWords{Kind::Unit, "unit", "Systemd units with an account by number",
              "Write the name, or the new number after the commit."},
    KindWords{Kind::Export, "export", "NFS exports with an account by number",
              "Write the new number after the commit, and run exportfs -r."},
    KindWords{Kind::Quota, "quota", "File systems with quotas",
              "Limits stay with the old ids: set them for the new ones with setquota."},
    KindWords{
        Kind::AtJob, "at-job", "Jobs of at",
        "A job has its user's number: let it run before the commit, or submit it again afterwards."},
    KindWords{Kind::Crontab, "crontab", "Crontabs outside these directories",
              "Name their directory in the commit, too: cron requires the right owner."},
    KindWords{Kind::Mail, "mail", "Mailboxes outside these directories",
              "Name their directory in the commit, too."},
    KindWords{
        Kind::ContainerStorage, "container-storage",
        "Storage of containers outside these directories",
        "Find out whether users of this machine own files there, and name those in the commit."},
    KindWords{Kind::NotRead, "not-read", "Places that could not be read",
              "Run the survey as root."},
};

constexpr bool isInOrder() {
  for (size_t i = 0; i < kWords.size(); ++i) {
    if (kWords[i].kind != static_cast<Kind>(i))
      return false;
  }
  return kWords.size() == static_cast<size_t>(Kind::NotRead) + 1;
}
static_assert(isInOrder());

}  // namespace

const KindWords& wordsOf(Kind kind) {
  return kWords[static_cast<size_t>(kind)];
}
