#include "support/Format.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>

namespace velmor {
namespace {

TEST(Format, FillsEachConversionAsThePlatformDoes) {
  struct Case {
    std::string actual;
    const char* expected;
  };
  const std::optional<std::string> absent;
  const Case cases[] = {
      {stringWithFormat("Bearer %@", std::string("abc")), "Bearer abc"},
      {stringWithFormat("Bearer %@", absent), "Bearer (null)"},
      {stringWithFormat("%ld|%lu|%d", std::int64_t{-5}, std::uint64_t{7}, 42), "-5|7|42"},
      {stringWithFormat("%lu", std::int64_t{-1}), "18446744073709551615"},
      {stringWithFormat("%ld", std::numeric_limits<std::uint64_t>::max()), "-1"},
      {stringWithFormat("[0x%0.2X] [%x] [%c]", 7, 0x5c, 'q'), "[0x07] [5c] [q]"},
      {stringWithFormat("Expected '%s' after initial '%.1s'", "true", "tr"),
       "Expected 'true' after initial 't'"},
      {stringWithFormat("%C", u'\u00e9'), "\xC3\xA9"},
      {stringWithFormat("%f seconds", 0.25), "0.250000 seconds"},
      {stringWithFormat("100%% of %@", "it"), "100% of it"},
      {stringWithFormat("0x%lx", std::uintptr_t{0xbeef}), "0xbeef"},
      // A null pointer reads as the platform prints it, whatever the C library says.
      {stringWithFormat("error: '0x%p'", static_cast<const void*>(nullptr)), "error: '0x0x0'"},
      {stringWithFormat("%@", static_cast<const void*>(nullptr)), "0x0"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.expected);
    EXPECT_EQ(c.actual, c.expected);
  }
}

TEST(Format, ShowsObjectsByTheirDescription) {
  Dictionary headers{{"Server", "nginx"}, {"Content-Type", "application/json"}};
  EXPECT_EQ(stringWithFormat("%@", headers),
            "{\n    \"Content-Type\" = \"application/json\";\n    Server = nginx;\n}");
  EXPECT_EQ(stringWithFormat("%@", Url::withString("https://h/x")), "https://h/x");
  Error error("d", 1, Dictionary{{"NSLocalizedDescription", "Described"}});
  EXPECT_EQ(stringWithFormat("<%@>", error),
            "<Error Domain=d Code=1 \"Described\" UserInfo={\n    NSLocalizedDescription = "
            "Described;\n}>");
  EXPECT_EQ(stringWithFormat("<%@>", Error("d", -2)),
            "<Error Domain=d Code=-2 \"The operation couldn’t be completed. (d error -2.)\">");
  ErrorRef noError;
  EXPECT_EQ(stringWithFormat("<%@>", noError), "<(null)>");
}

TEST(Format, ToleratesMismatchedArguments) {
  EXPECT_EQ(stringWithFormat("%@ and %@", "one"), "one and (null)");
  EXPECT_EQ(stringWithFormat("%@", "one", "two"), "one");
  EXPECT_EQ(stringWithFormat("%y stays, %@", "x"), "%y stays, x");
  EXPECT_EQ(stringWithFormat("trailing %"), "trailing %");
  EXPECT_EQ(stringWithFormat("%d", "text"), "0");
}

}  // namespace
}  // namespace velmor
