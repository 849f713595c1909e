#include "support/LogSecret.h"

#include <type_traits>

#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor {

namespace {

// What stands in a secret's place, and whether an absent one is starred too
// (a passcode store's "no passcode" says as little as a passcode).
struct Stars {
  const char* text;
  bool evenWhenAbsent;
};

Stars starsFor(LogSecret::Kind kind) {
  switch (kind) {
    case LogSecret::Kind::kAuthorizationCode:
    case LogSecret::Kind::kCodeVerifier:
    case LogSecret::Kind::kRedirectUrl:
      return {"**...**", false};
    case LogSecret::Kind::kPasscode:
      return {"***", true};
    case LogSecret::Kind::kApplicationObject:
      return {"<redacted>", true};
    case LogSecret::Kind::kEncryptionKey:
    case LogSecret::Kind::kPassword:
    case LogSecret::Kind::kToken:
      break;
  }
  return {"***", false};
}

}  // namespace

bool LogSecret::shownInClear() {
  return VelmorAuthorizationLogger::sharedLogger().isLoggable(
      VelmorAuthorizationLogger::kLevelSensitive);
}

std::optional<std::string> LogSecret::text(bool inClear) const {
  if (inClear) return clearText();
  const Stars stars = starsFor(kind_);
  return std::string(stars.evenWhenAbsent || isPresent() ? stars.text : "");
}

std::optional<std::string> LogSecret::clearText() const {
  struct Render {
    std::optional<std::string> operator()(const std::string* text) const { return *text; }
    std::optional<std::string> operator()(const std::optional<std::string>* text) const {
      return *text;
    }
    std::optional<std::string> operator()(const std::optional<Data>* bytes) const {
      if (!*bytes) return std::nullopt;
      return Value(**bytes).description();
    }
    std::optional<std::string> operator()(const std::optional<Url>* url) const {
      if (!*url) return std::nullopt;
      return (*url)->absoluteString();
    }
    std::optional<std::string> operator()(const Value* object) const {
      return object->description();
    }
  };
  return std::visit(Render{}, value_);
}

bool LogSecret::isPresent() const {
  return std::visit(
      [](const auto* value) {
        using Held = decltype(value);
        if constexpr (std::is_same_v<Held, const Value*> ||
                      std::is_same_v<Held, const std::string*>) {
          return true;
        } else {
          return value->has_value();
        }
      },
      value_);
}

}  // namespace velmor
