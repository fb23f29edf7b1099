// The backend that asks a name service module of this host, libnss_NAME.so.2, without going through
// nsswitch.conf: the host's own users need not see the zone's accounts.
//
// A lookup blocks for as long as the module takes; the server calls it from worker threads and
// gives up after a deadline. The module's status becomes a verdict:
//   SUCCESS                     Found; but NotFound if the question was an id and the record has
//                               another one, Unavailable for a name not in UTF-8 or a bad id
//   NOTFOUND                    NotFound
//   TRYAGAIN with ERANGE        the module is asked again with a larger buffer, up to 32 MiB
//   any other                   Unavailable
// While the online check (online_check.h) fails, Found and NotFound become Unavailable.
// The constructor throws AgentError for a bad name, a missing module or a missing function.
#pragma once

#include <grp.h>
#include <nss.h>
#include <pwd.h>

#include <chrono>
#include <string>

#include "zonagent/backend.h"
#include "zonagent/online_check.h"

namespace zonagent {

class NssModule : public ZoneBackend {
 public:
  // `onlineCheck` is a command; an empty one is never run.
  NssModule(const std::string& name,
            const std::string& onlineCheck,
            std::chrono::seconds onlineWindow);

  Answer find(const orvs::wire::Question& question) override;
  bool mayBlock() const override { return true; }
  void reload() override { check.forget(); }
  std::string sources() const override;
  OnlineAnswer online() override { return check.ask(Evidence::Absence); }
  std::string summary() const override { return check.summary(); }

 private:
  template <class Function>
  Function* function(const std::string& suffix) const;
  Answer findUser(const orvs::wire::Question& question) const;
  Answer findGroup(const orvs::wire::Question& question) const;

  std::string name;
  void* library = nullptr;  // never closed: a worker may still be inside the module
  nss_status (*getpwnam)(const char*, passwd*, char*, size_t, int*) = nullptr;
  nss_status (*getpwuid)(uid_t, passwd*, char*, size_t, int*) = nullptr;
  nss_status (*getgrnam)(const char*, group*, char*, size_t, int*) = nullptr;
  nss_status (*getgrgid)(gid_t, group*, char*, size_t, int*) = nullptr;
  OnlineCheck check;
};

}  // namespace zonagent
