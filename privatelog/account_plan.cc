#include "privatelog/account_plan.h"

#include <algorithm>

namespace {

constexpr size_t kHeadLength = sizeof(IndexPlanned::name);
constexpr size_t kPieceLength = sizeof(IndexBytesOf::bytes);
constexpr uint32_t kLongestName = 1 << 20;  // a longer name means damage

template <class Record>
void appendRecord(std::string& out, const Record& record) {
  const IndexBytes bytes = toBytes(record);
  out.append(bytes.data(), bytes.size());
}

// Moves the front of `rest` to `target`.
template <class Array>
void takeFront(std::string_view& rest, Array& target) {
  const size_t length = std::min(rest.size(), target.size());
  std::copy_n(rest.begin(), length, target.begin());
  rest.remove_prefix(length);
}

void appendUpdate(std::string& out, const PlannedUpdate& update) {
  IndexPlanned planned;
  planned.isGroup = update.isGroup ? 1 : 0;
  planned.nameLength = static_cast<uint32_t>(update.name.size());
  planned.oldIds = update.oldIds;
  planned.newIds = update.newIds;
  std::string_view rest = update.name;
  takeFront(rest, planned.name);
  appendRecord(out, planned);
  while (!rest.empty()) {
    IndexBytesOf piece;
    takeFront(rest, piece.bytes);
    appendRecord(out, piece);
  }
}

// Reads one update, whose first record is the next one. Appends all its bytes to `text`.
std::optional<PlannedUpdate> readUpdate(IndexReader& index, std::string& text) {
  const auto first = index.next();
  if (!first || kindOf(first->data()) != IndexKind::Planned)
    return std::nullopt;
  text.append(first->data(), first->size());
  const auto planned = fromBytes<IndexPlanned>(first->data());
  if (planned.nameLength > kLongestName)
    return std::nullopt;
  PlannedUpdate update = {planned.isGroup != 0, {}, planned.oldIds, planned.newIds};
  update.name.assign(planned.name.data(), std::min<size_t>(planned.nameLength, kHeadLength));
  while (update.name.size() < planned.nameLength) {
    const auto piece = index.next();
    if (!piece || kindOf(piece->data()) != IndexKind::Bytes)
      return std::nullopt;
    text.append(piece->data(), piece->size());
    const size_t missing = planned.nameLength - update.name.size();
    update.name.append(piece->data() + 1, std::min(missing, kPieceLength));
  }
  return update;
}

}  // namespace

std::string formatPlan(std::span<const PlannedUpdate> updates, IndexPlan plan, uint64_t seed) {
  std::string text;
  for (const PlannedUpdate& update : updates)
    appendUpdate(text, update);
  plan.checksum = checksumOf(seed, text);
  appendRecord(text, plan);
  return text;
}

std::optional<AccountPlan> readPlan(IndexReader& index, uint64_t position, IndexPlan& header) {
  index.seek(position);
  const auto bytes = index.next();
  if (!bytes || kindOf(bytes->data()) != IndexKind::Plan)
    return std::nullopt;
  header = fromBytes<IndexPlan>(bytes->data());
  AccountPlan plan = {position, header.section, {}, {}};
  std::string text;
  index.seek(header.first);
  while (header.first + text.size() < position) {
    auto update = readUpdate(index, text);
    if (!update)
      return std::nullopt;
    plan.updates.push_back(std::move(*update));
  }
  if (header.first + text.size() != position || checksumOf(index.seed(), text) != header.checksum)
    return std::nullopt;
  return plan;
}
