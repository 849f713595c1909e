#include "support/LogSecret.h"

#include <gtest/gtest.h>

#include "testing/RecordingLoggerDelegate.h"

namespace velmor {
namespace {

using Kind = LogSecret::Kind;

TEST(LogSecret, StarsEachKindUnlessShownInClear) {
  const std::optional<std::string> password = "hunter2", noText;
  const std::optional<Data> key = Data{0xa0, 1, 2, 3, 4}, noKey;
  const std::optional<Url> redirect = Url::withString("app:/cb?code=c1"), noUrl;
  const Value object(Dictionary{{"k", "v"}});
  const struct {
    const char* what;
    LogSecret secret;
    std::optional<std::string> starred, clear;
  } cases[] = {
      {"key", LogSecret(Kind::kEncryptionKey, key), "***", "<a0010203 04>"},
      {"no key", LogSecret(Kind::kEncryptionKey, noKey), "", std::nullopt},
      {"password", LogSecret(Kind::kPassword, password), "***", "hunter2"},
      {"no password", LogSecret(Kind::kPassword, noText), "", std::nullopt},
      {"passcode", LogSecret(Kind::kPasscode, password), "***", "hunter2"},
      {"no passcode", LogSecret(Kind::kPasscode, noText), "***", std::nullopt},
      {"code", LogSecret(Kind::kAuthorizationCode, password), "**...**", "hunter2"},
      {"redirect URL", LogSecret(Kind::kRedirectUrl, redirect), "**...**", "app:/cb?code=c1"},
      {"no redirect URL", LogSecret(Kind::kRedirectUrl, noUrl), "", std::nullopt},
      {"token", LogSecret(Kind::kToken, password), "***", "hunter2"},
      {"object", LogSecret(Kind::kApplicationObject, object), "<redacted>", "{\n    k = v;\n}"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(c.secret.text(false), c.starred);
    EXPECT_EQ(c.secret.text(true), c.clear);
  }
}

TEST(LogSecret, IsShownInClearOnlyWhileTheSensitiveLevelIsLoggable) {
  for (const std::int64_t level : {0, 1, 3, 4, 5, 6}) {
    SCOPED_TRACE(level);
    test::ScopedLogger scoped(level, nullptr);
    EXPECT_EQ(LogSecret::shownInClear(), level >= 5);
  }
}

}  // namespace
}  // namespace velmor
