// The record of a changed extended attribute in the log's index: of an ACL that is converted, or of
// a capability that a change of owner clears.
//
// The log has no line for such a change, so its record holds everything: the identity of the file,
// its path, and the value before the change, to which an undo goes back. The whole record is
// written before the change. Its bytes follow in records of their own; when one is missing or the
// checksum does not fit, the change is ignored. Pure, except that IndexReader reads the file.
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
  int64_t birth = 0;  // 0: unknown, so the file cannot be identified
  std::string path;
  std::string former;
  std::string converted;  // an ACL with the entries of `former` in order; empty for a capability

  // Used for a capability alone: the owner that the file has when the capability is to be put back,
  // and the time of the record in seconds since 1970.
  OwnerIds owner;
  uint32_t time = 0;
};

std::string formatAttribute(const AttributeChange& change, uint64_t seed);

// Reads the change whose record is at `position`. The reader then stands behind its last record.
std::optional<AttributeChange> readAttributeChange(IndexReader& index, uint64_t position);
