#include "Demo.h"

#include <memory>
#include <string>

#include "json/xSBJsonParser.h"
#include "storage/Base64.h"
#include "storage/CryptoUtility.h"
#include "velmor/ServerErrorResponse.h"
#include "velmor/VelmorAuthorizationError.h"
#include "velmor/VelmorAuthorizationLibraryVersion.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor::tool {

namespace {

// Shows the library's own log lines, indented, while the demo runs.
class PrintingLoggerDelegate final : public VelmorAuthorizationLoggerDelegate {
 public:
  explicit PrintingLoggerDelegate(std::FILE* out) : out_(out) {}
  void velmorAuthorizationLoggerLog(VelmorAuthorizationLogger&, const std::string& message,
                                    std::int64_t) override {
    std::fprintf(out_, "  log: %s\n", message.c_str());
  }

 private:
  std::FILE* out_;
};

constexpr char kTokenResponse[] =
    R"({"access_token":"demo-access-token","token_type":"Bearer","expires_in":3600,)"
    R"("refresh_token":"demo-refresh-token","x_refresh_token_expires_in":1209600,)"
    R"("scope":"profile email"})";

void showErrors(std::FILE* out) {
  std::fprintf(out, "\nErrors the library reports:\n");
  auto body = std::make_shared<ServerErrorResponse>(Dictionary{
      {"error", "invalid_grant"},
      {"error_description", "Too many attempts"},
      {"x_error_reason", "account_lockout"},
      {"x_error_reason_detail", "5400"},
  });
  VelmorAuthorizationError serverError(body, 4, std::nullopt);
  std::fprintf(out, "  %s\n", serverError.description().value_or("").c_str());
  if (serverError.isAccountLockoutError()) {
    auto lockout = VelmorAuthorizationError::accountLockoutError(serverError);
    std::fprintf(out, "  %s\n", lockout->description().value_or("").c_str());
  }
  VelmorAuthorizationError network(NetworkCommunicationErrorDomain, 3, std::nullopt);
  std::fprintf(out, "  %s\n", network.description().value_or("").c_str());
}

void showJson(std::FILE* out) {
  std::fprintf(out, "\nA token response, parsed:\n");
  xSBJsonParser parser;
  std::optional<Value> parsed = parser.objectWithString(kTokenResponse);
  if (parsed) {
    Dictionary shown = *parsed->dictionaryValue();
    // Tokens are secrets: show that they are there, not what they are.
    for (const char* key : {"access_token", "refresh_token"}) {
      if (shown.contains(key)) shown.set(key, "***");
    }
    std::fprintf(out, "%s\n", Value(shown).description().c_str());
  }
  const char* broken = R"({"expires_in": 01})";
  if (!parser.objectWithString(broken)) {
    std::fprintf(out, "  %s -> %s\n", broken, parser.error().value_or("").c_str());
  }
}

int showKeyDerivation(std::FILE* out) {
  std::fprintf(out, "\nKey derivation (PBKDF2-HMAC-SHA-256, calibrated to 300 ms here):\n");
  std::uint32_t rounds = 0;
  Data salt = CryptoUtility::randomSalt();
  Data key = CryptoUtility::generateAesKeyForPassword("demo passcode", salt, 0, &rounds);
  std::fprintf(out, "  %u rounds, %zu-byte key\n", rounds, key.size());

  std::optional<Data> iv;
  ErrorRef error;
  Data plaintext{'h', 'e', 'l', 'l', 'o'};
  std::optional<Data> sealed = CryptoUtility::encryptData(plaintext, key, &iv, &error);
  std::optional<Data> opened =
      sealed && iv ? CryptoUtility::decryptData(*sealed, key, *iv, &error) : std::nullopt;
  if (!opened || *opened != plaintext) {
    std::fprintf(out, "  AES round trip failed: %s\n",
                 error ? error->description().value_or("").c_str() : "");
    return 1;
  }
  Data mac = CryptoUtility::calculateHmacWithKey(key, *sealed);
  std::fprintf(out, "  AES-256-CBC: %zu bytes sealed to %zu, HMAC-SHA-256 %s...\n",
               plaintext.size(), sealed->size(),
               Base64::encodeBase64WithData(mac).value_or("").substr(0, 12).c_str());
  return 0;
}

}  // namespace

int runDemo(std::FILE* out) {
  std::fprintf(out, "Velmor Authorization %s\n",
               VelmorAuthorizationLibraryVersion::version().c_str());
  PrintingLoggerDelegate delegate(out);
  VelmorAuthorizationLogger& logger = VelmorAuthorizationLogger::sharedLogger();
  logger.setDelegate(&delegate);
  logger.setLogLevel(VelmorAuthorizationLogger::kLevelInfo);

  showErrors(out);
  showJson(out);
  int status = showKeyDerivation(out);

  logger.setDelegate(nullptr);
  return status;
}

}  // namespace velmor::tool
