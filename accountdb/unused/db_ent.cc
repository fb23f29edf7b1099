#include "accountdb/unused/db_ent.h"

#include "accountdb/db_group.h"
#include "accountdb/db_passwd.h"

namespace orvs {

DBPwEnt::~DBPwEnt() {
  DBPwEnt::close();
}

bool DBPwEnt::open() {
  if (opened)
    close();
  opened = true;
  first();
  return true;
}

void DBPwEnt::close() {
  currentLine.clear();
  opened = false;
  ::endpwent();
}

bool DBPwEnt::first() {
  ::setpwent();
  return next();
}

bool DBPwEnt::next() {
  record = ::getpwent();
  currentLine = formatRecord(record);
  return hasLine();
}

DBGrEnt::~DBGrEnt() {
  DBGrEnt::close();
}

bool DBGrEnt::open() {
  if (opened)
    close();
  opened = true;
  first();
  return true;
}

void DBGrEnt::close() {
  currentLine.clear();
  opened = false;
  ::endgrent();
}

bool DBGrEnt::first() {
  ::setgrent();
  return next();
}

bool DBGrEnt::next() {
  record = ::getgrent();
  currentLine = formatRecord(record);
  return hasLine();
}

}  // namespace orvs
