#include "zonagent/nss_module.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace zonagent {
namespace {

namespace wire = orvs::wire;

constexpr size_t kFirstBuffer = size_t{16} * 1024;
constexpr size_t kLargestBuffer = size_t{32} * 1024 * 1024;

bool isModuleName(const std::string& name) {
  const auto good = [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '_';
  };
  return !name.empty() && name.size() <= 32 && std::all_of(name.begin(), name.end(), good);
}

std::string failure(nss_status status, int error) {
  const std::string word = status == NSS_STATUS_UNAVAIL    ? "UNAVAIL"
                           : status == NSS_STATUS_TRYAGAIN ? "TRYAGAIN"
                                                           : std::to_string(status);
  return "the module says " + word + (error != 0 ? std::string(": ") + strerror(error) : "");
}

// Calls `ask(buffer, size, errnop)` with growing buffers. On success calls `take`, while the
// buffer, which the record points into, still exists.
template <class Ask, class Take>
Answer withBuffer(const Ask& ask, const Take& take) {
  std::vector<char> buffer(kFirstBuffer);
  for (;;) {
    int error = 0;
    const nss_status status = ask(buffer.data(), buffer.size(), &error);
    if (status == NSS_STATUS_SUCCESS)
      return take();
    if (status == NSS_STATUS_NOTFOUND)
      return {Verdict::NotFound};
    const bool tooSmall = status == NSS_STATUS_TRYAGAIN && error == ERANGE;
    if (!tooSmall || buffer.size() == kLargestBuffer)
      return {Verdict::Unavailable, {}, failure(status, error)};
    buffer.resize(std::min(buffer.size() * 4, kLargestBuffer));
  }
}

// Turns the module's record into an answer to `question`.
Answer judge(const wire::Question& question, const char* name, uint32_t id, uint32_t gid) {
  // Some modules answer an unknown id with their first record.
  if (question.id && *question.id != id)
    return {Verdict::NotFound};
  const bool sendable = name && wire::nameForm(name) == wire::NameForm::Good &&
                        id <= wire::kMaxId && gid <= wire::kMaxId;
  if (!sendable)
    return {Verdict::Unavailable, {}, "the record's name is not UTF-8 or an id is invalid"};
  return {Verdict::Found, {name, id, gid}};
}

}  // namespace

NssModule::NssModule(const std::string& moduleName,
                     const std::string& onlineCheck,
                     std::chrono::seconds onlineWindow)
    : name(moduleName), check(onlineCheck, onlineWindow) {
  if (!isModuleName(name))
    throw AgentError("\"" + name + "\" is not the name of an NSS module");
  library = dlopen(("libnss_" + name + ".so.2").c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!library)
    throw AgentError(std::string("cannot load the NSS module: ") + dlerror());
  getpwnam = function<nss_status(const char*, passwd*, char*, size_t, int*)>("getpwnam_r");
  getpwuid = function<nss_status(uid_t, passwd*, char*, size_t, int*)>("getpwuid_r");
  getgrnam = function<nss_status(const char*, group*, char*, size_t, int*)>("getgrnam_r");
  getgrgid = function<nss_status(gid_t, group*, char*, size_t, int*)>("getgrgid_r");
}

template <class Function>
Function* NssModule::function(const std::string& suffix) const {
  const std::string symbol = "_nss_" + name + "_" + suffix;
  void* address = dlsym(library, symbol.c_str());
  if (!address)
    throw AgentError("the NSS module has no " + symbol);
  return reinterpret_cast<Function*>(address);
}

Answer NssModule::find(const wire::Question& question) {
  Answer answer = question.kind == wire::Kind::User ? findUser(question) : findGroup(question);
  if (answer.verdict == Verdict::Unavailable)
    return answer;
  // While its directory is down a module may report accounts that it has not cached as not found,
  // and give cached records other ids.
  const OnlineAnswer online =
      check.ask(answer.verdict == Verdict::Found ? Evidence::Record : Evidence::Absence);
  return online.verdict == Online::No ? Answer{Verdict::Unavailable, {}, online.why} : answer;
}

Answer NssModule::findUser(const wire::Question& question) const {
  passwd entry = {};
  return withBuffer(
      [&](char* buffer, size_t size, int* error) {
        return question.name ? getpwnam(question.name->c_str(), &entry, buffer, size, error)
                             : getpwuid(*question.id, &entry, buffer, size, error);
      },
      [&] { return judge(question, entry.pw_name, entry.pw_uid, entry.pw_gid); });
}

Answer NssModule::findGroup(const wire::Question& question) const {
  group entry = {};
  return withBuffer(
      [&](char* buffer, size_t size, int* error) {
        return question.name ? getgrnam(question.name->c_str(), &entry, buffer, size, error)
                             : getgrgid(*question.id, &entry, buffer, size, error);
      },
      [&] { return judge(question, entry.gr_name, entry.gr_gid, 0); });
}

std::string NssModule::sources() const {
  const link_map* map = nullptr;
  const bool known = dlinfo(library, RTLD_DI_LINKMAP, &map) == 0 && map && map->l_name;
  return std::string("module: ") + (known ? map->l_name : "unknown") + "\n";
}

}  // namespace zonagent
