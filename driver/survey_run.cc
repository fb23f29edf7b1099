#include "driver/survey_run.h"

#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>

#include "driver/exit_status.h"
#include "driver/top_dirs.h"
#include "idmap/id_maps.h"
#include "services/interrupt.h"
#include "services/properties.h"
#include "services/setting_keys.h"
#include "survey/machine/machine_survey.h"
#include "survey/machine/place_files.h"
#include "survey/mount_survey.h"
#include "survey/survey_output.h"
#include "survey/tree/tree_survey.h"

namespace {

constexpr size_t kExamples = 5;

// The options of the walk. --verbose asks a survey for all examples, so the walk must not list its
// files.
CommandOptions walkOptions(CommandOptions options) {
  options.pretend = false;
  options.verbose = false;
  return options;
}

LocalIds localIds(orvs::PasswdDB& passwdDB, orvs::GroupDB& groupDB) {
  LocalIds ids;
  for (const orvs::DBPasswd* user : passwdDB.getEntries())
    ids.uids.insert(user->uid);
  for (const orvs::DBGroup* group : groupDB.getEntries())
    ids.gids.insert(group->gid);
  return ids;
}

std::vector<std::string> homesOfMovers(orvs::PasswdDB& passwdDB) {
  std::vector<std::string> homes;
  for (const orvs::DBPasswd* user : passwdDB.getEntries()) {
    if (uidMap.contains(user->uid) && user->dir.starts_with('/'))
      homes.push_back(user->dir);
  }
  return homes;
}

std::string hostName() {
  std::array<char, 256> name = {};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "";
}

void print(const Findings& findings, const TreeSurvey& tree, bool asJson) {
  const std::string text =
      asJson ? surveyJson(findings, {orvs::loadSetting(orvs::SETTING_DOMAIN_NAME, false, false),
                                     hostName(), tree.trees()})
             : surveyText(findings);
  fwrite(text.data(), 1, text.size(), stdout);
}

}  // namespace

// The order matters in two places. The zone is asked after the walk. By then the walk has collected
// all ids without a local account, and each is asked about once. The mounts come after the walk,
// because the walk makes the names of the trees absolute.
int runSurvey(const orvs::LoggerPtr& logger,
              const CommandOptions& options,
              orvs::PasswdDB& passwdDB,
              orvs::GroupDB& groupDB) {
  const size_t examples = options.verbose ? SIZE_MAX : kExamples;
  Findings findings(examples);
  TreeSurvey tree(localIds(passwdDB, groupDB), options.follow, examples, findings);
  const int status = walkTopDirs(logger, walkOptions(options), &tree);
  tree.askZone();
  if (interrupt::pending() != 0)
    return kExitSuccess;

  const auto takeMounts = [&](const std::string&, const std::string& table) {
    surveyMounts(table, tree.trees(), !options.xdev, findings);
  };
  if (!readPlace("/proc/self/mountinfo", takeMounts))
    findings.add({Kind::NotRead}, "/proc/self/mountinfo");
  surveyMachine({"", uidMap, gidMap, tree.trees(), homesOfMovers(passwdDB)}, findings);
  print(findings, tree, options.json);
  return status;
}
