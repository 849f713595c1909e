// One GET of a protected resource with the client's Bearer header, judged
// the way an application would judge it.
#ifndef VELMOR_TOOLS_VELMOR_AUTH_RESOURCE_CALL_H_
#define VELMOR_TOOLS_VELMOR_AUTH_RESOURCE_CALL_H_

#include <memory>
#include <string>

#include "velmor/Error.h"
#include "velmor/HttpUrlResponse.h"
#include "velmor/Url.h"
#include "velmor/Value.h"
#include "velmor/VelmorAuthorizationClient.h"

namespace velmor::tool {

class ResourceCall final {
 public:
  struct Result {
    std::shared_ptr<HttpUrlResponse> response;  // null after a transport failure
    std::string body;
    // Nothing for a 2xx answer. A refusal of the token is the library's
    // reading of it (which also forgets a refused token); any other error
    // status is the server-domain error for that status.
    ErrorRef error;
  };

  ResourceCall() = delete;

  // Sends through HttpClient::defaultClient().
  static Result get(VelmorAuthorizationClient& client, const Url& url, const Dictionary& headers);
};

}  // namespace velmor::tool

#endif  // VELMOR_TOOLS_VELMOR_AUTH_RESOURCE_CALL_H_
