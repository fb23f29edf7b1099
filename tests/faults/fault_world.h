// The world that the fault tests start from, again and again: a small tree with an entry of every
// type, account files and a zone that disagree, a real agent. And what must hold whatever happened.
#pragma once

#include <string>
#include <vector>

#include "tests/support/sandbox.h"
#include "tests/support/tracer.h"

class FaultTest : public SandboxTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // The tree, the account files and an empty log directory, as at the start; remembers them. Begins
  // a case of the table of faults.
  void resetWorld();

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

  // As many undos as the log has sections bring every owner and both account files back.
  void expectUndosRestore();

  // After a power cut. Whether the log tells of a change that is not on the disk; and, so that an
  // undo is not asked for them, what is changed and has no record becomes part of the start.
  bool isLogAheadOfTree() const;
  void forgiveLostRecords();

  // In a long run every case, otherwise each `stride`th; `offset` moves the sample.
  static uint64_t sampled(uint64_t stride);

  TreeSnapshot start;
  std::string startPasswd;
  std::string startGroup;

 private:
  int cases = 0;
  pid_t agent = -1;
};
