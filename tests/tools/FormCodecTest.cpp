#include "devserver/FormCodec.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace velmor::devserver {
namespace {

using Fields = std::vector<FormFields::Field>;

TEST(FormCodecTest, ParsesFormsAndQueries) {
  const struct {
    const char* text;
    std::optional<Fields> expected;
  } cases[] = {
      {"", Fields{}},
      {"a=1&b=2", Fields{{"a", "1"}, {"b", "2"}}},
      {"scope=profile+email", Fields{{"scope", "profile email"}}},
      {"x=a%20b%2Bc%26d%3De", Fields{{"x", "a b+c&d=e"}}},
      {"flag&&x=", Fields{{"flag", ""}, {"x", ""}}},
      {"a=b=c", Fields{{"a", "b=c"}}},
      {"n%C3%A4me=%E2%9C%93", Fields{{"n\xC3\xA4me", "\xE2\x9C\x93"}}},
      {"a=%2", std::nullopt},
      {"a=%zz", std::nullopt},
      {"a=%", std::nullopt},
      {"a=%C3", std::nullopt},        // truncated UTF-8
      {"a=%C0%AF", std::nullopt},     // overlong "/"
      {"a=%ED%A0%80", std::nullopt},  // a surrogate
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    std::optional<FormFields> parsed = FormCodec::parse(c.text);
    ASSERT_EQ(parsed.has_value(), c.expected.has_value());
    if (parsed) {
      EXPECT_EQ(parsed->fields(), *c.expected);
    }
  }
}

TEST(FormCodecTest, EncodesAllButUnreservedCharacters) {
  EXPECT_EQ(FormCodec::encode("aZ09-._~ /?#&=+%'\xC3\xA4"),
            "aZ09-._~%20%2F%3F%23%26%3D%2B%25%27%C3%A4");
  const FormFields fields({{"redirect_uri", "http://127.0.0.1:1/cb?x=1"}, {"state", "s t"}});
  EXPECT_EQ(FormCodec::encodeFields(fields),
            "redirect_uri=http%3A%2F%2F127.0.0.1%3A1%2Fcb%3Fx%3D1&state=s%20t");
  EXPECT_EQ(FormCodec::parse(FormCodec::encodeFields(fields))->fields(), fields.fields());
}

}  // namespace
}  // namespace velmor::devserver
