#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "http/HttpRequest.h"
#include "kolvex/Types.h"

namespace sarnevo {

/// Reads the body of the reply to @p request into @p body, which it empties first: up to its end, a failure, or @p most
/// bytes, whatever comes first. The one place where bodies are read. May throw bad_alloc.
///
/// @param block  bytes of one read at most; 0 reads nothing
/// @return false when the connection broke or a time-out ran out; what came before that is kept
bool ReadBody(Web::HttpRequest& request, std::size_t most, u32 block, std::vector<u8>& body);

/// Whether the camera itself ended the body that the calling thread has just read, be it too early. What a stop or a
/// lack of memory has cut off isn't the camera's word.
bool WasEndedByCamera() noexcept;

/// A body as a text, which ends at its first zero byte.
std::string_view TextOf(const std::vector<u8>& body) noexcept;

}  // namespace sarnevo
