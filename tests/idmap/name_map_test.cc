#include "idmap/name_map.h"

#include <gtest/gtest.h>

TEST(NameMapFile, WhatCannotBeReadIsNotLoaded) {
  NameMap map;
  EXPECT_EQ(LoadNameMap(nullptr, map), 0);
  for (const char* path : {"/missing", "/", ""})
    EXPECT_EQ(LoadNameMap(path, map), 6) << path;
  EXPECT_TRUE(map.empty());
}
