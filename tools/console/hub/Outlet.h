#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace kolvex_console {

/// A piece of a stream, for instance one picture with what goes before and after it.
struct Unit {
  std::string head;
  std::span<const std::uint8_t> body;
  std::shared_ptr<const void> memory;  ///< keeps the body's bytes; the picture itself, never a copy
  std::string_view tail;               ///< of a constant
  /// Not negative: while nothing of the unit has been sent it may be given back (Outlet::PutBack).
  std::int64_t key = -1;

  std::size_t Size() const { return head.size() + body.size() + tail.size(); }
};

/// Where one viewer's stream comes from. The viewer asks when its connection has room: so there is no queue,
/// a viewer that is slow gets what is newest then, and it waits for nobody and nobody for it.
///
/// On the server's thread. The stream lets it go when the viewer leaves.
class Outlet {
 public:
  virtual ~Outlet() = default;
  /// For the Content-Type field.
  virtual std::string Type() const = 0;
  /// The next piece; false when there is nothing new at the moment.
  virtual bool Next(Unit& into) = 0;
  /// The viewer had no room for a unit with a key. What is newest of that kind is offered again later.
  virtual void PutBack(const Unit&) {}
  /// Nothing will ever come any more.
  virtual bool HasEnded() const { return false; }
};

}  // namespace kolvex_console
