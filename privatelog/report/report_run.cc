// Lines come from the log; the ids for further names of an inode come from the change table. The
// rows go through one buffer to one stream.

#include "privatelog/report/report_run.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "privatelog/log_header.h"
#include "privatelog/recorded_entry.h"
#include "privatelog/report/report_rows.h"
#include "privatelog/report/report_target.h"
#include "services/interrupt.h"
#include "services/paths.h"
#include "services/say.h"

namespace {

constexpr size_t kPieceSize = size_t{64} << 10;

orvs::LoggerPtr logger() {
  return getLogger("cli.idshift", false);
}

struct CloseStream {
  void operator()(FILE* stream) const {
    if (stream != stdout)
      fclose(stream);
  }
};
using ReportStream = std::unique_ptr<FILE, CloseStream>;

void refuseOwnFile(const char* path) {
  SAY(logger(), 1, "private_log", Echo::Stderr,
      "Error: not allowed to overwrite private log file %s", path);
}

// Opens the report file and prints its messages. Null on failure.
ReportStream openOutput(const std::string& fileName) {
  if (fileName == "-")
    return ReportStream(stdout);
  struct stat status = {};
  if (stat(paths::kPrivateLog, &status) != 0) {
    SAY(logger(), 1, "private_log", Echo::Stderr, "Error: cannot stat: %s: %s", paths::kPrivateLog,
        strerror(errno));
    return nullptr;
  }
  const std::vector<OwnFile> files = ownFiles();
  if (stat(fileName.c_str(), &status) == 0) {
    for (const OwnFile& file : files) {
      if (idOf(status) == file.id) {
        refuseOwnFile(file.path);
        return nullptr;
      }
    }
    SAY(logger(), 1, "private_log", Echo::Stderr,
        "Warning: report file %s already exists - overwriting", fileName.c_str());
  }
  ReportTarget target = openReportTarget(fileName, files);
  if (target.ownPath != nullptr) {
    refuseOwnFile(target.ownPath);
    return nullptr;
  }
  FILE* stream = target.file ? fdopen(target.file.get(), "w") : nullptr;
  if (stream == nullptr) {
    SAY(logger(), 1, "private_log", Echo::Stderr, "Error: cannot open report file: %s",
        fileName.c_str());
    return nullptr;
  }
  target.file.release();  // the stream owns it now
  return ReportStream(stream);
}

bool isWhole(OwnerIds ids) {
  return ids.uid != 0 && ids.gid != 0;
}

class ReportRun {
 public:
  // `itsName` is the name of the output in messages.
  ReportRun(LoadedLog& itsLog, FILE* itsOutput, const std::string& itsName, bool itsJson)
      : loaded(itsLog), output(itsOutput), outputName(itsName), asJson(itsJson) {}

  // Writes the whole report. False when a signal ended it, or a failure, which is reported.
  bool write(LogScan& scan, std::string_view domain);

 private:
  void append(const ScannedLine& line);
  void appendSection(std::string_view dateText);
  void appendChange(OwnerIds oldIds, OwnerIds newIds, std::string_view path);
  void appendAcls(LogScan& scan);
  void appendLink(const ScannedLine& link);
  void appendIncomplete(const ScannedLine& line);
  bool flush();

