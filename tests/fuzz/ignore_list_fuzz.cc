// An ignore list, in a file or in a setting, never yields a name that no account can have been
// meant by, and loses none that stands alone on its line.
#include <algorithm>

#include "services/properties.h"
#include "tests/fuzz/fuzz_input.h"

namespace {

constexpr const char* kBlanks = " \t\r\n\v\f";

void checkListFile(const std::string& text) {
  orvs::Properties properties;
  const InputFile file(text + "\n# the end\nlast\n");
  const orvs::StringListPtr names = properties.getValueList("list", "file:" + file.path());
  require(!names->empty() && names->back() == "last", "the line behind the input is read");
  for (const std::string& name : *names) {
    require(name.find('\n') == std::string::npos, "a name is on one line");
    require(name.find_first_not_of(kBlanks) == 0, "a name begins with its first letter");
    require(name.find_last_not_of(kBlanks) == name.size() - 1, "a name ends with its last letter");
    require(name.front() != '#', "a comment is no name");
  }
}

void checkListText(const std::string& text) {
  orvs::Properties properties;
  properties.set("list", text);
  const std::string separators = std::string(",") + kBlanks;
  size_t letters = 0;
  for (const std::string& name : *properties.getValueList("list", "")) {
    require(!name.empty() && name.find_first_of(separators) == std::string::npos,
            "a name is one word");
    letters += name.size();
  }
  const auto isLetter = [&](char c) { return separators.find(c) == std::string::npos; };
  require(letters == static_cast<size_t>(std::count_if(text.begin(), text.end(), isLetter)),
          "no letter is lost");
}

}  // namespace

void tryInput(const std::string& text) {
  checkListFile(text);
  if (!text.starts_with("file:"))
    checkListText(text);
}
