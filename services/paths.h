// Every fixed path that the two programs write to, run, or take instructions from. The places that
// a survey reads stand in survey/machine/machine_survey.cc; paths below /proc and /dev stand where
// they are used.
//
// The paths are absolute and not configurable. Tests that need other files run in a mount namespace
// with a root of their own.
#pragma once

namespace paths {

inline constexpr const char* kPasswd = "/etc/passwd";
inline constexpr const char* kGroup = "/etc/group";
inline constexpr const char* kShadow = "/etc/shadow";
inline constexpr const char* kSystemLock = "/etc/.pwd.lock";  // what lckpwdf() locks

inline constexpr const char* kPrivateLog = "/etc/orvantadc/idshift.log";
inline constexpr const char* kPrivateLogIndex = "/etc/orvantadc/idshift.log.index";
inline constexpr const char* kRunLock = "/etc/orvantadc/idshift.lock";
inline constexpr const char* kSettings = "/etc/orvantadc/orvantadc.conf";
inline constexpr const char* kUserIgnoreSource = "file:/etc/orvantadc/user.ignore";
inline constexpr const char* kGroupIgnoreSource = "file:/etc/orvantadc/group.ignore";
inline constexpr const char* kZoneDirectory = "/etc/orvantadc/zone";

inline constexpr const char* kAgentSocket = "/var/orvantadc/daemon";
inline constexpr const char* kSnapshotTemplate = "/tmp/passwddb.XXXXXX";

inline constexpr const char* kCat = "/bin/cat";
inline constexpr const char* kUserAdd = "/usr/sbin/useradd";
inline constexpr const char* kUserDel = "/usr/sbin/userdel";
inline constexpr const char* kGroupAdd = "/usr/sbin/groupadd";
inline constexpr const char* kGroupDel = "/usr/sbin/groupdel";

}  // namespace paths
