#include "Output.h"

#include <cstdio>

#include <nlohmann/json.hpp>

#include "Failure.h"

namespace kolvex_host {

void Print(const std::string& text) {
  if (std::fputs(text.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
    throw Failure(ExitCode::Output, "Standard output can't be written.");
  }
}

void PrintJson(const nlohmann::json& value) {
  // A camera's name may hold anything; what isn't UTF-8 is replaced and never an error.
  Print(value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n");
}

}  // namespace kolvex_host
