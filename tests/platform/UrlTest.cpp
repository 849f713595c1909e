#include "velmor/Url.h"

#include <gtest/gtest.h>

namespace velmor {
namespace {

TEST(Url, ParsesAbsoluteUrlsIntoParts) {
  auto url = Url::withString("https://Auth.Example.com:8443/base/path?a=1&b=%20#frag");
  ASSERT_TRUE(url);
  EXPECT_EQ(url->absoluteString(), "https://Auth.Example.com:8443/base/path?a=1&b=%20#frag");
  EXPECT_EQ(url->scheme(), "https");
  EXPECT_EQ(url->host(), "Auth.Example.com");
  EXPECT_EQ(url->port(), "8443");
  EXPECT_EQ(url->path(), "/base/path");
  EXPECT_EQ(url->query(), "a=1&b=%20");
  EXPECT_EQ(url->fragment(), "frag");

  auto bare = Url::withString("http://h");
  ASSERT_TRUE(bare);
  EXPECT_EQ(bare->path(), "");
  EXPECT_EQ(bare->query(), std::nullopt);
  EXPECT_EQ(Url::withString("http://h/?")->query(), "");
}

TEST(Url, AcceptsCustomAndOpaqueSchemes) {
  auto custom = Url::withString("com.example.app://callback?code=x");
  ASSERT_TRUE(custom);
  EXPECT_EQ(custom->scheme(), "com.example.app");
  EXPECT_EQ(custom->host(), "callback");
  EXPECT_EQ(custom->query(), "code=x");

  auto opaque = Url::withString("urn:ietf:wg:oauth:2.0:oob?x=1");
  ASSERT_TRUE(opaque);
  EXPECT_EQ(opaque->scheme(), "urn");
  EXPECT_EQ(opaque->host(), std::nullopt);
  EXPECT_EQ(opaque->path(), "ietf:wg:oauth:2.0:oob");
  EXPECT_EQ(opaque->query(), "x=1");
}

TEST(Url, RefusesTextThatIsNotAUrl) {
  const char* cases[] = {"",
                         "no scheme",
                         "/relative/path",
                         "https://h/a b",
                         "https://h/\x01",
                         "https://h/caf\xC3\xA9",
                         "1http://h",
                         "https://[bad"};
  for (const char* text : cases) {
    SCOPED_TRACE(text);
    EXPECT_FALSE(Url::withString(text));
  }
}

TEST(Url, ResolvesRelativeReferences) {
  struct Case {
    const char* base;
    const char* relative;
    const char* expected;
  };
  const Case cases[] = {
      {"https://h/api/", "oauth2/v1/clients", "https://h/api/oauth2/v1/clients"},
      {"https://h/api", "oauth2/v1/clients", "https://h/oauth2/v1/clients"},
      {"https://h/a/b/c", "../d", "https://h/a/d"},
      {"https://h/a/b", "/root", "https://h/root"},
      {"https://h/a/b", "?q=1", "https://h/a/b?q=1"},
      {"https://h:444/a/", "x?y=z", "https://h:444/a/x?y=z"},
      {"https://h/a/", "http://other/x", "http://other/x"},
      {"https://h/a/", "", "https://h/a/"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.base) + " + " + c.relative);
    auto base = Url::withString(c.base);
    ASSERT_TRUE(base);
    auto resolved = Url::withString(c.relative, *base);
    ASSERT_TRUE(resolved);
    EXPECT_EQ(resolved->absoluteString(), c.expected);
  }
}

TEST(Url, ResolutionDropsTheBasesFragment) {
  const Url base = *Url::withString("https://h/app/#/a/b");
  struct Case {
    const char* relative;
    const char* expected;
  };
  const Case cases[] = {
      {"oauth2/v1/clients", "https://h/app/oauth2/v1/clients"},
      {"?q=1", "https://h/app/?q=1"},
      {"", "https://h/app/"},
      {"c#d", "https://h/app/c#d"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.relative);
    EXPECT_EQ(Url::withString(c.relative, base)->absoluteString(), c.expected);
  }
}

}  // namespace
}  // namespace velmor
