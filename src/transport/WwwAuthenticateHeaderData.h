// What a "WWW-Authenticate" header says: its challenges in header order.
#ifndef VELMOR_TRANSPORT_WWW_AUTHENTICATE_HEADER_DATA_H_
#define VELMOR_TRANSPORT_WWW_AUTHENTICATE_HEADER_DATA_H_

#include <memory>
#include <vector>

#include "transport/WwwAuthenticateChallenge.h"

namespace velmor {

// Shares its challenges with whoever reads them. Filled by the parser, then
// only read; not synchronised.
class WwwAuthenticateHeaderData final {
 public:
  using ChallengeList = std::vector<std::shared_ptr<WwwAuthenticateChallenge>>;

  // No challenges.
  WwwAuthenticateHeaderData() = default;

  const ChallengeList& challenges() const { return challenges_; }
  void addChallenge(std::shared_ptr<WwwAuthenticateChallenge> challenge) {
    challenges_.push_back(std::move(challenge));
  }

 private:
  ChallengeList challenges_;
};

}  // namespace velmor

#endif  // VELMOR_TRANSPORT_WWW_AUTHENTICATE_HEADER_DATA_H_
