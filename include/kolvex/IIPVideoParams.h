#pragma once

#include "kolvex/Types.h"

/// Implemented by the host: what StartCapture and ChangeFormat ask about the wanted picture. Each object
/// is read only during the call that hands it in.
namespace sarnevo::ipcapture {

/// Size of a picture in pixels.
class IIPResolution {
 public:
  virtual ~IIPResolution() = default;  ///< slot 0
  virtual u16 GetWidth() = 0;          ///< slot 1
  virtual u16 GetHeight() = 0;         ///< slot 2
};

/// Format of a picture.
class IIPVideoFormat {
 public:
  virtual ~IIPVideoFormat() = default;         ///< slot 0
  virtual void Slot1() {}                      ///< slot 1, not called
  virtual void Slot2() {}                      ///< slot 2, not called
  virtual IIPResolution* GetResolution() = 0;  ///< slot 3
};

/// Pace and quality of a stream.
class IIPVideoRate {
 public:
  virtual ~IIPVideoRate() = default;  ///< slot 0
  /// Milliseconds between frames.
  virtual u16 GetFrameInterval() = 0;  ///< slot 1
  virtual void Slot2() {}              ///< slot 2, not called
  /// Percentage; 100 is the best picture.
  virtual u16 GetQuality() = 0;  ///< slot 3
};

/// Everything about the wanted stream.
class IIPVideoParams {
 public:
  virtual ~IIPVideoParams() = default;      ///< slot 0
  virtual IIPVideoFormat* GetFormat() = 0;  ///< slot 1
  virtual IIPVideoRate* GetRate() = 0;      ///< slot 2
};

}  // namespace sarnevo::ipcapture
