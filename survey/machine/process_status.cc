#include "survey/machine/process_status.h"

#include "survey/machine/id_mention.h"

ProcessStatus parseProcessStatus(std::string_view text) {
  ProcessStatus status;
  for (const TextLine& line : linesOfText(text, false)) {
    const std::string_view whole = line.text;
    const size_t colon = whole.find(':');
    if (colon == whole.npos)
      continue;
    const std::string_view key = whole.substr(0, colon);
    const std::string_view value = whole.substr(colon + 1);
    if (key == "Name")
      status.name = withoutBlanks(value);
    if (key != "Uid" && key != "Gid" && key != "Groups")
      continue;
    for (const std::string_view word : wordsOfText(value)) {
      if (const auto id = parseId(word))
        (key == "Uid" ? status.uids : status.gids).push_back(*id);
    }
  }
  return status;
}
