#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace sarnevo::platform {

/// Random access to the bytes of a file.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  /// Fills all of @p into from @p offset on. False when the file has fewer bytes there; any offset is allowed.
  virtual bool Read(std::uint64_t offset, std::span<std::uint8_t> into) const = 0;
};

/// A regular file, closed with its object. Others may read and write the file meanwhile. One thread uses an
/// object at a time.
class File final : public ByteSource {
 public:
  enum class Access { Read, ReadWrite };
  enum class IfMissing { Fail, Create };
  enum class OpenResult {
    Opened,
    Missing,  ///< no such file or folder
    Refused,  ///< there is something, but no right, no descriptor, or no regular file
  };

  File() noexcept = default;
  ~File() override;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  /// Closes what was open before. Never waits, whatever lies at @p path.
  OpenResult Open(const std::string& path, Access access, IfMissing ifMissing) noexcept;
  bool IsOpen() const noexcept { return handle_ != kClosed; }
  void Close() noexcept;

  /// Bytes; nothing when the file isn't open.
  std::optional<std::uint64_t> Size() const noexcept;

  bool Read(std::uint64_t offset, std::span<std::uint8_t> into) const override;

  /// Everything from the beginning. Nothing when it can't be read or is longer than @p limit bytes.
  std::optional<std::string> ReadAll(std::size_t limit) const;

 private:
  static constexpr std::intptr_t kClosed = -1;
  std::intptr_t handle_ = kClosed;
};

}  // namespace sarnevo::platform
