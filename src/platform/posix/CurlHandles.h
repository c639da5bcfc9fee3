#pragma once

#include <curl/curl.h>

#include <memory>

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
  /// Ends the transfer, if there is one. libcurl closes the connection of one that wasn't over.
  void Detach() noexcept { curl_multi_remove_handle(multi_.get(), easy_.get()); }
  /// Gives the next transfer an Easy() of its own, with the options of the one before. False when memory is
  /// short. Between transfers.
  bool Renew() noexcept;

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
  bool PrepareHeaders(bool keep);
  bool PrepareHandles();
  bool PrepareOptions(const HttpSettings& settings, bool keep);

  std::unique_ptr<CURLM, MultiDeleter> multi_;
  std::unique_ptr<curl_slist, ListDeleter> headers_;
  std::unique_ptr<CURL, EasyDeleter> easy_;
  bool fresh_ = true;  // easy_ has served no transfer
};

}  // namespace sarnevo::platform::posix
