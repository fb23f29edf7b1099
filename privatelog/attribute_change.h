// A change of an extended attribute as the log's index keeps it: an ACL that is converted, or a
// capability that a change of owner clears.
//
// No line of the log tells of it, so the record says everything: the file's identity, its path and
// the value before the change, to which an undo goes back. It is laid down, whole, before the
// change. Bytes follow the record in pieces of their own; without all of them, and without the
// right checksum, it counts for nothing. Pure but for the reader's reading.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "entry/attribute_access.h"
#include "privatelog/index_reader.h"
#include "privatelog/index_record.h"

struct AttributeChange {
  AttributeKind what = AttributeKind::AccessAcl;
  uint8_t flags = 0;
  DevInode id;
  int64_t birth = 0;  // 0: it cannot be told from another file
  std::string path;
  std::string former;
  std::string converted;  // of an ACL, entry for entry what was there; of a capability empty

  // Of a capability: the owner that the file has when it is to be put back, and since when, in
  // seconds since 1970.
  OwnerIds owner;
  uint32_t time = 0;
};

std::string formatAttribute(const AttributeChange& change, uint64_t seed);

// Reads the change whose record is at `position`; the next record is the one behind it then.
std::optional<AttributeChange> readAttributeChange(IndexReader& index, uint64_t position);
