// Everything that the command line said, in one record. ParseCommandLineOpts fills the record;
// every room reads it and none changes it. The strings are not owned: they point into argv or at
// static text.
#pragma once

#include <cstdint>

// An inclusive range of ids, unsigned 32-bit.
struct IdRange {
  uint32_t low = 50000;
  uint32_t high = 60000;
};

struct CommandOptions {
  bool commit = false;                       // -c, -C: change the disk
  bool commitAll = false;                    // -C: update passwd and group too
  const char* reportFiles = nullptr;         // -r: report file to write, "-" for standard output
  const char* userMapFile = nullptr;         // -u: name map file
  const char* groupMapFile = nullptr;        // -g: name map file
  IdRange newIDRange = {};                   // -i: where new ids come from
  bool nfs = false;                          // -n: descend into remote file systems
  bool follow = false;                       // -f: follow symbolic links
  bool xdev = false;                         // -x: stay on one file system
  bool restart = false;                      // -R: ignore the existing private log
  bool undo = false;                         // -U
  const char* const* directories = nullptr;  // top-level paths, as given
  int directoryCount = 0;
  bool verbose = false;     // -V
  bool debug = false;       // -D
  bool version = false;     // -v
  bool help = false;        // -h
  bool pretend = false;     // -F: no ownership is changed
  bool traceMaps = false;   // -B: the map builders' traces on standard error
  bool traceSkips = false;  // -S: skip notices on standard error
  bool traceExtra = false;  // -+: more of both
  bool survey = false;      // --survey: list what to do before a conversion
  bool json = false;        // --json: survey or report for programs

  const char* planFile = nullptr;    // --plan: where the conflicts go, "-" for standard output
  const char* expectFile = nullptr;  // --expect: the plan that the conflicts must equal
};
