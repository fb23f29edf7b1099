#include "zonagent/answer.h"

namespace zonagent {
namespace {

namespace wire = orvs::wire;

constexpr const char* kVersion = IDSHIFT_VERSION;

Answer find(const wire::Question& question, ZoneBackend& backend, bool& conflict) {
  if (!question.name || !question.id)
    return backend.find(question);
  // The name and the id must belong to one account.
  Answer byName = backend.find({question.kind, question.name, std::nullopt});
  if (byName.verdict == Verdict::Found) {
    conflict = byName.record.id != question.id;
    return byName;
  }
  Answer byId = backend.find({question.kind, std::nullopt, question.id});
  conflict = byName.verdict == Verdict::NotFound && byId.verdict == Verdict::Found;
  return byName.verdict == Verdict::Unavailable ? byName : byId;
}

Action sendError(const char* error, const char* parameter = nullptr, const char* value = nullptr) {
  return {Action::What::Send, wire::encodeError(error, parameter, value)};
}

bool isFor(const std::string& service, const wire::Request& request) {
  return service.empty() || request.service == service;
}

Action lookUp(const wire::Request& request, const std::string& service, ZoneBackend& backend) {
  if (!isFor(service, request))
    return sendError(wire::kBadService);
  if (!request.question.name && !request.question.id)
    return sendError(wire::kEnumerationNotSupported);
  bool conflict = false;
  const Answer found = find(request.question, backend, conflict);
  if (conflict)
    return sendError(wire::kConflictingRecordFound);
  switch (found.verdict) {
    case Verdict::Found:
      return {Action::What::Send, wire::encodeRecord(request.question.kind, found.record, service)};
    case Verdict::NotFound:
      return sendError(wire::kNoRecordFound);
    case Verdict::Unavailable:
      break;
  }
  return unavailable(found.why);
}

Action reply(const wire::Request& request, const std::string& service, ZoneBackend& backend) {
  switch (request.method) {
    case wire::Request::Method::Lookup:
      return lookUp(request, service, backend);
    case wire::Request::Method::Info:
      return {Action::What::Send, wire::encodeInfo(kVersion)};
    case wire::Request::Method::Memberships:
      return sendError(isFor(service, request) ? wire::kNoRecordFound : wire::kBadService);
    case wire::Request::Method::InvalidParameter:
      return sendError(wire::kInvalidParameter, "parameter", request.detail.c_str());
    case wire::Request::Method::Unknown:
    case wire::Request::Method::Malformed:
      break;
  }
  return sendError(wire::kMethodNotFound, "method", request.detail.c_str());
}

}  // namespace

bool takesLookup(const wire::Request& request) {
  return request.method == wire::Request::Method::Lookup && !request.oneway;
}

Action decide(const wire::Request& request, const std::string& service, ZoneBackend& backend) {
  if (request.method == wire::Request::Method::Malformed)
    return {Action::What::HangUp};
  if (request.oneway)
    return {Action::What::StaySilent};
  return reply(request, service, backend);
}

Action unavailable(const std::string& why) {
  return {Action::What::Send, wire::encodeError(wire::kServiceNotAvailable), why};
}

}  // namespace zonagent
