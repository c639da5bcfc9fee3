#pragma once

#include <string>
#include <vector>

#include "device/IDebugMessage.h"
#include "http/HttpRequest.h"
#include "kolvex/Types.h"

namespace sarnevo::Utils {

/// Sends one GET and collects the reply. On the caller's thread, for as long as the request's time-outs and
/// the reply take. A body of more than 1 MB is a broken reply and counts as none. May throw bad_alloc.
///
/// @param path            with its query
/// @param reply           emptied first; gets the body, with a zero byte after it, when @p readBody is set.
///                        What came before a broken connection counts.
/// @param debug           hears of a failure, thinned out when it keeps coming; may be null
/// @param expectedStatus  the status that counts as success; 0: any 2xx
/// @param blockSize       bytes of one read; with 0 no body comes
/// @return no failure: sent, with a fitting status, and with a body that isn't empty if it is wanted
bool SendRequest(Web::HttpRequest* request, const std::string& path, std::vector<u8>& reply,
                 IDebugMessage* debug, bool readBody, u32 expectedStatus, u32 blockSize);

}  // namespace sarnevo::Utils
