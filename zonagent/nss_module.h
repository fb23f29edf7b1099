// The backend that asks a name service module of this host, libnss_NAME.so.2, without going through
// nsswitch.conf: the host's own users need not see the zone's accounts.
//
// A lookup may block as long as the module likes; the server asks from worker threads with a
// deadline. What the module says, and what becomes of it:
//   SUCCESS                     Found; NotFound when asked by id and the record has another id;
//                               Unavailable when the name cannot be told or the id is none
//   NOTFOUND                    NotFound; Unavailable while the online check fails
//   TRYAGAIN with ERANGE        asked again with a larger buffer, up to 32 MiB
//   all else                    Unavailable
// The constructor throws AgentError for a bad name, a missing module or a missing function.
#pragma once

#include <grp.h>
#include <nss.h>
#include <pwd.h>

#include <memory>
#include <string>

#include "zonagent/backend.h"
#include "zonagent/online_check.h"

namespace zonagent {

class NssModule : public ZoneBackend {
 public:
  NssModule(const std::string& name, const std::string& onlineCheck);

  Answer find(const orvs::wire::Question& question) override;
  bool mayBlock() const override { return true; }
  void reload() override { check.forget(); }
  std::string sources() const override;
  Online online() override { return check.ask(); }

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
