// The keys of the settings file. Keys compare without case.
#pragma once

namespace orvs {

// The name of the domain. The machine counts as joined when it is set and not empty.
inline constexpr const char* SETTING_DOMAIN_NAME = "domain.name";

namespace PN {

inline constexpr const char* ROOT_LOGGER_NAME = "log.level";  // root threshold, first sink
inline constexpr const char* ROOT_LOGGER_FILE_LEVEL = "log.file.level";  // root threshold, log file
inline constexpr const char* LOG_FILE_PATH = "log.file.path";
inline constexpr const char* IDSHIFT_PRESERVE_EXECUTION_BITS = "idshift.preserve.execution.bits";
inline constexpr const char* IDSHIFT_PRESERVE_CAPABILITIES = "idshift.preserve.capabilities";
inline constexpr const char* IDSHIFT_CONVERT_ACLS = "idshift.convert.acls";
inline constexpr const char* IDSHIFT_HARDENED = "idshift.hardened";
inline constexpr const char* IDSHIFT_STRICT = "idshift.strict";
inline constexpr const char* IDSHIFT_PROGRESS = "idshift.progress";
inline constexpr const char* IDSHIFT_READ_AHEAD = "idshift.read.ahead";
inline constexpr const char* PAM_IGNORE_USERS = "pam.ignore.users";
inline constexpr const char* PAM_ALLOW_OVERRIDE = "pam.allow.override";
inline constexpr const char* NSS_USER_IGNORE = "nss.user.ignore";
inline constexpr const char* NSS_GROUP_IGNORE = "nss.group.ignore";
inline constexpr const char* PAM_MAPUSER = "pam.mapuser.";  // followed by the user's name
inline constexpr const char* AGENT_SERVICE = "agent.service";
inline constexpr const char* ZONAGENT_BACKEND = "zonagent.backend";
inline constexpr const char* ZONAGENT_ONLINE_CHECK = "zonagent.online.check";
inline constexpr const char* ZONAGENT_ONLINE_SECONDS = "zonagent.online.seconds";

}  // namespace PN
}  // namespace orvs
