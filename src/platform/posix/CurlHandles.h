#pragma once

#include <curl/curl.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/HttpTransfer.h"

namespace sarnevo::platform::posix {

/// What libcurl needs for transfers one after the other: some 30 KB, a pair of descriptors for the wake-up,
/// and, when connections are kept, the last one of them. Set up to be a plain client that leaves the process
/// alone. One thread at a time; Multi() may be woken from others.
///
/// What was set for one request stays for the next, so that one that asks for the same again, as a poll does,
/// sets nothing.
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

  /// Where everything of the next transfers goes. Outlives them; null in between.
  void SetSink(HttpSink* sink) noexcept { sink_ = sink; }
  /// What the next transfer requests. False when memory is short.
  bool SetMethod(std::string_view method);
  /// @param withCredentials  those of @p request, which are the same for all requests over these handles
  bool SetTarget(const HttpUrl& url, const HttpRequestLine& request, bool withCredentials);
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

  using List = std::unique_ptr<curl_slist, ListDeleter>;

  explicit CurlHandles(bool keep) noexcept : keep_(keep) {}
  bool PrepareHeaders(const HttpSettings& settings);
  bool PrepareHandles();
  bool PrepareOptions(const HttpSettings& settings);
  bool SetCredentials(const HttpRequestLine& request, bool withCredentials);
  static std::size_t OnHeader(const char* data, std::size_t size, std::size_t count, void* handles) noexcept;
  static std::size_t OnBody(const char* data, std::size_t size, std::size_t count, void* handles) noexcept;

  const bool keep_;
  HttpSink* sink_ = nullptr;
  // What easy_ is set to; nothing: unknown.
  std::optional<std::string> method_;
  std::optional<HttpUrl> url_;
  std::optional<bool> withCredentials_;

  std::unique_ptr<CURLM, MultiDeleter> multi_;
  List headers_;  // of every request
  // The credentials' line, in front of those. A header of ours, since libcurl would make copies of user name
  // and password that nobody wipes.
  std::string credentials_;
  curl_slist credentialsHeader_{};
  std::unique_ptr<CURL, EasyDeleter> easy_;
  bool fresh_ = true;  // easy_ has served no transfer
};

}  // namespace sarnevo::platform::posix
