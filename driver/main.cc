// main(): standard streams, signals, and the last handler of exceptions.
//
// The source tree: one phrase for each file, in an order for reading. HACKING.md describes the
// folders.
//
// driver/                 one run of idshift
//   main                  this file: descriptors, signals, the last handler
//   cli_idshift           main2, the order of the steps: begin here
//   exit_status           the number of each way to end
//   command_line          argv to options
//   usage                 the texts about the command line
//   run_plan              which mode, and what it needs: decided from the options
//   run                   what every step of a run works with
//   map_steps             the steps that make the id maps, and compare them with an approved plan
//   merge_check           accounts that would be merged: what strict refuses
//   run_note              what the system log gets at the end of a run
//   conflict_summary      the tables of a dry run
//   top_dirs              the directories named: cleaned, and walked one by one
//   survey_run            the survey, from the trees and the machine to the table
//   account_update        passwd and group follow the maps; plans of former runs are finished
// driver/plan/            conflicts that somebody has approved
//   approved_plan         a conversion as a value
//   plan_text             a plan as JSON: written and read
//   plan_differences      the approved plan and the present one: compared
//   plan_file             a plan's file, read whole and written whole
//   plan_run              what --plan and --expect do
// survey/                 what to look at before a conversion
//   kinds                 what is looked for, and what to do about it
//   findings              how many of each kind, with examples
//   survey_output         findings as a table or as JSON
//   mount_survey          mounts that a conversion does not reach
// survey/machine/         places that know accounts by number
//   machine_survey        all such places, below a root
//   place_files           files of these places: found and read
//   account_texts         lines of these files: parsed
//   id_mention            an id in a text
//   process_status        whose a process is: parsed from /proc
// survey/tree/            what the walk comes by
//   tree_survey           one entry looked at
//   attributes            an entry's extended attributes: read
// idmap/                  from old ids to new ids
//   id_maps               the eight tables
//   name_map              the files behind --usermap and --groupmap
//   group_map             first pass: the local groups against the zone
//   user_map              second pass: the local users against the zone
//   conflict_records      why an id changes, for the tables of a dry run
//   map_trace             the running commentary of both passes
//   spare_id              ids for accounts whose ids the zone has given to others
//   nss_utils             accounts that are left out of the comparison
//   zone_lookup           questions to the agent: null is a miss
//   new_ids               the rule: new ids of an entry, new ids of an account
// walk/                   every entry below a directory
//   tree_walk             the walk: levels, names, the way back
//   mounts                remote file systems, and borders between file systems
//   walk_visitor          the observer of a walk: the contract
//   descent               into a directory that others may exchange
//   levels                directories that are still to be walked, and the way back
//   ahead_of_walk         where the walk is, for the helpers that read ahead
//   visited               which directories were entered, and which never are
//   process_entry         one entry: skipped, recorded as a link, or changed
//   attribute_changes     ACLs converted, capabilities kept
//   failed_changes        changes that failed in earlier runs: tried once more
// entry/                  one inode, and the file system that it lies on
//   file_ids              inode and owner as values
//   entry_status          one look at an entry, with its birth time
//   file_systems          what a file system promises about inodes
//   mount_table           the table of mounts: parsed
//   pinned_entry          an inode held, and changed through the hold
//   attribute_access      ACLs and capabilities of an inode: read and written through the hold
//   attribute_ids         the ids in ACLs and capabilities: parsed and converted
//   pinned_path           a path followed step by step, and judged
//   changed_devices       the file systems to sync at the end
//   descriptor_batch      descriptors closed many at a time
//   read_ahead            threads that look at names before they are needed
//   ahead_queue           what the helpers read, in the order of the walk
//   wait_watch            whether a run waits for its disk
// privatelog/             the log; FORMAT.md has its bytes
//   private_log           the log as walk and driver see it: look up, begin, finish
//   private_log_open      opening it for writing: what to keep, what to mend
//   attribute_change      the codec of a changed ACL or capability
//   private_log_attributes  ACLs and capabilities: begin, end, known, cut off by a kill
//   private_log_accounts  the account phase: the plan, its lines, plans of former runs
//   account_plan          the codec of a plan
//   open_plans            which plans are still to be carried out
//   run_lock              one run at a time
//   former_log            a log that is replaced is kept
//   log_header            a log's header: its domain, and whether the index fits
//   log_line              the codec of the lines
//   log_file              log or index as a file that is written
//   mapped_window         the piece of that file that is mapped
//   log_reader            the text of the log, line by line
//   piece_reader          texts compared with a file in small pieces
//   log_scan              lines, and how far each may be believed
//   loaded_log            what one reading leaves in memory
//   change_table          the changes by inode
//   device_classes        file systems told apart across mounts and boots
//   boot_id               which start of the machine this is
//   log_index             the index as a file that is written
//   index_record          the codec of its records
//   index_reader          its records, one by one
//   index_align           lines found again after an edit by hand
//   line_feed_ranges      what older releases wrote instead of an index
//   log_recovery          what a killed run left: mended
//   torn_tail             the last line of a killed run: decided
//   prepared_account      an account's update that a kill of an older release cut off
//   recorded_entry        a record compared with the entry at its path
// privatelog/undo/        the newest run backed out
//   undo_run              line by line, each marked when done
//   undo_plan             what to do with a line, and with what is found: decided
//   owner_restore         the owner of one file set back
//   acl_restore           the ACL of one file set back, capabilities kept
//   ahead_of_undo         where an undo is, for the same helpers
// privatelog/report/      all changes as a table
//   report_run            from the log to the file
//   report_rows           values to text
//   report_json           values to JSON lines
//   report_target         the report file opened without being led astray
// accountdb/              passwd and group
//   passwdDB              the facades that driver and maps use
//   db_operator           a whole file in memory
//   db_entry              what all lines share
//   db_passwd             a user's line
//   account_line          ids set in a line, all else kept
//   account_text          ids set in a whole file, all else kept
//   file_attributes       what a replaced file had besides its bytes
//   file_oddities         what is odd in an account file, for the log
//   db_group              a group's line
//   db_storage            the contract of a store
//   db_command            the stores in use: read a copy, change one account
//   snapshot              the copy, made by a command
//   file_edit             one change of one account
//   db_file               the store that writes
//   lock_file             the lock beside an account file
//   file_rewrite          backup and replacement
// accountdb/unused/       kept for other tools, used by no run
//   db_account_file       stores that change the files themselves
//   db_ent                stores over the C library's iteration
//   db_shadow             a line of the shadow file
// services/               what both programs stand on
//   paths                 every fixed path
//   properties            the settings, read once
//   setting_keys          the names of the settings
//   setting_rules         which values are refused, which keys are known
//   command_options       what the command line said
//   logger                named loggers over syslog and a file
//   say                   a message for user and log
//   progress              when a walk shows how far it is
//   progress_line         the line that shows it
//   exceptions            the exceptions of agent, id range and settings
//   cli_common            whether the machine is joined
//   interrupt             signals as a flag
//   spawn                 child processes and temporary files
//   std_streams           standard streams that are missing
//   left_undone           whether something asked for was left undone
//   unique_fd             the owner of a descriptor
//   mutex                 the lock of the settings
//   text                  printf to a string, lower case, UTF-8, base64
//   path_text             small cuts of paths
// services/agent/         the agent's client
//   local_rpc_session     one connection: ask, wait, check
//   rpc_deadline          how long the client waits
//   zone_records          what an answer says
//   zone_wire             the messages, for both ends
// zonagent/               the agent
//   main                  settings, backend, socket, server: in that order
//   options               command line and settings
//   agent_log             the agent's messages
//   agent_signals         the agent's signals
//   zone_source           which backend, at start and at a reload
//   backend               where answers come from: the contract
//   zone_files            backend: plain files
//   zone_table            the text of plain files to a table
//   account_index         a table's accounts, by name and by id
//   nss_module            backend: a module of the host
//   online_check          whether the module's directory can be reached
//   trusted_path          whether root alone decides a path
//   listen_socket         the socket: made here or handed over
//   server                the poll loop
//   admission             who is let in, who gives way
//   lookup_pool           threads for lookups that block
//   answer                one message to one answer: decided
//   reload_request        zonagent --reload: asks, and waits for the end of the reload
//   self_check            zonagent --check

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>

