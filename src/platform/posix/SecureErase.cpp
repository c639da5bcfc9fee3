#include "platform/SecureErase.h"

#include <string.h>

namespace sarnevo::platform {

void SecureErase(std::string& secret) noexcept {
  explicit_bzero(secret.data(), secret.size());
  secret.clear();
}

}  // namespace sarnevo::platform
