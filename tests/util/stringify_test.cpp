#include "util/stringify.h"

#include <gtest/gtest.h>

#include <vector>

#include "util/logging.h"

namespace wren {
namespace {

TEST(ToStringTest, Forms) {
  struct Case {
    Json in;
    std::string out;
  };
  const std::vector<Case> cases = {
      {Json{{"k", "x y"}}, R"({"k":"xy"})"},  // blanks inside texts go too
      {Json{{"b", 1}, {"a", Json{{"n", nullptr}, {"t", true}}}}, R"({"b":1,"a":{"n":null,"t":true}})"},
      {Json::object(), "{}"},
      {Json{{"s", "line\nbreak"}}, R"({"s":"line\nbreak"})"},  // the escape, not a break
      {Json::array({1, 2, 3}), "1,2,3"},
      {Json::array({"a b", Json{{"k", "v"}}, Json::array({4, 5})}), R"(a b,{"k":"v"},4,5)"},
      {Json::array(), ""},
      {Json("plain text"), "plain text"},
      {Json(2.5), "2.5"},
      {Json(false), "false"},
      {Json(nullptr), "null"},
  };
  for (const auto& c : cases) EXPECT_EQ(toString(c.in), c.out) << c.in.dump();
}

TEST(DescriptionTest, PropertyListShape) {
  struct Case {
    Json in;
    std::string out;
  };
  const std::vector<Case> cases = {
      {Json::object(), "{\n}"},
      {Json::array(), "(\n)"},
      {Json{{"result", 1}, {"code", 0}}, "{\n    code = 0;\n    result = 1;\n}"},  // sorted by key
      {Json{{"msg", "two words"}, {"ok", true}, {"no", false}, {"nil", nullptr}, {"f", 2.5}, {"w", 3.0}},
       "{\n    f = 2.5;\n    msg = \"two words\";\n    nil = <null>;\n    no = 0;\n    ok = 1;\n    w = 3;\n}"},
      {Json{{"q", "say \"hi\" \\ bye"}, {"e", ""}, {"id_9", "Abc_09"}},
       "{\n    e = \"\";\n    id_9 = Abc_09;\n    q = \"say \\\"hi\\\" \\\\ bye\";\n}"},
      {Json{{"a-b", "x.y"}}, "{\n    \"a-b\" = \"x.y\";\n}"},
      {Json{{"list", Json::array({1, "x", Json{{"k", "v"}}})}, {"sub", Json{{"n", 1}}}},
       "{\n"
       "    list = (\n"
       "        1,\n"
       "        x,\n"
       "        {\n"
       "            k = v;\n"
       "        }\n"
       "    );\n"
       "    sub = {\n"
       "        n = 1;\n"
       "    };\n"
       "}"},
      {Json("just text"), "just text"},
      {Json(7), "7"},
  };
  for (const auto& c : cases) EXPECT_EQ(description(c.in), c.out) << c.in.dump();
}

TEST(DictToJsonStrTest, ContainersOnly) {
  EXPECT_EQ(dictToJsonStr(Json::object()), "{}");
  EXPECT_EQ(dictToJsonStr(Json{{"a", 1}}), "{\n    \"a\": 1\n}");
  EXPECT_EQ(dictToJsonStr(Json::array({1})), "[\n    1\n]");
  EXPECT_EQ(dictToJsonStr(Json("text")), std::nullopt);
  EXPECT_EQ(dictToJsonStr(Json(1)), std::nullopt);
  EXPECT_EQ(dictToJsonStr(Json(nullptr)), std::nullopt);
}

TEST(DictToJsonStrTest, UnserialisableTextLogsAndGivesNothing) {
  std::vector<std::string> lines;
  setLogSink([&](std::string_view line) { lines.emplace_back(line); });
  EXPECT_EQ(dictToJsonStr(Json{{"k", "\xFF"}}), std::nullopt);
  setLogSink(nullptr);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rfind("Error:", 0), 0u);
  // The log forms never fail on such text.
  EXPECT_FALSE(toString(Json{{"k", "\xFF"}}).empty());
}

}  // namespace
}  // namespace wren
