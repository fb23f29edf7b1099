#include "privatelog/attribute_change.h"

#include <algorithm>
#include <cstddef>

namespace {

constexpr size_t kPieceLength = sizeof(IndexBytesOf::bytes);
constexpr uint32_t kLongestValue = 1 << 16;
constexpr uint32_t kLongestPath = 1 << 24;  // a longer path means damage

struct Owner {
  OwnerIds ids;
  uint32_t time = 0;
};

template <class Field>
std::string_view bytesOf(const Field& field) {
  return {reinterpret_cast<const char*>(&field), sizeof field};
}

uint32_t checksum(uint64_t seed, const IndexAttribute& record, std::string_view text) {
  return checksumOf(seed,
                    std::string(bytesOf(record.id)).append(bytesOf(record.birth)).append(text));
}

size_t convertedLength(const IndexAttribute& record) {
  return record.what == AttributeKind::Capability ? 0 : record.formerLength;
}

}  // namespace

std::string formatAttribute(const AttributeChange& change, uint64_t seed) {
  IndexAttribute record;
  record.what = change.what;
  record.flags = change.flags;
  record.pathLength = static_cast<uint32_t>(change.path.size());
  record.formerLength = static_cast<uint32_t>(change.former.size());
  record.id = change.id;
  record.birth = change.birth;
  const Owner owner = {change.owner, change.time};
  const std::string text =
      std::string(bytesOf(owner)) + change.path + change.former + change.converted;
  record.checksum = checksum(seed, record, text);
  const IndexBytes head = toBytes(record);
  std::string out(head.data(), head.size());
  for (size_t done = 0; done < text.size(); done += kPieceLength) {
    IndexBytesOf piece;
    std::copy_n(text.begin() + static_cast<std::ptrdiff_t>(done),
                std::min(kPieceLength, text.size() - done), piece.bytes.begin());
    out += bytesOf(piece);
  }
  return out;
}

std::optional<AttributeChange> readAttributeChange(IndexReader& index, uint64_t position) {
  index.seek(position);
  const auto head = index.next();
  if (!head || kindOf(head->data()) != IndexKind::Attribute)
    return std::nullopt;
  const auto record = fromBytes<IndexAttribute>(head->data());
  if (record.formerLength > kLongestValue || record.pathLength > kLongestPath)
    return std::nullopt;
  const size_t length =
      sizeof(Owner) + record.pathLength + record.formerLength + convertedLength(record);
  std::string text;
  while (text.size() < length) {
    const auto piece = index.next();
    if (!piece || kindOf(piece->data()) != IndexKind::Bytes)
      return std::nullopt;
    text.append(piece->data() + 1, std::min(length - text.size(), kPieceLength));
  }
  if (checksum(index.seed(), record, text) != record.checksum)
    return std::nullopt;
  Owner owner;
  memcpy(&owner, text.data(), sizeof owner);
  const size_t formerAt = sizeof owner + record.pathLength;
  return AttributeChange{record.what,
                         record.flags,
                         record.id,
                         record.birth,
                         text.substr(sizeof owner, record.pathLength),
                         text.substr(formerAt, record.formerLength),
                         text.substr(formerAt + record.formerLength),
                         owner.ids,
                         owner.time};
}
