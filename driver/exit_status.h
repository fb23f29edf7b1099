// The exit statuses, each named once.
#pragma once

enum ExitStatus : int {
  kExitSuccess = 0,
  kExitException = 6,  // an exception reached the last handler
  kExitUsage = 7,      // bad command line or refused combination
  kExitNotRoot = 9,
  kExitNotJoined = 10,
  kExitAgentUnavailable = 13,  // unreachable, or lost while the maps were built
  kExitIdRangeExhausted = 156,
  kExitPasswdNotLoaded = 157,
  kExitGroupNotLoaded = 158,
  kExitUndoRefused = 159,    // no usable log
  kExitReportRefused = 160,  // no usable log
  kExitLogNotWritable = 161,
  kExitUserMapNotLoaded = 162,
  kExitGroupMapNotLoaded = 163,
  kExitGroupMappingFailed = 164,
  kExitIdMappingFailed = 165,
  kExitWalkFailed = 166,
  kExitLeftUndone = 167,     // idshift.strict: something that was asked for was left undone
  kExitNotAsApproved = 168,  // --expect: not the approved plan, or none
  kExitRefused = 169,        // idshift.strict: the conflicts are such that nothing may be converted
};
