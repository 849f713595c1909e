#include "support/ParamValidator.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>

#include "velmor/Exception.h"

namespace velmor {
namespace {

// Runs `check` and returns "<name>: <reason>" of what it threw, or "" when it passed.
template <typename F>
std::string outcome(F check) {
  try {
    check();
    return "";
  } catch (const Exception& e) {
    return e.name() + ": " + e.reason();
  }
}

TEST(ParamValidator, RejectsAbsentValues) {
  const std::string expected = "NSInvalidArgumentException: username must not be nil";
  EXPECT_EQ(outcome([] { ParamValidator::checkIsNotNil(std::optional<int>(), "username"); }),
            expected);
  EXPECT_EQ(outcome([] { ParamValidator::checkIsNotNil(std::shared_ptr<int>(), "username"); }),
            expected);
  EXPECT_EQ(outcome([] { ParamValidator::checkIsNotNil(std::function<void()>(), "username"); }),
            expected);
  EXPECT_EQ(outcome([] { ParamValidator::checkIsNotNilPointer(nullptr, "username"); }), expected);
  int present = 0;
  EXPECT_EQ(outcome([&] { ParamValidator::checkIsNotNilPointer(&present, "minLength"); }), "");
}

TEST(ParamValidator, RequiresANonWhitespaceCharacter) {
  struct Case {
    std::optional<std::string> text;
    std::string expectedName;  // "" when it passes
  };
  const Case cases[] = {
      {"alice", ""},
      {"  bob", ""},
      {"\n", ""},  // a line break is not whitespace here
      {"", "NSRangeException"},
      {"   ", "NSRangeException"},
      {"\t\xE3\x80\x80", "NSRangeException"},  // tab and ideographic space
      {std::nullopt, "NSInvalidArgumentException"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text.value_or("(absent)"));
    std::string result =
        outcome([&] { ParamValidator::checkIsNotNilOrWhitespaceOnlyString(c.text, "x"); });
    EXPECT_EQ(result.substr(0, result.find(':')), c.expectedName);
  }
}

TEST(ParamValidator, RefusesAnyWhitespace) {
  struct Case {
    std::optional<std::string> text;
    const char* expected;
  };
  const Case cases[] = {
      {"ab", ""},
      {"", ""},
      {"a\nb", ""},
      {"a b", "NSInvalidArgumentException: x must not contain any whitespace characters"},
      {"a\xC2\xA0", "NSInvalidArgumentException: x must not contain any whitespace characters"},
      {std::nullopt, "NSInvalidArgumentException: x must not be nil"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text.value_or("(absent)"));
    EXPECT_EQ(outcome([&] { ParamValidator::checkIsNotNilOrContainWhitespace(c.text, "x"); }),
              c.expected);
  }
}

TEST(ParamValidator, ComparesSigned64BitValues) {
  EXPECT_EQ(outcome([] { ParamValidator::checkIsGreaterThan(0, -1, "x"); }), "");
  EXPECT_EQ(outcome([] { ParamValidator::checkIsGreaterThan(-1, -1, "x"); }),
            "NSRangeException: Value of x, -1, is not greater than -1");
  // An unsigned override of 2^63 or more reads as negative and is refused.
  std::uint64_t huge = std::uint64_t{1} << 63;
  EXPECT_EQ(outcome([&] {
              ParamValidator::checkIsGreaterThan(static_cast<std::int64_t>(huge), -1,
                                                 "accessTokenExpirationOverride");
            }),
            "NSRangeException: Value of accessTokenExpirationOverride, -9223372036854775808, is "
            "not greater than -1");
}

}  // namespace
}  // namespace velmor
