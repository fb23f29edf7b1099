// The world that the fault tests start from, again and again: a small tree with an entry of every
// type, account files and a zone that disagree, a real agent. And what must hold whatever happened.
#pragma once

#include <string>
#include <vector>

#include "tests/support/tracer.h"
#include "tests/support/whole_run.h"

// More calls than any run over the small tree makes; reached only when a run never ends by itself.
inline constexpr uint64_t kEndless = 100000;

bool isAnyCall(const SystemCall& call);
// A change of an entry's owner, or the rename that puts an account file into force.
bool isChange(const SystemCall& call);

// Every `stride`th call that `matters`, and what is to happen there.
struct Instants {
  const char* what;
  CallFilter matters;
  uint64_t stride;
  CallHook then;
};

// Removes the files of `directory` whose names begin with `start`.
void removeAll(const char* directory, const char* start);

// The log's bytes; none when there is no log.
std::string readLog();

// In a long run every case, otherwise each `stride`th.
uint64_t sampled(uint64_t stride);

class FaultTest : public WholeRun {
 protected:
  void TearDown() override;

  // The tree, the account files and an empty log directory, as at the start; remembers them. Begins
  // a case of the table of faults.
  void resetWorld();
  void countCase() { ++cases; }

  // Settings that keep and convert all attributes; then, after resetWorld(), ACLs of entries whose
  // owner changes and of others, and capabilities beside set-id bits.
  static void keepAttributes();
  void plantAttributes();

  // Calls `tryOne` with a hook for every instant in turn; it returns false when the run ended
  // before that instant.
  static void sweep(const std::vector<Instants>& instants,
                    const std::function<bool(const CallHook&)>& tryOne);

  // Full paths of the tool's own runs.
  static std::vector<std::string> commitAll();
  static std::vector<std::string> undo();

  // Every entry whose owner is no longer that of the start has its record in the raw log.
  void expectEveryChangeRecorded() const;

  // The account files hold the lines of the start, each either as it was or as it shall become;
  // mode and owner are those of the start.
  void expectAccountFilesWhole() const;

  // No lock and no temporary file of an account file stays behind.
  static void expectNoLeftovers();

  // A commit that runs to its end converts all that is left.
  void expectTheRestConverts();

  // Every owner and both account files are those of the start.
  bool isRestored() const;

  // As many undos as the log has sections bring them back. Records without proof may have been made
  // where no file system told what it is; a file with several names then stays, and an undo says
  // so.
  enum class Proof { Complete, None };
  void expectUndosRestore(Proof proof = Proof::Complete);

  // After a power cut. Whether the log tells of a change that is not on the disk; and, so that an
  // undo is not asked for them, what is changed and has no record becomes part of the start.
  bool isLogAheadOfTree() const;
  void forgiveLostRecords();

  // Ann's uid in the zone. Where it is bob's of today, the new ids of one entry are the old ids of
  // another, and what was changed already must not be taken for what is still to be changed.
  std::string annsUid = "10001";

  TreeSnapshot start;
  std::string startPasswd;
  std::string startGroup;

 private:
  // What has several names becomes part of the start.
  void forgiveLinked();

  int cases = 0;
};
