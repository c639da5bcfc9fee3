#pragma once

#include "simcam/picture/Canvas.h"

/// The drawn world in front of every camera: a town by a street. All lengths are scene pixels.
namespace simcam {

inline constexpr double kSceneWidth = 3200;
inline constexpr double kSceneHeight = 2000;
inline constexpr double kSceneCentreX = kSceneWidth / 2;
inline constexpr double kSceneCentreY = 1120;  ///< tilt 0: a little below the middle, on the houses
/// Width of what a camera sees at zoom 1.
inline constexpr double kHomeViewWidth = 1600;
/// A camera's 60 degree view spans kHomeViewWidth, so one degree is this many pixels.
inline constexpr double kPixelsPerDegree = kHomeViewWidth / 60;

inline constexpr double kGround = 1400;     ///< where the houses are
inline constexpr double kKerb = 1460;       ///< upper edge of the street
inline constexpr double kStreetEnd = 1720;  ///< lower edge of the street
inline constexpr unsigned kStreetLamps = 8;

/// All that stands still. DrawingLock is held.
void DrawScene(cairo_t* c);

/// Parts of DrawScene, each in a file of its own.
void DrawSkyline(cairo_t* c);
void DrawTiltScale(cairo_t* c);
void DrawHouses(cairo_t* c);
void DrawStreet(cairo_t* c);

/// What moves and shines: the traffic at that moment, and the street lamps whose bit is set in lamps.
void DrawActors(cairo_t* c, double seconds, unsigned lamps);

}  // namespace simcam
