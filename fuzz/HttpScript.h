#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <netinet/in.h>
#include <sys/types.h>

#include "FuzzTarget.h"

namespace kolvex_fuzz {

/// Stands in for every server while it lives, for the thread that made it: whatever that thread connects to over
/// TCP is the other end of a socket pair, and each request that it sends is answered with the next reply. The
/// client library is the real one and doesn't know; no server thread and no TCP make it slow.
///
/// Works through connect, send and getaddrinfo, which this program defines in front of the C library's; without a
/// script they pass everything on.
class HttpScript {
 public:
  struct Request {
    std::uint32_t address = 0;  ///< host byte order
    std::uint16_t port = 0;
    std::string text;  ///< as it was sent
  };

  /// @param replies    in order; after the last the servers close without a word
  /// @param keepsOpen  a server doesn't close after its reply
  HttpScript(std::vector<Bytes> replies, bool keepsOpen);
  ~HttpScript();
  HttpScript(const HttpScript&) = delete;
  HttpScript& operator=(const HttpScript&) = delete;

  /// Whole ones, in order.
  const std::vector<Request>& Requests() const { return requests_; }
  std::size_t RepliesUsed() const { return used_; }

  // For the three functions.
  static HttpScript* Current();
  int Connect(int descriptor, const sockaddr_in& to);
  bool Takes(int descriptor, Bytes sent);

 private:
  // A connection: who holds the other end of ours, known by its node since numbers come again.
  struct Link {
    int ours = -1;
    ino_t theirs = 0;
    Request request;
  };

  const std::vector<Bytes> replies_;
  const bool keepsOpen_;
  std::size_t used_ = 0;
  std::vector<Link> links_;
  std::vector<Request> requests_;
};

/// Cuts an input at each line that holds nothing but "~~~".
std::vector<Bytes> SplitReplies(Bytes input);

}  // namespace kolvex_fuzz
