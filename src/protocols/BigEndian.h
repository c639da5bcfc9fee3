#pragma once

#include "kolvex/Types.h"

namespace sarnevo {

/// Numbers as they travel: the most significant byte first. The caller has made sure of the room. Any thread may call.
constexpr u16 ReadU16(const u8* at) noexcept { return static_cast<u16>(at[0] << 8 | at[1]); }
constexpr u32 ReadU32(const u8* at) noexcept { return u32{ReadU16(at)} << 16 | ReadU16(at + 2); }

constexpr void PutU16(u8* at, u16 value) noexcept {
  at[0] = static_cast<u8>(value >> 8);
  at[1] = static_cast<u8>(value);
}
constexpr void PutU32(u8* at, u32 value) noexcept {
  PutU16(at, static_cast<u16>(value >> 16));
  PutU16(at + 2, static_cast<u16>(value));
}

}  // namespace sarnevo