  LoadedLog& loaded;
  FILE* output;
  const std::string& outputName;
  const bool asJson;
  JsonRows json;
  std::string out;  // rows not yet written
  size_t passedAttributes = 0;
  IndexReader records;  // opened for the first ACL row
};

void ReportRun::append(const ScannedLine& line) {
  switch (line.type) {
    case LineType::Ignored:
      return;
    case LineType::Date:
      return appendSection(line.text.substr(1));
    case LineType::Link:
      return appendLink(line);
    case LineType::Change:
    case LineType::FollowedChange:
      return appendChange(line.record.oldIds, line.record.newIds, line.record.path);
    case LineType::IncompleteChange:
      return appendIncomplete(line);
    case LineType::PasswdUpdate:
      return asJson ? json.appendPasswdUpdate(out, line.text)
                    : appendPasswdUpdateRow(out, line.text);
    case LineType::GroupUpdate:
      return asJson ? json.appendGroupUpdate(out, line.text) : appendGroupUpdateRow(out, line.text);
  }
}

void ReportRun::appendSection(std::string_view dateText) {
  if (asJson)
    json.beginSection(dateText);
  else
    appendSectionHeading(out, dateText);
}

void ReportRun::appendChange(OwnerIds oldIds, OwnerIds newIds, std::string_view path) {
  if (asJson)
    json.appendChange(out, oldIds, newIds, path);
  else
    appendChangeRow(out, oldIds, newIds, path);
}

// Appends the ACLs of a section behind its other rows, so that programs that read those rows do not
// meet ACL rows among them.
void ReportRun::appendAcls(LogScan& scan) {
  for (; passedAttributes < scan.attributes().size(); ++passedAttributes) {
    const LoggedAttribute& logged = scan.attributes()[passedAttributes];
    const bool isAcl = logged.record.what != AttributeKind::Capability;
    const uint8_t state = logged.record.flags & (kAttributeDone | kAttributeUndone);
    if (!isAcl || state != kAttributeDone ||
        (!records.isOpen() && records.open(paths::kPrivateLogIndex) != IndexReader::Opened::Yes))
      continue;
    const auto change = readAttributeChange(records, logged.position);
    if (!change)
      continue;
    const AclRow row = {change->what == AttributeKind::DefaultAcl, change->path,
                        changesOfAcl(change->former, change->converted)};
    if (asJson)
      json.appendAcl(out, row);
    else
      appendAclRow(out, row);
  }
}

// Required: an id 0 counts as missing, so a link to a file of root's shows four zeros.
void ReportRun::appendLink(const ScannedLine& link) {
  LoggedChange shown;
  loaded.table.any(loaded.keyOf(link), [&shown](const LoggedChange& known) {
    const bool isShown = isWhole(known.oldIds) && isWhole(known.newIds);
    if (isShown)
      shown = known;
    return isShown;
  });
  appendChange(shown.oldIds, shown.newIds, link.record.path);
}

void ReportRun::appendIncomplete(const ScannedLine& line) {
  if (checkPartialDone(line.record) && loaded.table.count(loaded.keyOf(line)) == 1)
    appendChange(line.record.oldIds, {}, line.record.path);
}

bool ReportRun::flush() {
  if (fwrite(out.data(), 1, out.size(), output) == out.size() && fflush(output) == 0) {
    out.clear();
    return true;
  }
  SAY(logger(), 1, "private_log", Echo::Stderr, "Error: cannot write report file: %s: %s",
      outputName.c_str(), strerror(errno));
  return false;
}

bool ReportRun::write(LogScan& scan, std::string_view domain) {
  if (!asJson)
    appendReportTitle(out, domain);
  while (const ScannedLine* line = scan.next()) {
    if (interrupt::pending() != 0)
      return false;
    if (line->type == LineType::Date)
      appendAcls(scan);
    append(*line);
    if (out.size() >= kPieceSize && !flush())
      return false;
  }
  appendAcls(scan);
  if (scan.error() != 0)
    SAY(logger(), 1, "private_log", Echo::Stderr, "Error: cannot read private log file %s: %s",
        paths::kPrivateLog, strerror(scan.error()));
  return flush() && scan.error() == 0;
}

}  // namespace

bool writeReport(const std::string& fileName, LoadedLog& loaded, bool hardened, bool asJson) {
  LogScan scan;
  if (scan.open(hardened) != LogScan::Opened::Yes) {
    SAY(logger(), 1, "private_log", Echo::Stderr,
        "Error: you must do a commit operation before generating a report");
    return false;
  }
  const ReportStream output = openOutput(fileName);
  std::string domain;
  if (!output || !getHeader(scan.text(), domain))
    return false;
  return ReportRun(loaded, output.get(), fileName, asJson).write(scan, domain);
}
