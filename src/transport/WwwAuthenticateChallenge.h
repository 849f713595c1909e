// One challenge of a resource server's "WWW-Authenticate" refusal: an
// authentication scheme and its attributes.
#ifndef VELMOR_TRANSPORT_WWW_AUTHENTICATE_CHALLENGE_H_
#define VELMOR_TRANSPORT_WWW_AUTHENTICATE_CHALLENGE_H_

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "velmor/Value.h"

namespace velmor {

// Made by WwwAuthenticateHeaderParser and shared through
// std::shared_ptr; a challenge is filled while its header is parsed and only
// read afterwards. Not synchronised: do not change one that other threads
// read.
class WwwAuthenticateChallenge {
 public:
  // No scheme and no attributes.
  WwwAuthenticateChallenge();
  explicit WwwAuthenticateChallenge(std::string scheme);
  virtual ~WwwAuthenticateChallenge();

  // Challenges are told apart by their class, so copies that could slice one
  // are not allowed.
  WwwAuthenticateChallenge(const WwwAuthenticateChallenge&) = delete;
  WwwAuthenticateChallenge& operator=(const WwwAuthenticateChallenge&) = delete;

  // Absent for a challenge made without one (a BearerChallenge).
  const std::optional<std::string>& scheme() const { return scheme_; }
  void setScheme(std::optional<std::string> scheme) { scheme_ = std::move(scheme); }

  // Attribute names as they arrived (case kept) to their text values.
  const Dictionary& attributeNameValuePairs() const { return attributeNameValuePairs_; }
  void setAttributeNameValuePairs(Dictionary attributes) {
    attributeNameValuePairs_ = std::move(attributes);
  }

  // The "realm" attribute; names are matched exactly, so "Realm" is not it.
  std::optional<std::string> realm() const;

 protected:
  // The text under `name`, absent when there is none.
  std::optional<std::string> attribute(std::string_view name) const;

 private:
  std::optional<std::string> scheme_;
  Dictionary attributeNameValuePairs_;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_WWW_AUTHENTICATE_CHALLENGE_H_
