#pragma once

#include <cstddef>

#include "kolvex/Types.h"

namespace sarnevo {

/// How long one kind of request to a camera may take. A camera that answers byte by byte never runs into a time-out. So
/// an owner that has to come to an end also needs a limit for the whole request.
struct RequestPolicy {
  u32 timeout;  ///< milliseconds, for the connect, for sending and for each receive; kDeviceTimeout: the device's own
  u32 limit;   ///< milliseconds, for the whole request; kNoLimit: none
  bool keeps;  ///< the connection, for the next request
};

constexpr u32 kDeviceTimeout = 0;
constexpr u32 kNoLimit = 0;

/// All kinds of request.
namespace request_policy {

// Far above what a slow camera needs; the host hears through OnNoData of one that needs more.
constexpr RequestPolicy kConfiguration = {kDeviceTimeout, 300'000, false};
// Each of the two that run on the host's thread. The query's thread goes on with the same object and time-out, but
// without the limit: Uninit ends that thread after 10 s, and its request with it.
constexpr RequestPolicy kDetection = {5'000, 30'000, false};
constexpr RequestPolicy kOutput = {kDeviceTimeout, 300'000, false};
// The only ones that come again and again.
constexpr RequestPolicy kInputs = {kDeviceTimeout, 300'000, true};
// Commands and stored positions, for each request. A movement after focus and iris by hand takes up to three, and a stop
// command waits for them.
constexpr RequestPolicy kPtz = {5'000, 15'000, false};

}  // namespace request_policy

/// Bytes of a reply's body, far above anything a camera has to say. A longer one is a broken reply.
constexpr std::size_t kMostReplyBytes = 1'000'000;
/// Bytes of a reply with properties; what follows isn't looked at.
constexpr std::size_t kMostPropertyBytes = 65'534;
/// Bytes of one read.
constexpr u32 kReadBlockBytes = 8096;

}  // namespace sarnevo
