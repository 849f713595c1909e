#include "ToolSettings.h"

#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include "OptionNames.h"
#include "StderrLoggerDelegate.h"
#include "velmor/CurlHttpClient.h"
#include "velmor/FileSecretStore.h"
#include "velmor/MemorySecretStore.h"
#include "velmor/SecretServiceStore.h"
#include "velmor/VelmorAuthorizationLogger.h"

namespace velmor::tool {

namespace {

int applyStore(const Invocation& invocation, OutputPrinter& out) {
  const std::optional<std::string> kind = invocation.value(option::kStore);
  const std::optional<std::string> directory = invocation.value(option::kStoreDir);
  if (!kind && !directory) return kExitSuccess;
  if (!kind || *kind == "file") {
    const std::string path = directory.value_or(FileSecretStore::defaultDirectory());
    if (path.empty()) return out.usage("no directory for the file store; give --store-dir");
    // The store takes absolute directories only; a user means one relative
    // to where the tool runs.
    std::error_code error;
    const std::filesystem::path absolute = std::filesystem::absolute(path, error);
    if (error) return out.usage("cannot resolve the directory " + path + ": " + error.message());
    SecretStore::setDefault(std::make_shared<FileSecretStore>(absolute.string()));
  } else if (directory) {
    return out.usage("--store-dir goes with --store file only");
  } else if (*kind == "memory") {
    SecretStore::setDefault(std::make_shared<MemorySecretStore>());
  } else if (*kind == "secret-service") {
    SecretStore::setDefault(std::make_shared<SecretServiceStore>());
  } else {
    return out.usage("--store takes file, secret-service or memory, not '" + *kind + "'");
  }
  return kExitSuccess;
}

// --ca-file, else VELMOR_CA_FILE: a shell that points the tool at a
// development server sets both once.
std::optional<std::string> caFileOf(const Invocation& invocation) {
  if (std::optional<std::string> caFile = invocation.value(option::kCaFile)) return caFile;
  const char* variable = ::getenv("VELMOR_CA_FILE");
  if (variable == nullptr || variable[0] == '\0') return std::nullopt;
  return std::string(variable);
}

int applyCaFile(const Invocation& invocation, OutputPrinter& out) {
  const std::optional<std::string> caFile = caFileOf(invocation);
  if (!caFile) return kExitSuccess;
  if (::access(caFile->c_str(), R_OK) != 0) return out.usage("cannot read the CA file " + *caFile);
  CurlHttpClientOptions options;
  options.extraCaFile = *caFile;
  HttpClient::setDefault(std::make_shared<CurlHttpClient>(options));
  return kExitSuccess;
}

int applyLogLevel(const Invocation& invocation, OutputPrinter& out) {
  const std::optional<std::string> text = invocation.value(option::kLogLevel);
  if (!text) return kExitSuccess;
  const std::optional<std::uint64_t> level = parseUnsigned(*text);
  if (!level || *level > 5) return out.usage("--log-level takes 0 to 5, not '" + *text + "'");
  static StderrLoggerDelegate delegate;
  VelmorAuthorizationLogger& logger = VelmorAuthorizationLogger::sharedLogger();
  logger.setDelegate(&delegate);
  logger.setLogLevel(static_cast<std::int64_t>(*level));
  return kExitSuccess;
}

}  // namespace

int ToolSettings::apply(const Invocation& invocation, OutputPrinter& out) {
  for (auto step : {applyLogLevel, applyStore, applyCaFile}) {
    const int status = step(invocation, out);
    if (status != kExitSuccess) return status;
  }
  return kExitSuccess;
}

}  // namespace velmor::tool
