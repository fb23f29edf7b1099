#include "zonagent/answer.h"

namespace zonagent {
namespace {

namespace wire = orvs::wire;

constexpr const char* kVersion = IDSHIFT_VERSION;

Answer find(const wire::Question& question, ZoneBackend& backend, bool& conflict) {
  if (!question.name || !question.id)
    return backend.find(question);
  // Both are given: they must mean the same account.
  Answer byName = backend.find({question.kind, question.name, std::nullopt});
  if (byName.verdict == Verdict::Found) {
    conflict = byName.record.id != question.id;
    return byName;
  }
  Answer byId = backend.find({question.kind, std::nullopt, question.id});
  conflict = byName.verdict == Verdict::NotFound && byId.verdict == Verdict::Found;
  return byName.verdict == Verdict::Unavailable ? byName : byId;
}

std::string lookUp(const wire::Request& request, const std::string& service, ZoneBackend& backend) {
  if (request.service != service)
    return wire::encodeError(wire::kBadService);
  if (!request.question.name && !request.question.id)
    return wire::encodeError(wire::kEnumerationNotSupported);
  bool conflict = false;
  const Answer found = find(request.question, backend, conflict);
  if (conflict)
    return wire::encodeError(wire::kConflictingRecordFound);
  switch (found.verdict) {
    case Verdict::Found:
      return wire::encodeRecord(request.question.kind, found.record, service);
    case Verdict::NotFound:
      return wire::encodeError(wire::kNoRecordFound);
    case Verdict::Unavailable:
      break;
  }
  return wire::encodeError(wire::kServiceNotAvailable);
}

std::string reply(const wire::Request& request, const std::string& service, ZoneBackend& backend) {
  switch (request.method) {
    case wire::Request::Method::Lookup:
      return lookUp(request, service, backend);
    case wire::Request::Method::Info:
      return wire::encodeInfo(kVersion);
    case wire::Request::Method::Memberships:
      return wire::encodeError(request.service == service ? wire::kNoRecordFound
                                                          : wire::kBadService);
    case wire::Request::Method::InvalidParameter:
      return wire::encodeError(wire::kInvalidParameter, "parameter", request.detail.c_str());
    case wire::Request::Method::Unknown:
    case wire::Request::Method::Malformed:
      break;
  }
  return wire::encodeError(wire::kMethodNotFound, "method", request.detail.c_str());
}

}  // namespace

bool takesLookup(const wire::Request& request) {
  return request.method == wire::Request::Method::Lookup && !request.oneway;
}

Action answer(const wire::Request& request, const std::string& service, ZoneBackend& backend) {
  if (request.method == wire::Request::Method::Malformed)
    return {Action::What::HangUp, ""};
  if (request.oneway)
    return {Action::What::StaySilent, ""};
  return {Action::What::Send, reply(request, service, backend)};
}

Action unavailable() {
  return {Action::What::Send, wire::encodeError(wire::kServiceNotAvailable)};
}

}  // namespace zonagent
