#include "survey/machine/machine_survey.h"

#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <set>

#include "entry/entry_status.h"
#include "entry/mount_table.h"
#include "services/interrupt.h"
#include "survey/machine/account_texts.h"
#include "survey/machine/place_files.h"
#include "survey/machine/process_status.h"

namespace {

using Parser = IdMentions (*)(std::string_view text);

// The path with its symbolic links resolved; unchanged when that fails.
std::string resolved(const std::string& path) {
  const std::unique_ptr<char, decltype(&free)> real(realpath(path.c_str(), nullptr), &free);
  return real ? std::string(real.get()) : path;
}

std::string inFolder(const std::string& folder, const std::string& name) {
  return std::string(folder).append("/").append(name);
}

class MachineSurvey {
 public:
  MachineSurvey(const SurveyedMachine& surveyed, Findings& target);

  void run();

 private:
  std::string at(const std::string& path) const { return machine.root + path; }
  bool isMapped(uint32_t id, bool isGroup) const {
    return (isGroup ? machine.gids : machine.uids).contains(id);
  }
  bool isInTrees(const std::string& path) const;
  bool isNew(const std::string& folder);
  std::vector<std::string> names(const std::string& folder);

  void readMentions(Kind kind, Parser parser, const std::string& path);
  void readFolder(Kind kind, Parser parser, const std::string& folder, std::string_view ending);
  void readUnits(const std::string& folder);
  void readSpool(Kind kind, const std::string& folder);
  void readStorage(const std::string& folder);
  void readProcesses();
  void readProcess(const std::string& pid);

