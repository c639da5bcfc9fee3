#pragma once

#include <string>
#include <string_view>

/// Files that are only ever replaced as a whole. Any thread and any process may call, also for one file at
/// the same time: the last one to finish wins, and its content is whole.
namespace sarnevo::platform {

enum class OldContent {
  Drop,
  KeepAside,  ///< under the file's name with ".bad" after it, or ".bad.1" to ".bad.99" where that is taken; where all
              ///< of them are, it replaces the oldest
};

/// Gives the file at @p path the new @p content in one step: whatever happens, a crash or a full disk too,
/// either the old content is there or the new one, whole, and once the call has returned true the new one
/// outlives a loss of power.
///
/// A symbolic link is followed, and the file that it leads to is replaced. An existing file's permissions
/// are kept, its owner and group as far as the process may set them. A file that the process has no right
/// to write isn't replaced, although its folder would allow it. Missing folders aren't made.
///
/// @return false when the content isn't on the disk for sure. That leaves the old content in place, with
///         two exceptions. Where only the last flush, that of the folder, has failed it is the new one. Where it was
///         to be kept aside and the file system has no second names, it may be there under its kept name alone.
bool ReplaceFile(const std::string& path, std::string_view content, OldContent old = OldContent::Drop);

/// Removes what processes that were killed in the middle of ReplaceFile have left in the folder of @p path.
/// Leaves alone what is younger than an hour: it may be another process's work in progress.
void RemoveLeftovers(const std::string& path);

}  // namespace sarnevo::platform
