// Which local accounts are left out of the comparison with the zone.
//
// Each filter looks a name up in one list of the settings, byte for byte. Properties keeps the
// lists, so a list's file is read once. A hit is logged at level 1 to the logger "nss" and never
// printed. The filters ask no agent and look at no ids. They throw what the settings throw.
#pragma once

// True when the list for groups has the name.
bool ignoreGroup(const char* name);

// True when one of the three lists for users has the name. The lists are asked in the order of the
// declarations below; the first hit ends the search.
bool isIgnoredUser(const char* name);

// False for a user with a map-user setting, whatever the list says.
bool isPamIgnoreUser(const char* name);

bool isPamOverrideList(const char* name);

bool isNssIgnoreUser(const char* name);

// Whether the name has a map-user setting that is not empty. The key compares without case.
bool isPamMapUser(const char* name);
