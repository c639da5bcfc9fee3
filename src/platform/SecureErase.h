#pragma once

#include <string>

namespace sarnevo::platform {

/// Overwrites the characters of a secret, in a way that no optimiser drops, and empties the text.
void SecureErase(std::string& secret) noexcept;

}  // namespace sarnevo::platform
