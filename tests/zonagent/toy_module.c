/* A name service module for tests: the name or id that is asked for selects what the module does.
 * It has the user "ayla" (uid 70001, gid 70000) and the group "staff_z" (gid 70000). Like a
 * well-known module, it answers an unknown id with its first record. */
#include <errno.h>
#include <grp.h>
#include <nss.h>
#include <pwd.h>
#include <string.h>
#include <unistd.h>

/* NOLINTBEGIN(clang-diagnostic-reserved-identifier): the C library looks for these names. */

enum nss_status _nss_toy_getpwnam_r(
    const char* name, struct passwd* entry, char* buffer, size_t size, int* error) {
  while (!strcmp(name, "hang") && access("/tmp/hang", F_OK) == 0)
    usleep(10000);
  const int isBig = !strcmp(name, "big") && size < (size_t)32 << 20;
  *error = isBig || !strcmp(name, "endless") ? ERANGE : EAGAIN;
  if (*error == ERANGE || !strcmp(name, "tryagain"))
    return NSS_STATUS_TRYAGAIN;
  if (!strcmp(name, "unavail"))
    return NSS_STATUS_UNAVAIL;
  if (!strcmp(name, "notfound"))
    return NSS_STATUS_NOTFOUND;
  const char* answer = !strcmp(name, "AYLA") ? "ayla" : strcmp(name, "latin1") ? name : "m\xFCller";
  entry->pw_name = strcmp(name, "nameless") ? strcpy(buffer, answer) : NULL;
  entry->pw_uid = strcmp(name, "minusone") ? 70001 : (uid_t)-1;
  entry->pw_gid = strcmp(name, "minusgid") ? 70000 : (gid_t)-1;
  return NSS_STATUS_SUCCESS;
}

enum nss_status _nss_toy_getpwuid_r(
    uid_t uid, struct passwd* entry, char* buffer, size_t size, int* error) {
  return _nss_toy_getpwnam_r(uid == 70003 ? "unavail" : "ayla", entry, buffer, size, error);
}

enum nss_status _nss_toy_getgrnam_r(
    const char* name, struct group* entry, char* buffer, size_t size, int* error) {
  *error = 0;
  if (strcmp(name, "staff_z") != 0 || size == 0)
    return NSS_STATUS_NOTFOUND;
  entry->gr_name = strcpy(buffer, name);
  entry->gr_gid = 70000;
  return NSS_STATUS_SUCCESS;
}

enum nss_status _nss_toy_getgrgid_r(
    gid_t gid, struct group* entry, char* buffer, size_t size, int* error) {
  return _nss_toy_getgrnam_r(gid ? "staff_z" : "", entry, buffer, size, error);
}

/* NOLINTEND(clang-diagnostic-reserved-identifier) */
