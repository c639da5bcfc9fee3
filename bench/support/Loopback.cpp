#include "support/Loopback.h"

#include <ifaddrs.h>
#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace kolvex_bench {

namespace {

// One request to the loopback device; see linux/ethtool.h.
bool Ask(int socket, void* request) {
  ifreq device{};
  std::strcpy(device.ifr_name, "lo");
  device.ifr_data = static_cast<char*>(request);
  return ioctl(socket, SIOCETHTOOL, &device) == 0;
}

// Names of all features that the system knows; empty when it doesn't say.
std::vector<std::string> Features(int socket) {
  constexpr unsigned kMost = 256;
  std::vector<char> room(sizeof(ethtool_gstrings) + kMost * ETH_GSTRING_LEN);
  auto* const names = reinterpret_cast<ethtool_gstrings*>(room.data());
  names->cmd = ETHTOOL_GSTRINGS;
  names->string_set = ETH_SS_FEATURES;
  std::vector<std::string> features;
  if (!Ask(socket, names)) {
    return features;
  }
  for (unsigned i = 0; i < std::min(names->len, kMost); ++i) {
    const auto* const name = reinterpret_cast<const char*>(names->data) + i * ETH_GSTRING_LEN;
    features.emplace_back(name, strnlen(name, ETH_GSTRING_LEN));
  }
  return features;
}

// In a network namespace made for a run only the loopback has addresses.
bool IsOwnNamespace() {
  ifaddrs* addresses = nullptr;
  if (getifaddrs(&addresses) != 0) {
    return false;
  }
  bool own = true;
  for (const ifaddrs* at = addresses; at != nullptr; at = at->ifa_next) {
    own = own && (std::strcmp(at->ifa_name, "lo") == 0 || at->ifa_addr == nullptr ||
                  (at->ifa_addr->sa_family != AF_INET && at->ifa_addr->sa_family != AF_INET6));
  }
  freeifaddrs(addresses);
  return own;
}

}  // namespace

bool CutEarly(bool on) {
  if (!IsOwnNamespace()) {
    return false;
  }
  const int asking = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const std::vector<std::string> features = Features(asking);
  const auto found = std::find(features.begin(), features.end(), "tx-udp-segmentation");
  bool done = false;
  if (found != features.end()) {
    const auto index = static_cast<std::size_t>(found - features.begin());
    const unsigned bit = 1U << index % 32;
    const std::size_t blocks = (features.size() + 31) / 32;
    std::vector<char> room(sizeof(ethtool_sfeatures) + blocks * sizeof(ethtool_set_features_block));
    auto* const wanted = reinterpret_cast<ethtool_sfeatures*>(room.data());
    wanted->cmd = ETHTOOL_SFEATURES;
    wanted->size = static_cast<unsigned>(blocks);
    wanted->features[index / 32] = {bit, on ? 0 : bit};
    done = Ask(asking, wanted);
  }
  close(asking);
  return done;
}

}  // namespace kolvex_bench
