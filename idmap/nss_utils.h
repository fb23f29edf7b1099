// Which local accounts are left out of the comparison with the zone.
//
// Each filter reads one list of names from the settings, anew on every call, and answers true when
// the name is on it, byte for byte. A hit is logged at level 1 to the logger "nss" and is never
// printed. The filters ask no agent and look at no ids; what the settings throw passes through.
#pragma once

// The list for groups.
bool ignoreGroup(const char* name);

// True when one of the three lists for users says so. They are asked in the order below, and a hit
// ends the chain.
bool isIgnoredUser(const char* name);

// Not for a user with a map-user setting, whom this list never hides.
bool isPamIgnoreUser(const char* name);

bool isPamOverrideList(const char* name);

bool isNssIgnoreUser(const char* name);

// Whether a map-user setting that is not empty exists for the name, in any case of its letters.
bool isPamMapUser(const char* name);
