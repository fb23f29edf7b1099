// The backend that asks a name service module of this host, libnss_NAME.so.2, without going through
// nsswitch.conf: the host's own users need not see the zone's accounts.
//
// A lookup may block as long as the module likes; the server asks from worker threads with a
// deadline. What the module says, and what becomes of it:
//   SUCCESS                     Found; NotFound when asked by id and the record has another id;
//                               Unavailable when the name cannot be sent or the id is none
//   NOTFOUND                    NotFound
//   TRYAGAIN with ERANGE        asked again with a larger buffer, up to 32 MiB
//   all else                    Unavailable
// Found and NotFound become Unavailable when the online check, which says for how long it counts,
// fails.
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
  // `onlineCheck` is a command, or empty: none.
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
  void* library = nullptr;  // never closed: a worker may still be inside
  nss_status (*getpwnam)(const char*, passwd*, char*, size_t, int*) = nullptr;
  nss_status (*getpwuid)(uid_t, passwd*, char*, size_t, int*) = nullptr;
  nss_status (*getgrnam)(const char*, group*, char*, size_t, int*) = nullptr;
  nss_status (*getgrgid)(gid_t, group*, char*, size_t, int*) = nullptr;
  OnlineCheck check;
};

}  // namespace zonagent
