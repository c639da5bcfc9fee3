#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

#include "platform/HttpTransport.h"

namespace sarnevo::platform::posix {

/// Sets a handle's options one by one and remembers whether all were taken.
class CurlOptions {
 public:
  explicit CurlOptions(CURL* easy) noexcept : easy_(easy) {}

  template <typename Value>
  void Set(CURLoption option, Value value) noexcept {
    good_ = good_ && curl_easy_setopt(easy_, option, value) == CURLE_OK;
  }
  bool Good() const noexcept { return good_; }

 private:
  CURL* const easy_;
  bool good_ = true;
};

/// What libcurl needs for transfers one after the other: some 50 KB, a pair of descriptors for the wake-up,
/// and, when connections are kept, the last one of them. Set up to be a plain client that leaves the process
/// alone. One thread at a time; Multi() may be woken from others.
class CurlHandles {
 public:
  /// Null when memory or descriptors are short.
  /// @param keep  requests let the server keep the connection, and the next one goes over it if it did
  static std::unique_ptr<CurlHandles> Make(const HttpSettings& settings, bool keep);
  /// Closes every connection.
  ~CurlHandles();
  CurlHandles(const CurlHandles&) = delete;
  CurlHandles& operator=(const CurlHandles&) = delete;

  CURL* Easy() const noexcept { return easy_.get(); }
  CURLM* Multi() const noexcept { return multi_.get(); }
  /// Basic credentials for the transfer that comes next. False when memory is short.
  bool Authorize(const char* userName, const char* password);
  /// Ends the transfer, if there is one, and forgets its credentials. libcurl closes the connection of one that
  /// wasn't over.
  void Detach() noexcept;

 private:
  struct EasyDeleter {
    void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
  };
  struct MultiDeleter {
    void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
  };
  struct ListDeleter {
    void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
  };

  CurlHandles() = default;
  bool PrepareHeaders(const HttpSettings& settings, bool keep);
  bool PrepareHandles();
  bool PrepareOptions(const HttpSettings& settings, bool keep);

  std::unique_ptr<CURLM, MultiDeleter> multi_;
  std::unique_ptr<curl_slist, ListDeleter> headers_;  // of every request
  // The credentials' line, in front of those. A header of ours, since libcurl would make copies of user name
  // and password that nobody wipes.
  std::string credentials_;
  curl_slist credentialsHeader_{};
  std::unique_ptr<CURL, EasyDeleter> easy_;
};

}  // namespace sarnevo::platform::posix
