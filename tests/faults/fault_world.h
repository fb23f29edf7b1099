// The world in which every case of a fault test starts: a small tree with an entry of every type,
// account files and a zone that disagree, a real agent. Also the checks that must hold after any
// fault.
#pragma once

#include <string>
#include <vector>

#include "tests/support/tracer.h"
#include "tests/support/whole_run.h"

// More calls than a run over the small tree makes. A sweep gets here only if a run never ends by
// itself.
inline constexpr uint64_t kEndless = 100000;

bool isAnyCall(const SystemCall& call);
// Whether the call changes an owner or an attribute of an entry, or renames a new account file into
// place.
bool isChange(const SystemCall& call);

// Instants of a run: every `stride`th call that `matters` picks, and what happens at it.
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

// The stride of a sweep: 1 in a long run, otherwise `stride`; more in a short run, and with
// sanitizers, under which a run takes many times as long.
uint64_t sampled(uint64_t stride);

class FaultTest : public WholeRun {
 protected:
  void TearDown() override;

  // Makes the tree, the account files and an empty log directory as at the start, remembers them,
  // and counts a case.
  void resetWorld();
  void countCase() { ++cases; }

  // Switches on the settings that keep and convert attributes. After resetWorld(),
  // plantAttributes() adds ACLs, also to entries whose owner does not change, and capabilities,
  // also beside set-id bits.
  static void keepAttributes();
  void plantAttributes();

  // Calls `tryOne` with a hook for every instant in turn, until it returns false because the run
  // ended before that instant.
  static void sweep(const std::vector<Instants>& instants,
                    const std::function<bool(const CallHook&)>& tryOne);

  // The command lines of a --commit-all of the tree and of an undo.
  static std::vector<std::string> commitAll();
  static std::vector<std::string> undo();

  // Expects a record in the log for every entry whose owner is not that of the start.
  void expectEveryChangeRecorded() const;

  // Expects in the account files the lines of the start, each as it was or converted, and mode and
  // owner of the start.
  void expectAccountFilesWhole() const;

  // Expects that no lock and no temporary file of an account file is left.
  static void expectNoLeftovers();

  // Expects that an undisturbed --commit-all converts everything that is left.
  void expectTheRestConverts();

  // Whether every owner and both account files are those of the start.
  bool isRestored() const;

  // Expects that one undo for each section of the log restores the start. Proof::None: some records
  // may lack a birth time, because the file system could not be asked; then a file with several
  // names stays converted and the undo reports it.
  enum class Proof { Complete, None };
  void expectUndosRestore(Proof proof = Proof::Complete);

  // For use after a power cut. Makes changes without a record part of the start, because no undo
  // can restore what the log does not have.
  void forgiveLostRecords();

  // The uid of ann in the zone. When it is the present uid of bob, new ids of one entry are old ids
  // of another, and a converted entry must not be converted again.
  std::string annsUid = "10001";

  TreeSnapshot start;
  std::string startPasswd;
  std::string startGroup;

 private:
  // Makes the present owners of files with several names part of the start.
  void forgiveLinked();

  int cases = 0;
};
