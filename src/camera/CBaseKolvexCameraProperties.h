#pragma once

#include <atomic>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "camera/CCameraProperties.h"
#include "http/HttpRequest.h"
#include "kolvex/IIPCapabilities.h"

namespace sarnevo {

/// Fills the record from a camera of one group and publishes it to the host.
///
/// Belongs to the query's thread while that runs; only Abort comes from others.
class CBaseKolvexCameraProperties : public CCameraProperties {
 public:
  /// A numbered setting with its texts.
  struct Setting {
    u32 index;
    const char* name;
    const char* value;
    u32 attributeA;
  };
  /// What a group publishes in addition to the record.
  struct GroupValues {
    const char* group;  ///< text of setting 2
    /// Shortest interval of every size, milliseconds; nothing: the shortest of its own list.
    std::optional<u32> shortestInterval;
    std::span<const u32> frameIntervals;  ///< milliseconds
    std::span<const Setting> settings;    ///< after the three that all groups have
  };

  // Compression formats.
  static constexpr u32 kFormat2 = 2;
  static constexpr u32 kFormat4 = 4;

  virtual ~CBaseKolvexCameraProperties() = default;

  /// Reads the camera. On failure @p level may become a QueryFailure. May throw bad_alloc.
  /// @param request     host and credentials are set
  /// @param properties  the record to fill: this object's own
  virtual bool ReadProperties(Web::HttpRequest* request, CCameraProperties* properties, u32* level) = 0;
  /// Writes the record into the host's object. False when an argument is missing.
  virtual bool PublishCapabilities(ipcapture::IIPCapabilities* capabilities, u32 isNTSC,
                                   Web::HttpRequest* request) = 0;
  /// Asks a read in progress to end. It doesn't shorten a request, which its time-outs bound; an owner that can't wait
  /// for these aborts the request itself.
  virtual void Abort();

 protected:
  bool Publish(ipcapture::IIPCapabilities* capabilities, u32 isNTSC, Web::HttpRequest* request,
               const GroupValues& values);

  /// Asks for @p path and collects the reply. False, with its reason in @p level, when the camera refuses, and when
  /// nothing at all came of the body before the connection broke. May throw bad_alloc.
  static bool Fetch(Web::HttpRequest& request, const char* path, std::vector<u8>& reply, u32& level);
  /// What ExtractCgiValue finds, up to 1023 bytes of it.
  static std::optional<std::string> ValueIn(std::string_view reply, std::string_view key, char stop);

 private:
  // Written by Abort, on the host's thread; nothing reads it.
  std::atomic<u8> aborted_{0};
};

}  // namespace sarnevo