  const SurveyedMachine& machine;
  Findings& findings;
  std::vector<std::string> trees;  // symbolic links resolved
  std::set<DevInode> known;        // folders looked at; one folder can have several names
};

MachineSurvey::MachineSurvey(const SurveyedMachine& surveyed, Findings& target)
    : machine(surveyed), findings(target) {
  for (const std::string& tree : machine.trees)
    trees.push_back(resolved(tree));
}

bool MachineSurvey::isInTrees(const std::string& path) const {
  const std::string real = resolved(path);
  return std::any_of(trees.begin(), trees.end(),
                     [&](const std::string& tree) { return isWithin(real, tree); });
}

// Whether the folder exists and was not looked at before. /lib is often a link to /usr/lib, and
// /var/spool/mail one to /var/mail; each file must count once.
bool MachineSurvey::isNew(const std::string& folder) {
  EntryStatus status;
  return lookAt(folder.c_str(), true, status) && known.insert(status.id).second;
}

std::vector<std::string> MachineSurvey::names(const std::string& folder) {
  std::vector<std::string> found;
  if (!namesOf(folder, found))
    findings.add({Kind::NotRead}, folder);
  return found;
}

// Parses one file and adds each mention whose id changes.
void MachineSurvey::readMentions(Kind kind, Parser parser, const std::string& path) {
  const auto take = [&](const std::string& name, const std::string& text) {
    for (const IdMention& mention : parser(text)) {
      if (isMapped(mention.id, mention.isGroup))
        findings.add({kind}, name,
                     "line " + std::to_string(mention.line) +
                         (mention.isGroup ? ", gid " : ", uid ") + std::to_string(mention.id));
    }
  };
  if (!readPlace(path, take))
    findings.add({Kind::NotRead}, path);
}

void MachineSurvey::readFolder(Kind kind,
                               Parser parser,
                               const std::string& folder,
                               std::string_view ending) {
  for (const std::string& name : names(folder)) {
    if (name.ends_with(ending))
      readMentions(kind, parser, inFolder(folder, name));
  }
}

// Reads unit files, and the drop-ins in folders named "UNIT.d".
void MachineSurvey::readUnits(const std::string& folder) {
  if (!isNew(folder))
    return;
  for (const std::string& name : names(folder)) {
    const std::string path = inFolder(folder, name);
    if (name.ends_with(".d"))
      readFolder(Kind::Unit, mentionsInUnit, path, ".conf");
    for (const char* ending : {".service", ".socket", ".mount", ".swap"}) {
      if (name.ends_with(ending))
        readMentions(Kind::Unit, mentionsInUnit, path);
    }
  }
}

// Adds the files of a spool that belong to users who move. Jobs of at are parsed instead: each has
// its user's numbers inside, which no commit changes.
void MachineSurvey::readSpool(Kind kind, const std::string& folder) {
  if (!isNew(folder))
    return;
  const bool isConverted = isInTrees(folder);
  for (const std::string& name : names(folder)) {
    const std::string path = inFolder(folder, name);
    EntryStatus status;
    if (!lookAt(path.c_str(), false, status) || !S_ISREG(status.mode))
      continue;
    const OwnerIds owner = status.owner;
    if (kind == Kind::AtJob)
      readMentions(kind, mentionsInAtJob, path);
    else if (!isConverted && (isMapped(owner.uid, false) || isMapped(owner.gid, true)))
      findings.add({kind}, path, std::to_string(owner.uid) + ":" + std::to_string(owner.gid));
  }
}

void MachineSurvey::readStorage(const std::string& folder) {
  if (isNew(folder) && !isInTrees(folder) && !names(folder).empty())
    findings.add({Kind::ContainerStorage}, folder);
}

void MachineSurvey::readProcesses() {
  const std::string own = std::to_string(getpid());
  for (const std::string& name : names(at("/proc"))) {
    const bool isNumber = name.find_first_not_of("0123456789") == name.npos;
    if (isNumber && (name != own || !machine.root.empty()))
      readProcess(name);
  }
}

// Adds a process that has an id which changes. A process that has ended meanwhile is passed over.
void MachineSurvey::readProcess(const std::string& pid) {
  const auto take = [&](const std::string&, const std::string& text) {
    const ProcessStatus process = parseProcessStatus(text);
    std::set<std::string> mapped;
    for (const uint32_t uid : process.uids) {
      if (isMapped(uid, false))
        mapped.insert("uid " + std::to_string(uid));
    }
    for (const uint32_t gid : process.gids) {
      if (isMapped(gid, true))
        mapped.insert("gid " + std::to_string(gid));
    }
    if (mapped.empty())
      return;
    std::string detail = "process " + pid;
    for (auto id = mapped.rbegin(); id != mapped.rend(); ++id)
      detail += ", " + *id;
    findings.add({Kind::Process}, process.name, detail);
  };
  readPlace(at("/proc/" + pid + "/status"), take);
}

void MachineSurvey::run() {
  readProcesses();
  for (const char* path : {"/etc/subuid", "/etc/subgid"})
    readMentions(Kind::SubordinateIds, mentionsInSubIds, at(path));
  readMentions(Kind::Sudoers, mentionsInSudoers, at("/etc/sudoers"));
  readFolder(Kind::Sudoers, mentionsInSudoers, at("/etc/sudoers.d"), "");
  for (const char* folder :
       {"/etc/systemd/system", "/run/systemd/system", "/usr/local/lib/systemd/system",
        "/usr/lib/systemd/system", "/lib/systemd/system", "/run/systemd/generator"})
    readUnits(at(folder));
  readMentions(Kind::Export, mentionsInExports, at("/etc/exports"));
  readFolder(Kind::Export, mentionsInExports, at("/etc/exports.d"), ".exports");
  for (const char* folder : {"/var/spool/cron/atjobs", "/var/spool/at"})
    readSpool(Kind::AtJob, at(folder));
  for (const char* folder : {"/var/spool/cron/crontabs", "/var/spool/cron/tabs", "/var/spool/cron"})
    readSpool(Kind::Crontab, at(folder));
  for (const char* folder : {"/var/mail", "/var/spool/mail"})
    readSpool(Kind::Mail, at(folder));
  for (const char* folder :
       {"/var/lib/docker", "/var/lib/containerd", "/var/lib/containers/storage", "/var/lib/lxc",
        "/var/lib/lxd", "/var/snap/lxd/common/lxd", "/var/lib/incus", "/var/lib/machines",
        "/var/lib/kubelet/pods"})
    readStorage(at(folder));
  for (const std::string& home : machine.homes) {
    for (const char* folder :
         {"/.local/share/containers/storage", "/.local/share/docker", "/.local/share/lxc"})
      readStorage(at(home + folder));
  }
}

}  // namespace

void surveyMachine(const SurveyedMachine& machine, Findings& findings) {
  MachineSurvey(machine, findings).run();
}
