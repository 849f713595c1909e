// The peer the HTTP benchmarks compare with: a POST through bare libcurl,
// set up as a careful application would (HTTP/1.1, a CA file and no CA
// directory, which would switch libcurl's CA cache off, no "Expect:").
#ifndef VELMOR_BENCH_BARE_CURL_POST_H_
#define VELMOR_BENCH_BARE_CURL_POST_H_

#include <curl/curl.h>

#include <string>
#include <utility>
#include <vector>

namespace velmor {

// One easy handle, kept between posts so that its connection is reused.
class BareCurlPost final {
 public:
  // `fields` are whole header lines ("Name: value").
  BareCurlPost(std::string url, const std::string& caFile, const std::vector<std::string>& fields,
               std::string body, std::string expectedAnswer)
      : handle_(curl_easy_init()),
        url_(std::move(url)),
        body_(std::move(body)),
        expectedAnswer_(std::move(expectedAnswer)) {
    for (const std::string& field : fields) fields_ = curl_slist_append(fields_, field.c_str());
    fields_ = curl_slist_append(fields_, "Expect:");
    curl_easy_setopt(handle_, CURLOPT_URL, url_.c_str());
    curl_easy_setopt(handle_, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle_, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    curl_easy_setopt(handle_, CURLOPT_CAINFO, caFile.c_str());
    curl_easy_setopt(handle_, CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    curl_easy_setopt(handle_, CURLOPT_HTTPHEADER, fields_);
    curl_easy_setopt(handle_, CURLOPT_POSTFIELDS, body_.c_str());
    curl_easy_setopt(handle_, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body_.size()));
    curl_easy_setopt(handle_, CURLOPT_WRITEFUNCTION, &BareCurlPost::append);
    curl_easy_setopt(handle_, CURLOPT_WRITEDATA, &answer_);
  }
  ~BareCurlPost() {
    curl_easy_cleanup(handle_);
    curl_slist_free_all(fields_);
  }
  BareCurlPost(const BareCurlPost&) = delete;
  BareCurlPost& operator=(const BareCurlPost&) = delete;

  // True when the server answered 200 with the expected body.
  bool post() {
    answer_.clear();
    long status = 0;
    return curl_easy_perform(handle_) == CURLE_OK &&
           curl_easy_getinfo(handle_, CURLINFO_RESPONSE_CODE, &status) == CURLE_OK &&
           status == 200 && answer_ == expectedAnswer_;
  }

 private:
  static std::size_t append(char* data, std::size_t size, std::size_t count, void* answer) {
    static_cast<std::string*>(answer)->append(data, size * count);
    return size * count;
  }

  CURL* handle_;
  curl_slist* fields_ = nullptr;
  std::string url_;
  std::string body_;
  std::string expectedAnswer_;
  std::string answer_;
};

}  // namespace velmor

#endif  // VELMOR_BENCH_BARE_CURL_POST_H_
