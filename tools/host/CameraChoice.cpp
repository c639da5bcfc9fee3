#include "CameraChoice.h"

#include <cstdio>

#include "CameraFile.h"
#include "Subcommand.h"

namespace kolvex_host {

void CameraChoice::AddTo(CLI::App& command) {
  CLI::Option_group* const group = command.add_option_group("Camera");
  group
      ->add_option("--camera-file", file,
                   "The camera from a JSON file, FILE[,KEY=VALUE,...], as query --save writes it")
      ->type_name("FILE");
  group->add_option("--camera", camera, "The camera, ADDRESS[:PORT],KEY=VALUE,...; see capture --help")
      ->type_name("CAMERA");
  group->require_option(1);
}

CameraConfig CameraChoice::Read() const { return file.empty() ? ParseCamera(camera) : ReadCameraFile(file); }

DriverSession::Log Common::MakeLog() const {
  if (!verbose) {
    return {};
  }
  return [](const std::string& camera, unsigned level, const char* text) {
    std::fprintf(stderr, "%s: [%u] %s\n", camera.c_str(), level, text);
  };
}

}  // namespace kolvex_host
