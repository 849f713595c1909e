// An HttpClient for tests: records every request and answers from a script.
#ifndef VELMOR_TESTING_FAKE_HTTP_CLIENT_H_
#define VELMOR_TESTING_FAKE_HTTP_CLIENT_H_

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "velmor/HttpClient.h"

namespace velmor::test {

// Scripted answers are used in order; once they run out every request gets
// 200 with no header fields and an empty body. Responses carry the request's
// URL. Fault switch: a transport failure in "NSURLErrorDomain" with the
// request's URL under "NSErrorFailingURLKey", optionally with a body that
// arrived all the same. Thread-safe.
class FakeHttpClient final : public HttpClient {
 public:
  struct Answer {
    std::int64_t statusCode = 200;
    HttpUrlResponse::HeaderFields headerFields;
    std::string body;
  };

  HttpResult send(const HttpRequest& request) override {
    std::lock_guard<std::mutex> lock(mutex_);
    requests_.push_back(request);
    HttpResult result;
    if (failureCode_) {
      result.error = std::make_shared<Error>(
          "NSURLErrorDomain", *failureCode_,
          Dictionary{{"NSErrorFailingURLKey", request.url.absoluteString()}});
      if (failureBody_) result.body = Data(failureBody_->begin(), failureBody_->end());
      return result;
    }
    Answer answer;
    if (!script_.empty()) {
      answer = std::move(script_.front());
      script_.pop_front();
    }
    result.response =
        std::make_shared<HttpUrlResponse>(request.url, answer.statusCode, answer.headerFields);
    result.body = Data(answer.body.begin(), answer.body.end());
    return result;
  }

  void enqueue(Answer answer) {
    std::lock_guard<std::mutex> lock(mutex_);
    script_.push_back(std::move(answer));
  }
  // Every send fails with `code` until cleared with nothing.
  void setTransportFailure(std::optional<std::int64_t> code,
                           std::optional<std::string> body = std::nullopt) {
    std::lock_guard<std::mutex> lock(mutex_);
    failureCode_ = code;
    failureBody_ = std::move(body);
  }
  std::vector<HttpRequest> requests() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
  }

 private:
  mutable std::mutex mutex_;
  std::deque<Answer> script_;
  std::vector<HttpRequest> requests_;
  std::optional<std::int64_t> failureCode_;
  std::optional<std::string> failureBody_;
};

}  // namespace velmor::test

#endif  // VELMOR_TESTING_FAKE_HTTP_CLIENT_H_
