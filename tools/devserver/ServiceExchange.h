// One request to the development server and its reply, without HTTP: the
// server's logic takes and gives these, so tests drive it without sockets.
#ifndef VELMOR_TOOLS_DEVSERVER_SERVICE_EXCHANGE_H_
#define VELMOR_TOOLS_DEVSERVER_SERVICE_EXCHANGE_H_

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velmor::devserver {

struct ServiceRequest {
  std::string method;  // "GET", "POST", ...
  std::string path;    // "/oauth2/v1/tokens/bearer", without the query
  std::string query;   // raw, without "?"
  // The "Authorization" and "Content-Type" fields; empty when absent.
  std::string authorization;
  std::string contentType;
  std::string body;
};

struct ServiceReply {
  int status = 200;
  // "Content-Type" included; names as they are to be sent.
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;

  std::optional<std::string> header(std::string_view name) const {
    for (const auto& [fieldName, value] : headers) {
      if (fieldName == name) return value;
    }
    return std::nullopt;
  }
};

}  // namespace velmor::devserver

#endif  // VELMOR_TOOLS_DEVSERVER_SERVICE_EXCHANGE_H_
