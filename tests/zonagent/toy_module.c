/* A name service module for tests: the asked name or id says what it does. Accounts "ayla" (uid
 * 70001, gid 70000) and the group "staff_z" (gid 70000) exist. The user
 * "hang" blocks while the file named by TOY_HANG exists. */
#include <errno.h>
#include <grp.h>
#include <nss.h>
#include <pwd.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static void hang(void) {
  const char* path = getenv("TOY_HANG");
  while (path && access(path, F_OK) == 0)
    usleep(10000);
}

/* What happens for `name`; *answer is the name to answer with. */
static enum nss_status play(const char* name, size_t size, int* error, const char** answer) {
  *answer = name;
  if (!strcmp(name, "unavail"))
    return NSS_STATUS_UNAVAIL;
  if (!strcmp(name, "tryagain")) {
    *error = EAGAIN;
    return NSS_STATUS_TRYAGAIN;
  }
  if ((!strcmp(name, "big") && size < (size_t)32 << 20) || !strcmp(name, "endless")) {
    *error = ERANGE;
    return NSS_STATUS_TRYAGAIN;
  }
  if (!strcmp(name, "latin1"))
    *answer = "m\xFCller";
  if (!strcmp(name, "nameless"))
    *answer = NULL;
  if (!strcmp(name, "AYLA"))
    *answer = "ayla";
  return strcmp(name, "notfound") ? NSS_STATUS_SUCCESS : NSS_STATUS_NOTFOUND;
}

/* NOLINTBEGIN(bugprone-reserved-identifier): the C library looks for these names. */

enum nss_status _nss_toy_getpwnam_r(
    const char* name, struct passwd* entry, char* buffer, size_t size, int* error) {
  const char* answer = NULL;
  if (!strcmp(name, "hang"))
    hang();
  const enum nss_status status = play(name, size, error, &answer);
  if (status != NSS_STATUS_SUCCESS)
    return status;
  entry->pw_name = answer ? strcpy(buffer, answer) : NULL;
  entry->pw_uid = strcmp(name, "minusone") ? 70001 : (uid_t)-1;
  entry->pw_gid = strcmp(name, "minusgid") ? 70000 : (gid_t)-1;
  return status;
}

/* Like a well-known module, it answers an id that it does not know with its first record. */
enum nss_status _nss_toy_getpwuid_r(
    uid_t uid, struct passwd* entry, char* buffer, size_t size, int* error) {
  return uid == 70003 ? NSS_STATUS_UNAVAIL
                      : _nss_toy_getpwnam_r("ayla", entry, buffer, size, error);
}

enum nss_status _nss_toy_getgrnam_r(
    const char* name, struct group* entry, char* buffer, size_t size, int* error) {
  const char* answer = NULL;
  const enum nss_status status = play(name, size, error, &answer);
  if (status != NSS_STATUS_SUCCESS)
    return status;
  entry->gr_name = answer ? strcpy(buffer, answer) : NULL;
  entry->gr_gid = 70000;
  return status;
}

enum nss_status _nss_toy_getgrgid_r(
    gid_t gid, struct group* entry, char* buffer, size_t size, int* error) {
  return gid == 70003 ? NSS_STATUS_TRYAGAIN
                      : _nss_toy_getgrnam_r("staff_z", entry, buffer, size, error);
}

/* NOLINTEND(bugprone-reserved-identifier) */
