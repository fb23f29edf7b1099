// The exit statuses. README and idshift(8) explain them.
#pragma once

enum ExitStatus : int {
  kExitSuccess = 0,
  kExitException = 6,  // unexpected: an exception, a failed sync, a plan file that failed
  kExitUsage = 7,      // bad command line or refused combination
  kExitNotRoot = 9,
  kExitNotJoined = 10,
  kExitAgentUnavailable = 13,  // unreachable, or lost while it was asked
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
  kExitNotAsApproved = 168,  // --expect: not the approved conversion, or no plan
  kExitRefused = 169,        // idshift.strict: the conflicts are refused, nothing was converted
};
