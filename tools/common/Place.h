#pragma once

#include <string>
#include <string_view>

#include "kolvex/Types.h"

namespace kolvex_host {

/// Where a camera is.
struct Place {
  std::string address;  ///< dotted IPv4
  sarnevo::u16 port = 80;

  /// "ADDRESS:PORT".
  std::string Text() const;

  /// From what a person types: ADDRESS, ADDRESS:PORT or http://ADDRESS/, where ADDRESS is dotted IPv4 or a name.
  /// A name is looked up, which may take as long as the system's resolver takes.
  ///
  /// Throws Failure: ExitCode::Usage for anything else, IPv6 and logins in the address by their names, without
  /// ever repeating a text that may hold a password; ExitCode::Camera when a name isn't known.
  static Place Parse(std::string_view text);
};

/// A text that was typed, in quotation marks, for a sentence about it. Texts that may hold a password aren't
/// repeated, and neither are control characters.
std::string Quoted(std::string_view typed);

}  // namespace kolvex_host
