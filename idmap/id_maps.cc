#include "idmap/id_maps.h"

IdMap uidMap;
IdMap gidMap;
IdMap userZoneGid;
IdMap userLocalGid;

NameMap userNameMap;
NameMap groupNameMap;

ConflictMap userConflicts;
ConflictMap groupConflicts;
