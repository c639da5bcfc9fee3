#pragma once

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace simcam_test {

/// GET with the cameras' default credentials, or with that Authorization value. The whole reply, as bytes.
inline std::string Get(const std::string& address, const std::string& target,
                       const std::string& authorization = "Basic YWRtaW46a29sdmV4") {
  const int wire = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(80);
  inet_pton(AF_INET, address.c_str(), &peer.sin_addr);
  std::string reply;
  if (connect(wire, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0) {
    const std::string request = "GET " + target + " HTTP/1.1\r\nHost: camera\r\nConnection: close\r\n" +
                                (authorization.empty() ? "" : "Authorization: " + authorization + "\r\n") +
                                "\r\n";
    send(wire, request.data(), request.size(), MSG_NOSIGNAL);
    char buffer[4096];
    for (ssize_t got = 0; (got = recv(wire, buffer, sizeof buffer, 0)) > 0;) {
      reply.append(buffer, static_cast<std::size_t>(got));
    }
  }
  close(wire);
  return reply;
}

inline std::string BodyOf(const std::string& reply) {
  const std::size_t blank = reply.find("\r\n\r\n");
  return blank == std::string::npos ? "" : reply.substr(blank + 4);
}

}  // namespace simcam_test
