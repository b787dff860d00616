#include "util/truthy.h"

#include <gtest/gtest.h>

#include <vector>

namespace wren {
namespace {

TEST(TruthyTest, Table) {
  struct Case {
    Json value;
    bool want;
  };
  const std::vector<Case> cases = {
      {"true", true},   {"1", true},       {"01", true},     {"YES", true},   {"yes", true},
      {" +0012", true}, {"\t-7", true},    {"T", true},      {"y", true},     {"9", true},
      {"false", false}, {"0", false},      {"", false},      {"no", false},   {"000", false},
      {"  ", false},    {"+", false},      {"-0", false},    {"0x1", false},  {"a1", false},
      {" 0 1", false},  {"++1", false},
      {0, false},       {1, true},         {-2.5, true},     {0.0, false},    {0.25, true},
      {18446744073709551615ull, true},
      {true, true},     {false, false},    {nullptr, false},
      {Json::array({1}), false},           {Json::object({{"a", 1}}), false},
  };
  for (const auto& c : cases) EXPECT_EQ(truthy(c.value), c.want) << c.value.dump();
}

TEST(TruthyTest, Key) {
  Json dict = {{"on", "1"}, {"off", 0}, {"yes", true}};
  EXPECT_TRUE(truthyKey(dict, "on"));
  EXPECT_TRUE(truthyKey(dict, "yes"));
  EXPECT_FALSE(truthyKey(dict, "off"));
  EXPECT_FALSE(truthyKey(dict, "absent"));
  EXPECT_FALSE(truthyKey(Json::array({"on"}), "on"));
  EXPECT_FALSE(truthyKey(Json("on"), "on"));
}

}  // namespace
}  // namespace wren
