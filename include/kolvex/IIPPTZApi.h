#pragma once

#include "kolvex/Types.h"

namespace sarnevo {

/// Where StartMove moves the camera.
enum PtzDirection : u32 {
  PtzLeft = 0,       ///< pan
  PtzRight = 1,      ///< pan
  PtzUp = 2,         ///< tilt
  PtzDown = 3,       ///< tilt
  PtzLeftUp = 4,     ///< both axes
  PtzRightUp = 5,    ///< both axes
  PtzLeftDown = 6,   ///< both axes
  PtzRightDown = 7,  ///< both axes
  PtzZoomIn = 8,     ///< nearer
  PtzZoomOut = 9,    ///< farther
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
  static constexpr u32 kWords = 14;            ///< in the record
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
/// order is in the queue, not that the camera carried it out. PtzNotQueued: there is no thread or no memory. IsPTZAvailable
/// and the operations on stored positions talk to the camera on the calling thread, which takes up to 15 s for each
/// request; they don't wait for queued movements.
///
/// A movement goes on until StopMove: nothing ends it on its own, least of all Close.
///
/// Names are UTF-8, zero-terminated.
class IIPPTZApi {
 public:
  virtual ~IIPPTZApi() = default;  ///< slot 0
  /// Not 0 when the camera's serial port has a PTZ protocol. Each call asks the camera, for up to 15 s, until it has
  /// named one; 0 also when it doesn't answer.
  virtual u32 IsPTZAvailable() = 0;  ///< slot 1
  /// @param direction  a PtzDirection. It isn't tested: another number is queued like any other, gives PtzDone, and
  ///                   moves nothing (with Pelco-D it is a stop).
  /// @param speed      1 to 16; 0 does nothing, not even a stop; others give PtzInvalidArgument.
  virtual i32 StartMove(u32 direction, i32 speed) = 0;  ///< slot 2
  /// Ends any movement of the head and the zoom.
  virtual i32 StopMove() = 0;  ///< slot 3
  /// Queued, but carried out by no camera group.
  virtual i32 Center(u32 a, u32 b, u32 c) = 0;  ///< slot 4
  /// Speeds as of StartMove; the cameras have one.
  virtual i32 ZoomIn(i32 speed) = 0;  ///< slot 5
  /// See ZoomIn.
  virtual i32 ZoomOut(i32 speed) = 0;  ///< slot 6
  /// Queued, but carried out by no camera group.
  virtual i32 Unzoom(u32 a) = 0;  ///< slot 7
  /// Queued, but carried out by no camera group.
  virtual i32 AreaZoom(u32 a, u32 b, u32 c, u32 d) = 0;  ///< slot 8
  /// Any speed but 0 starts the lens, 0 stops it. The lens stays in manual mode until the next movement of
  /// the camera puts it back to automatic.
  virtual i32 FocusNear(u32 speed) = 0;  ///< slot 9
  /// See FocusNear.
  virtual i32 FocusFar(u32 speed) = 0;  ///< slot 10
  /// See FocusNear.
  virtual i32 IrisOpen(u32 speed) = 0;  ///< slot 11
  /// See FocusNear.
  virtual i32 IrisClose(u32 speed) = 0;  ///< slot 12
  /// Fills the host's record. Always PtzDone.
  virtual i32 GetCapabilities(CPtzCapabilities* record) = 0;  ///< slot 13
  /// The number of positions in the list.
  virtual u32 GetPrepositionCount() = 0;  ///< slot 14
  /// PtzNoPreposition when the list is shorter.
  /// @param position    counted from 0, in the order of the list
  /// @param buffer      gets name and terminator; too small a one (PtzInvalidArgument) stays as it was
  /// @param bufferSize  bytes
  virtual i32 GetPrepositionName(u32 position, char* buffer, u32 bufferSize) = 0;  ///< slot 15
  /// Moves the camera to a stored position, unless it is there already. PtzNoPreposition: no such name, or the camera
  /// refused.
  /// @param option  without effect
  /// @param name    not null
  virtual i32 SelectPreposition(u32 option, const char* name) = 0;  ///< slot 16
  /// Stores where the camera points. While it is at a stored position, that one gets the name. The file is written
  /// before the call returns.
  /// @param name  not null, at least one character, none of & ! < > ' " and nothing that XML can't carry
  virtual i32 AddPreposition(const char* name) = 0;  ///< slot 17
  /// Deletes a position; on cameras that can only delete all at once, all of them, whatever the name. The file is written
  /// before the call returns. When the disk refuses, the deletion counts all the same and gives PtzDone; the file gets it
  /// with the next save that succeeds. When the camera refuses, its positions stay; that gives PtzNoPreposition if all
  /// were to go, and PtzDone if one was.
  /// @param name  not null; PtzNoPreposition when no position has it, unless all go
  virtual i32 DeletePreposition(const char* name) = 0;  ///< slot 18
  /// The position that the camera is at; PtzNoPreposition when it is at none, for instance after a movement.
  /// @param buffer      as of GetPrepositionName
  /// @param bufferSize  bytes
  virtual i32 GetCurrentPreposition(char* buffer, u32 bufferSize) = 0;  ///< slot 19
};

/// The newer form; the same object.
class IIPPTZApiEx : public IIPPTZApi {
 public:
  /// 1 for any @p value but 0. Has no effect.
  virtual u32 CheckValue(u32 value) = 0;  ///< slot 20
};

}  // namespace sarnevo
