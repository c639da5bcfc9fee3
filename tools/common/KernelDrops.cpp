#include "KernelDrops.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <system_error>
#include <utility>

namespace kolvex_host {

namespace {

// The inodes of the process's open sockets: its descriptors are links to "socket:[INODE]".
std::set<std::string> OwnSockets() {
  static const std::string kPrefix = "socket:[";
  std::set<std::string> inodes;
  std::error_code ignored;  // descriptors come and go under the walk
  for (std::filesystem::directory_iterator at("/proc/self/fd", ignored), end; at != end;
       at.increment(ignored)) {
    const std::string target = std::filesystem::read_symlink(at->path(), ignored).string();
    if (target.starts_with(kPrefix)) {
      inodes.insert(target.substr(kPrefix.size(), target.size() - kPrefix.size() - 1));
    }
  }
  return inodes;
}

}  // namespace

void KernelDrops::Look() {
  std::ifstream table("/proc/self/net/udp");
  std::string line;
  if (!std::getline(table, line)) {
    return;
  }
  const std::set<std::string> own = OwnSockets();
  std::map<std::string, sarnevo::u64> now;
  sarnevo::u64 more = 0;
  // sl local remote st queues timer retransmits uid timeout INODE references pointer DROPS
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string field;
    std::string inode;
    for (int i = 0; i < 10; ++i) {
      fields >> inode;
    }
    sarnevo::u64 drops = 0;
    if (fields >> field >> field >> drops && own.contains(inode)) {
      const auto before = drops_.find(inode);
      more += before != drops_.end() && before->second <= drops ? drops - before->second : drops;
      now.emplace(std::move(inode), drops);
    }
  }
  drops_ = std::move(now);
  total_ = total_.value_or(0) + more;
}

}  // namespace kolvex_host
