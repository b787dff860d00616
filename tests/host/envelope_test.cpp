// parseEnvelope over frame payloads: each case is named after the payload it
// feeds, and says why the frame is dropped or what it is taken for.
#include "host/envelope.h"

#include <gtest/gtest.h>

#include <string>

#include "util/json_parse.h"

namespace wren {
namespace {

struct EnvelopeCase {
  const char* name;
  std::string payload;
  std::string dropped;  // a part of the reason, or empty when the frame is taken
  size_t kind = 0;      // the Incoming alternative it is taken for
};

const EnvelopeCase kCases[] = {
    {"NotJson", "{\"type\":", "not JSON"},
    {"NestedTooDeep", std::string(kMaxJsonDepth + 1, '[') + std::string(kMaxJsonDepth + 1, ']'), "nests deeper"},
    {"NotAnObject", "[\"message\"]", "not a JSON object"},
    {"NoType", "{}", "without a text \"type\""},
    {"TypeNotText", R"({"type":1})", "without a text \"type\""},
    {"UnknownType", R"({"type":"launch"})", "unknown frame type \"launch\""},
    {"MessageNameNotText", R"({"type":"message","name":7,"page":1})", "without a text \"name\""},
    {"MessageWithoutPage", R"({"type":"message","name":"rateItems"})", "without \"page\""},
    {"UserInfoNotObject", R"({"type":"message","name":"n","page":1,"userInfo":[1]})", "not an object"},
    {"ResultIdText", R"({"type":"result","id":"3"})", "without an integer \"id\""},
    {"ResultIdFraction", R"({"type":"result","id":3.5})", "without an integer \"id\""},
    {"HookNameNotText", R"({"type":"hook","name":null})", "hook without a text \"name\""},
    {"UnknownHook", R"({"type":"hook","name":"quit"})", "unknown hook \"quit\""},
    {"PopoverEventNotText", R"({"type":"popover","event":1})", "without a text \"event\""},
    {"UnknownPopoverEvent", R"({"type":"popover","event":"drag"})", "unknown popover event"},
    {"AppearanceNeitherLightNorDark", R"({"type":"popover","event":"viewWillAppear","appearance":"blue"})",
     "\"appearance\" other than"},
    {"ClickWithoutControl", R"({"type":"popover","event":"click"})", "without a text \"control\""},
    {"Message", R"({"type":"message","name":"rateItems","page":{"tab":1},"userInfo":{"urls":[]}})", "", 0},
    {"ResultWithoutValue", R"({"type":"result","id":9})", "", 1},
    {"Hook", R"({"type":"hook","name":"validateToolbarItem","window":3})", "", 2},
    {"PopoverView", R"({"type":"popover","event":"viewDidAppear","appearance":"dark"})", "", 3},
    {"PopoverClick", R"({"type":"popover","event":"click","control":"btnHelp"})", "", 3},
};

class EnvelopeTest : public ::testing::TestWithParam<EnvelopeCase> {};

TEST_P(EnvelopeTest, DropsWithTheReasonOrTakesTheFrame) {
  const EnvelopeCase& c = GetParam();
  ParsedEnvelope parsed = parseEnvelope(c.payload);
  if (!c.dropped.empty()) {
    EXPECT_FALSE(parsed.value.has_value());
    EXPECT_NE(parsed.error.find(c.dropped), std::string::npos) << parsed.error;
  } else {
    ASSERT_TRUE(parsed.value.has_value()) << parsed.error;
    EXPECT_EQ(parsed.value->index(), c.kind);
  }
}

INSTANTIATE_TEST_SUITE_P(Payloads, EnvelopeTest, ::testing::ValuesIn(kCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace wren
