#include <ctime>
#include <utility>

#include "entry/pinned_path.h"
#include "privatelog/private_log.h"
#include "privatelog/recorded_entry.h"
#include "services/paths.h"

namespace {

constexpr int64_t kNanoseconds = 1'000'000'000;

}  // namespace

bool PrivateLog::beginAttribute(const LookedAt& entry, AttributeChange change) {
  clock_gettime(CLOCK_REALTIME_COARSE, &now);
  change.flags |= entry.followed ? kAttributeFollowed : 0;
  change.id = entry.status.id;
  change.birth = birthOf(entry);
  change.path = entry.path;
  change.time = static_cast<uint32_t>(time(nullptr));
  if (!startSection(kMaxChangeEnd))
    return false;
  std::optional<uint64_t> position;
  if (index.addFileSystem(change.id.device, fileSystemOf(entry)))
    position = index.addAttribute(change, file.end());
  if (!position) {
    index.takeBack();
    return false;
  }
  index.keep();
  currentAttribute = {keyOf(entry), change.birth, change.what, *position, false};
  currentAttributeFlags = change.flags;
  currentAttributeDevice = change.id.device;
  return true;
}

void PrivateLog::endAttribute(bool isDone) {
  currentAttributeFlags |= isDone ? kAttributeDone : kAttributeFailed;
  index.flagAttribute(currentAttribute.position, currentAttributeFlags);
  if (isDone && currentAttribute.what != AttributeKind::Capability) {
    currentAttribute.isDone = true;
    loaded.knownAttributes.emplace(currentAttribute.key.inode, currentAttribute);
    changedDevices.note(currentAttributeDevice);
    ++aclCount;
  }
  syncIfDueAt(now.tv_sec);
}

bool PrivateLog::hasAttribute(const LookedAt& entry, AttributeKind what, std::string_view present) {
  const auto [begin, end] = loaded.knownAttributes.equal_range(entry.status.id.inode);
  if (begin == end)
    return false;
  const FileSystemFacts& facts = fileSystemOf(entry);
  const int64_t birth = facts.keepsBirth ? entry.status.birth : 0;
  for (const DeviceClass number : loaded.classes.ofDevice(entry.status.id.device, facts)) {
    for (auto known = begin; known != end; ++known) {
      const KnownAttribute& one = known->second;
      const bool isOfFile =
          one.key.fileSystem == number && (one.birth == birth || one.birth == 0 || birth == 0);
      if (isOfFile && one.what == what && isChanged(one, present))
        return true;
    }
  }
  return false;
}

// Whether a recorded ACL was converted. When a run was killed before it could say so, or a power
// cut may have lost the conversion, the present value decides: any other value than the former one
// counts as converted, even if somebody else has set it, because converting twice is worse than not
// converting.
bool PrivateLog::isChanged(const KnownAttribute& known, std::string_view present) {
  if (known.isDone && (known.birth == 0 || !loaded.isRecordInOpenSection(known.position)))
    return true;
  const bool isOpen = formerAttributes.isOpen() ||
                      formerAttributes.open(paths::kPrivateLogIndex) == IndexReader::Opened::Yes;
  const auto change = isOpen ? readAttributeChange(formerAttributes, known.position) : std::nullopt;
  return !change || change->former != present;
}

// Finds capabilities that a change of owner has cleared and a kill kept from being set again. As
// for special mode bits, the file must be the recorded one, have the intended owner, and be
// unchanged since.
std::vector<PrivateLog::CutCapability> PrivateLog::findCutCapabilities() {
  constexpr uint8_t kEnded = kAttributeDone | kAttributeFailed | kAttributeUndone;
  std::vector<CutCapability> found;
  IndexReader records;
  for (const LoggedAttribute& logged : loaded.attributes) {
    const bool isOpen = logged.record.what == AttributeKind::Capability &&
                        (logged.record.flags & kEnded) == 0 && logged.record.birth != 0;
    if (!isOpen ||
        (!records.isOpen() && records.open(paths::kPrivateLogIndex) != IndexReader::Opened::Yes))
      continue;
    const auto change = readAttributeChange(records, logged.position);
    PinnedPath way;
    if (change)
      way = pinPath(change->path,
                    (change->flags & kAttributeFollowed) != 0 ? LastLink::Follow : LastLink::Keep,
                    ForeignLinks::Follow);
    const int64_t latest = change ? (int64_t{change->time} + 2) * kNanoseconds - 1 : 0;
    if (!way.object || way.status.id.inode != change->id.inode ||
        way.status.birth != change->birth || way.status.owner != change->owner ||
        way.status.changed > latest)
      continue;
    CutCapability cut = {{}, change->former, logged.position, change->flags};
    cut.entry.adopt(std::move(way.object), way.status);
    found.push_back(std::move(cut));
  }
  return found;
}

void PrivateLog::mend(const std::vector<CutCapability>& capabilities) {
  for (const CutCapability& cut : capabilities) {
    if (readAttribute(cut.entry, AttributeKind::Capability) ||
        writeAttribute(cut.entry, AttributeKind::Capability, cut.value))
      index.flagAttribute(cut.position, cut.flags | kAttributeDone);
  }
}
