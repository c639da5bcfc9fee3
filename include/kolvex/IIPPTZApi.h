#pragma once

#include "kolvex/Types.h"

namespace sarnevo {

/// Where StartMove moves the camera.
enum PtzDirection : u32 {
  PtzLeft = 0,
  PtzRight = 1,
  PtzUp = 2,
  PtzDown = 3,
  PtzLeftUp = 4,
  PtzRightUp = 5,
  PtzLeftDown = 6,
  PtzRightDown = 7,
  PtzZoomIn = 8,
  PtzZoomOut = 9,
};

/// What the operations of IIPPTZApi give.
enum PtzStatus : i32 {
  PtzDone = 1,              ///< done; for a movement: queued for the camera
  PtzNotQueued = -1,        ///< the movement couldn't be queued
  PtzInvalidArgument = -3,  ///< speed, name or buffer
  PtzAddFailed = -18,       ///< camera or file refused the new position
  PtzNoPreposition = -23,   ///< no such position, or the camera refused
  PtzLimitReached = -26,    ///< the camera stores no more positions
};

/// Filled by IIPPTZApi::GetCapabilities; the host allocates it.
struct CPtzCapabilities {
  static constexpr u32 kWords = 14;
  static constexpr u32 kPrepositionLimit = 7;  ///< word with the most positions that the camera stores, plus 1
  static constexpr u32 kPrepositionCount = 8;  ///< word with the number of positions at the moment

  /// Word 0 stays as the host set it. Words 1 to 5 become 1, word 6 and words 9 to 13 become 0.
  u32 words[kWords];
};
static_assert(sizeof(CPtzCapabilities) == 56, "14 words of 32 bits");

/// Pan, tilt, zoom, focus, iris and stored positions of one channel. Taken from IIPPTZDriver::GetPTZApi;
/// belongs to the driver and is void from Close on.
///
/// Any thread may call. Movements and lens operations are queued and return at once: PtzDone says that the
/// order stands in the queue, not that the camera carried it out. The operations on stored positions talk
/// to the camera on the calling thread and can block for the time of a request (5 seconds for the
/// connection and for each wait); they don't wait for queued movements.
///
/// A movement goes on until StopMove: nothing ends it on its own, least of all Close.
///
/// Names are UTF-8, zero-terminated.
class IIPPTZApi {
 public:
  virtual ~IIPPTZApi() = default;  // slot 0
  /// Not 0 when the camera's serial port has a PTZ protocol. Asks the camera until it has answered with one.
  virtual u32 IsPTZAvailable() = 0;  // slot 1
  /// @param direction  a PtzDirection.
  /// @param speed      1 to 16; 0 does nothing, not even a stop; others give PtzInvalidArgument.
  virtual i32 StartMove(u32 direction, i32 speed) = 0;  // slot 2
  virtual i32 StopMove() = 0;                           // slot 3
  // Carried out by no camera group.
  virtual i32 Center(u32 a, u32 b, u32 c) = 0;  // slot 4
  /// Speeds as of StartMove; the cameras have one.
  virtual i32 ZoomIn(i32 speed) = 0;   // slot 5
  virtual i32 ZoomOut(i32 speed) = 0;  // slot 6
  // Carried out by no camera group.
  virtual i32 Unzoom(u32 a) = 0;                         // slot 7
  virtual i32 AreaZoom(u32 a, u32 b, u32 c, u32 d) = 0;  // slot 8
  /// Any speed but 0 starts the lens, 0 stops it. The lens stays in manual mode until the next movement of
  /// the camera puts it back to automatic.
  virtual i32 FocusNear(u32 speed) = 0;                       // slot 9
  virtual i32 FocusFar(u32 speed) = 0;                        // slot 10
  virtual i32 IrisOpen(u32 speed) = 0;                        // slot 11
  virtual i32 IrisClose(u32 speed) = 0;                       // slot 12
  virtual i32 GetCapabilities(CPtzCapabilities* record) = 0;  // slot 13
  virtual u32 GetPrepositionCount() = 0;                      // slot 14
  /// @param position  counted from 0, in the order of the list.
  /// @param buffer    gets name and terminator; too small a one (PtzInvalidArgument) stays as it was.
  virtual i32 GetPrepositionName(u32 position, char* buffer, u32 bufferSize) = 0;  // slot 15
  /// Moves the camera to a stored position, unless it is there already.
  virtual i32 SelectPreposition(u32 option, const char* name) = 0;  // slot 16
  /// Stores where the camera stands. While it stands at a stored position, that one gets the name.
  virtual i32 AddPreposition(const char* name) = 0;  // slot 17
  /// On cameras that can only delete all positions at once, deletes all.
  virtual i32 DeletePreposition(const char* name) = 0;  // slot 18
  /// PtzNoPreposition when the camera stands at none, for instance after a movement.
  virtual i32 GetCurrentPreposition(char* buffer, u32 bufferSize) = 0;  // slot 19
};

/// The newer form; the same object.
class IIPPTZApiEx : public IIPPTZApi {
 public:
  /// 1 for any @p value but 0. Has no effect.
  virtual u32 CheckValue(u32 value) = 0;  // slot 20
};

}  // namespace sarnevo
