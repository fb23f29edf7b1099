#include "zonagent/nss_module.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/sandbox.h"

namespace {

using namespace zonagent;  // NOLINT(google-build-using-namespace): the subject of every line here

namespace wire = orvs::wire;

std::string show(const Answer& answer) {
  switch (answer.verdict) {
    case Verdict::NotFound:
      return "not found";
    case Verdict::Unavailable:
      return "unavailable";
    case Verdict::Found:
      break;
  }
  return answer.record.name + ":" + std::to_string(answer.record.id.value()) + ":" +
         std::to_string(answer.record.gid);
}

std::string ask(NssModule& module, wire::Kind kind, const std::string& name) {
  return show(module.find({kind, name, std::nullopt}));
}

std::string openRefusal(const std::string& name) {
  try {
    const NssModule module(name, "");
  } catch (const AgentError& error) {
    return error.what();
  }
  return "accepted";
}

}  // namespace

TEST(NssModule, WhatBecomesOfEachStatus) {
  NssModule module("toy", "");
  const struct {
    const char* name;
    const char* user;
    const char* group;
  } rows[] = {
      {"ayla", "ayla:70001:70000", "ayla:70000:0"},
      {"AYLA", "ayla:70001:70000", "ayla:70000:0"},
      {"big", "big:70001:70000", "big:70000:0"},  // takes the largest buffer
      {"endless", "unavailable", "unavailable"},
      {"notfound", "not found", "not found"},
      {"unavail", "unavailable", "unavailable"},
      {"tryagain", "unavailable", "unavailable"},
      {"return", "unavailable", "unavailable"},
      {"latin1", "unavailable", "unavailable"},
      {"control", "unavailable", "unavailable"},
      {"nameless", "unavailable", "unavailable"},
      {"minusone", "unavailable", "minusone:70000:0"},
      {"minusgid", "unavailable", "minusgid:70000:0"},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(ask(module, wire::Kind::User, row.name), row.user) << row.name;
    EXPECT_EQ(ask(module, wire::Kind::Group, row.name), row.group) << row.name;
  }
  const struct {
    uint32_t id;
    const char* user;
    const char* group;
  } idRows[] = {{70001, "ayla:70001:70000", "not found"},
                {70000, "not found", "staff_z:70000:0"},
                {0, "not found", "not found"},  // answered with the first record
                {70003, "unavailable", "unavailable"}};
  for (const auto& row : idRows) {
    EXPECT_EQ(show(module.find({wire::Kind::User, {}, row.id})), row.user) << row.id;
    EXPECT_EQ(show(module.find({wire::Kind::Group, {}, row.id})), row.group) << row.id;
  }
}

TEST(NssModule, RefusesNamesThatCouldLeadElsewhere) {
  for (const char* name :
       {"", "../toy", "toy.so", "TOY", "a-b", "x23456789012345678901234567890123"})
    EXPECT_EQ(openRefusal(name), "\"" + std::string(name) + "\" is no name of an NSS module");
  EXPECT_TRUE(
      openRefusal("toy_of_nobody").starts_with("cannot load the NSS module: libnss_toy_of"));
  EXPECT_EQ(openRefusal("toy"), "accepted");
}

// A module whose directory is down says "not found" for what it has not cached.
TEST(NssModule, NotFoundWhileTheOnlineCheckFailsIsUnavailable) {
  const struct {
    const char* command;
    const char* expected;
  } rows[] = {{"true", "not found"},
              {"false", "unavailable"},
              {" test  -d /", "not found"},
              {"true ; false", "not found"},  // no shell looks at it
              {"/nowhere/check", "unavailable"},
              {"sleep 600", "unavailable"}};
  for (const auto& row : rows) {
    NssModule module("toy", row.command);
    EXPECT_EQ(ask(module, wire::Kind::User, "notfound"), row.expected) << row.command;
    EXPECT_EQ(ask(module, wire::Kind::User, "ayla"), "ayla:70001:70000") << row.command;
  }
}

class OnlineCheckTest : public SandboxTest {};

TEST_F(OnlineCheckTest, OnlyANoIsRememberedForAWhile) {
  OnlineCheck check("test -e /tmp/online");
  EXPECT_EQ(check.ask(), Online::No);
  writeFile("/tmp/online", "");
  EXPECT_EQ(check.ask(), Online::No);
  check.forget();
  EXPECT_EQ(check.ask(), Online::Yes);
  EXPECT_EQ(unlink("/tmp/online"), 0);
  EXPECT_EQ(check.ask(), Online::No);
  writeFile("/tmp/online", "");
  sleep(4);
  EXPECT_EQ(check.ask(), Online::Yes);
}
