#pragma once

#include <string>

#include "kolvex/Types.h"
#include "platform/File.h"

/// A thin wrapper around a file. One thread uses an object at a time.
class CDinaFileBase {
 public:
  CDinaFileBase() = default;
  /// Closes the file.
  virtual ~CDinaFileBase();

  /// False for a null or empty name, and when the file can't be opened. Others may read and write it
  /// meanwhile.
  /// @param mustExist  when 0, a file that isn't there is made.
  /// @param readOnly   when 0, the file is opened for reading and writing.
  bool Open(const char* fileName, sarnevo::u8 mustExist, sarnevo::u8 readOnly);

  /// Always true.
  bool Close();

  /// Whether the file can be opened and holds at least one byte. The object is closed afterwards.
  bool IsNonEmpty(const char* fileName);

 private:
  std::string name_;  // as last given
  sarnevo::platform::File handle_;
  sarnevo::u8 readOnly_ = 0;  // how the file was last opened
};
