// The findings as text for people and as JSON for programs. Values in, text out.
//
// Text: a row with the count and the title for each kind, the examples and the advice below it.
// Bytes that would spoil a line are shown as backslash and three octal digits. JSON: an object with
// the rows in "findings"; a name that is no UTF-8 stands as "name_bytes", in base64.
#pragma once

#include <string>
#include <vector>

#include "survey/findings.h"

// What the survey was about.
struct SurveySubject {
  std::string domain;
  std::string host;
  std::vector<std::string> directories;  // as walked
};

std::string surveyText(const Findings& findings);
std::string surveyJson(const Findings& findings, const SurveySubject& subject);
