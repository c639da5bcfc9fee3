#pragma once

#include "http/HttpRequest.h"
#include "kolvex/Types.h"

namespace sarnevo {

/// Finds out which firmware line a camera runs, with one or two requests on the caller's thread.
/// @param request  host and credentials are set
/// @return 1 or 2; 0 when it answers like neither. May throw bad_alloc.
u32 DetectCameraGroup(Web::HttpRequest* request);

}  // namespace sarnevo
