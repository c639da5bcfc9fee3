#pragma once

#include <sys/types.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace kolvex_test {

/// The threads of this process that go by @p name.
inline std::vector<pid_t> TasksNamed(const std::string& name) {
  std::vector<pid_t> tasks;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string found;
    if (std::getline(std::ifstream(task.path() / "comm"), found) && found == name) {
      tasks.push_back(std::stoi(task.path().filename()));
    }
  }
  return tasks;
}

}  // namespace kolvex_test