#include "driver/cli_idshift.h"
#include "driver/exit_status.h"
#include "privatelog/private_log.h"
#include "services/interrupt.h"
#include "services/logger.h"
#include "services/progress.h"
#include "services/say.h"
#include "services/std_streams.h"

namespace {

int runGuarded(int argc, char** argv) {
  try {
    return main2(argc, argv);
  } catch (const std::exception& error) {
    SAY(getLogger("cli.idshift", false), 1, "cli_idshift", Echo::Stderr, "Error: %s", error.what());
  } catch (...) {
    SAY(getLogger("cli.idshift", false), 1, "cli_idshift", Echo::Stderr,
        "Error: Unknown exception");
  }
  return kExitException;
}

}  // namespace

int main(int argc, char** argv) {
  fillStandardStreams();
  interrupt::install();
  progress::install();
  const int status = runGuarded(argc, argv);
  // Only standard output has the tables, so warn if they were lost. The status stays: it reports on
  // files.
  if (fflush(stdout) != 0 && errno != EPIPE)
    fprintf(stderr, "Warning: cannot write to standard output: %s\n", strerror(errno));
  if (const int signal = interrupt::pending(); signal != 0) {
    privateLog.release();  // no destructor runs when a signal ends the process
    interrupt::dieOf(signal);
  }
  return status;
}
