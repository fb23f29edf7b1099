// The table and the JSON of a survey.
#include "survey/survey_output.h"

#include <gtest/gtest.h>

namespace {

Findings sample() {
  Findings findings(2);
  for (const char* name : {"/t/a\nb\\", "/t/\xc3\xa4\xc2\x9b\xff", "/t/c"})
    findings.add({Kind::SetId}, name, "1:2 -> 3:4");
  findings.add({Kind::ChangesOfUser, 7}, "/t/x");
  findings.count({Kind::Changes});
  return findings;
}

}  // namespace

TEST(SurveyOutput, TextShowsCountsTheFirstExamplesAndWhatToDo) {
  EXPECT_EQ(surveyText(Findings(5)), "Nothing was found.\n");
  EXPECT_EQ(surveyText(sample()),
            "Count     Found\n"
            "--------  -----------------------------------------------\n"
            "1         Entries that would change\n"
            "          -> A commit of these directories converts them.\n"
            "1         Entries whose uid changes: 7\n"
            "            /t/x\n"
            "3         Set-id files that change hands\n"
            "            /t/a\\012b\\134 (1:2 -> 3:4)\n"
            "            /t/\xc3\xa4\\302\\233\\377 (1:2 -> 3:4)\n"
            "            ...\n"
            "          -> A change of owner clears these bits unless"
            " idshift.preserve.execution.bits is on.\n");
}

TEST(SurveyOutput, JsonKeepsEveryByte) {
  const std::string json = surveyJson(sample(), {"corp", "h\xff", {"/t", "/\xff\xfe"}});
  const std::string begin =
      "{\n"
      "  \"format\": \"idshift-survey\",\n"
      "  \"version\": 1,\n"
      "  \"domain\": \"corp\",\n"
      "  \"host_bytes\": \"aP8=\",\n"
      "  \"directories\": [\n"
      "    {\n"
      "      \"name\": \"/t\"\n"
      "    },\n"
      "    {\n"
      "      \"name_bytes\": \"L//+\"\n"
      "    }\n"
      "  ],\n";
  EXPECT_EQ(json.substr(0, begin.size()), begin);
  const std::string end =
      "    {\n"
      "      \"kind\": \"set-id\",\n"
      "      \"count\": 3,\n"
      "      \"examples\": [\n"
      "        {\n"
      "          \"name\": \"/t/a\\nb\\\\\",\n"
      "          \"detail\": \"1:2 -> 3:4\"\n"
      "        },\n"
      "        {\n"
      "          \"name_bytes\": \"L3Qvw6TCm/8=\",\n"
      "          \"detail\": \"1:2 -> 3:4\"\n"
      "        }\n"
      "      ],\n"
      "      \"title\": \"Set-id files that change hands\",\n"
      "      \"advice\": \"A change of owner clears these bits unless"
      " idshift.preserve.execution.bits is on.\"\n"
      "    }\n"
      "  ]\n"
      "}\n";
  EXPECT_EQ(json.substr(json.size() - std::min(json.size(), end.size())), end);
}
