// The findings as text for people and as JSON for programs. Pure.
//
// Text: each kind has a row with the count and the title, and below it the examples and the advice.
// A byte that would spoil a line is shown as a backslash and three octal digits. JSON: an object
// with the rows in "findings". A name that is not UTF-8 stands as "name_bytes", in base64.
#pragma once

#include <string>
#include <vector>

#include "survey/findings.h"

// The domain, the machine and the trees of the survey.
struct SurveySubject {
  std::string domain;
  std::string host;
  std::vector<std::string> directories;  // as walked
};

std::string surveyText(const Findings& findings);
std::string surveyJson(const Findings& findings, const SurveySubject& subject);
