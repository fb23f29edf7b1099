#include "survey/survey_output.h"

#include <cstdio>

#include "services/text.h"

#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json;

// Whether a UTF-8 sequence is a control character. U+0080 to U+009F are such, too.
bool isControl(std::string_view sequence) {
  const auto byte = [sequence](size_t i) { return static_cast<unsigned char>(sequence[i]); };
  return byte(0) < 0x20 || byte(0) == 0x7F ||
         (sequence.size() == 2 && byte(0) == 0xC2 && byte(1) < 0xA0);
}

void appendOctal(std::string& text, std::string_view bytes) {
  for (const char c : bytes) {
    char shown[5];
    snprintf(shown, sizeof shown, "\\%03o", static_cast<unsigned>(static_cast<unsigned char>(c)));
    text += shown;
  }
}

// The bytes as text for a terminal, on one line. A backslash is written in octal too, so the bytes
// can be told from the text.
std::string printable(std::string_view bytes) {
  std::string text;
  while (!bytes.empty()) {
    const size_t length = utf8SequenceLength(bytes);
    const std::string_view sequence = bytes.substr(0, length == 0 ? 1 : length);
    if (length == 0 || isControl(sequence) || sequence == "\\")
      appendOctal(text, sequence);
    else
      text += sequence;
    bytes.remove_prefix(sequence.size());
  }
  return text;
}

std::string titleOf(const FindingKey& key) {
  std::string title(wordsOf(key.kind).title);
  if (key.id)
    title += ": " + std::to_string(*key.id);
  return title;
}

void appendRow(std::string& text, const FindingKey& key, const Finding& finding) {
  char count[24];
  snprintf(count, sizeof count, "%-10llu", static_cast<unsigned long long>(finding.count));
  text += count + titleOf(key) + '\n';
  constexpr const char* kIndent = "            ";
  for (const Example& example : finding.examples) {
    text += kIndent + printable(example.name);
    text += example.detail.empty() ? "\n" : " (" + example.detail + ")\n";
  }
  if (!finding.examples.empty() && finding.count > finding.examples.size())
    text += std::string(kIndent) + "...\n";
  const std::string_view advice = wordsOf(key.kind).advice;
  if (!advice.empty())
    text += "          -> " + std::string(advice) + '\n';
}

void putBytes(Json& object, const std::string& key, const std::string& bytes) {
  if (isUtf8(bytes))
    object[key] = bytes;
  else
    object[key + "_bytes"] = base64(bytes);
}

Json rowOf(const FindingKey& key, const Finding& finding) {
  Json row = {{"kind", wordsOf(key.kind).key}};
  if (key.id)
    row["id"] = *key.id;
  row["count"] = finding.count;
  row["examples"] = Json::array();
  for (const Example& example : finding.examples) {
    Json shown = Json::object();
    putBytes(shown, "name", example.name);
    if (!example.detail.empty())
      shown["detail"] = example.detail;
    row["examples"].push_back(std::move(shown));
  }
  row["title"] = wordsOf(key.kind).title;
  row["advice"] = wordsOf(key.kind).advice;
  return row;
}

}  // namespace

std::string surveyText(const Findings& findings) {
  if (findings.all().empty())
    return "Nothing was found.\n";
  std::string text = "Count     Found\n--------  -----------------------------------------------\n";
  for (const auto& [key, finding] : findings.all())
    appendRow(text, key, finding);
  return text;
}

std::string surveyJson(const Findings& findings, const SurveySubject& subject) {
  Json document = {{"format", "idshift-survey"}, {"version", 1}};
  putBytes(document, "domain", subject.domain);
  putBytes(document, "host", subject.host);
  document["directories"] = Json::array();
  for (const std::string& directory : subject.directories) {
    Json named = Json::object();
    putBytes(named, "name", directory);
    document["directories"].push_back(std::move(named));
  }
  document["findings"] = Json::array();
  for (const auto& [key, finding] : findings.all())
    document["findings"].push_back(rowOf(key, finding));
  return document.dump(2) + '\n';
}
