#include "hub/Doors.h"

#include <algorithm>
#include <array>
#include <limits>

#include "Texts.h"
#include "hub/Matroska.h"

namespace kolvex_console {

using nlohmann::json;

namespace {

constexpr std::string_view kGet = "GET";
constexpr const char* kJpeg = "image/jpeg";
constexpr const char* kNoCamera = "There is no camera of that name.";
constexpr std::size_t kLongestText = 256;  // bytes, of any text in a body
/// For a camera that shows nothing at the moment; a picture of MPEG-4 begins with a key frame.
constexpr std::chrono::seconds kSnapshotWait{5};

/// What a body of a request lacks; answered with status 400.
struct BadBody {
  std::string sentence;
};

/// ASCII's control characters, and in UTF-8 the further ones of ISO 8859 (C1, U+0080 to U+009F).
bool HasControl(std::string_view text) {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : '\0');
    if (byte < 0x20 || byte == 0x7f || (byte == 0xc2 && next >= 0x80 && next <= 0x9f)) {
      return true;
    }
  }
  return false;
}

std::string Text(const json& body, const char* member, bool isNeeded = true) {
  const auto found = body.find(member);
  if (found == body.end()) {
    if (isNeeded) {
      throw BadBody{std::string("The body lacks \"") + member + "\"."};
    }
    return {};
  }
  if (!found->is_string()) {
    throw BadBody{std::string("\"") + member + "\" must be a text."};
  }
  std::string text = found->get<std::string>();
  if (text.size() > kLongestText || HasControl(text) || (isNeeded && text.empty())) {
    throw BadBody{std::string("\"") + member + "\" must have 1 to " + std::to_string(kLongestText) +
                  " bytes and no control characters."};
  }
  return text;
}

/// A name that something gets. Empty only when it isn't needed.
std::string Name(const json& body, bool isNeeded = true) {
  std::string name = Text(body, "name", isNeeded);
  if (!name.empty() && (kolvex_tools::IsBlank(name) || name == "." || name == "..")) {
    throw BadBody{
        R"(A name needs something to see, and can't be "." or "..", which a browser takes for folders.)"};
  }
  return name;
}

int Number(const json& body, const char* member, int least, int most) {
  const auto found = body.find(member);
  if (found == body.end() || !found->is_number_integer() || found->is_number_float() || *found < least ||
      *found > most) {
    throw BadBody{std::string("\"") + member + "\" must be a number from " + std::to_string(least) + " to " +
                  std::to_string(most) + "."};
  }
  return found->get<int>();
}

json ParseBody(const std::string& text) {
  json body = json::parse(text, nullptr, false);
  if (!body.is_object()) {
    throw BadBody{"The body must be a JSON object."};
  }
  return body;
}

std::string Reason(const Camera& camera) {
  const json state = json::parse(*camera.State().json, nullptr, false);
  const auto why = state.find("why");
  return why != state.end() && why->is_string() ? why->get<std::string>() : "The camera shows no picture yet.";
}

/// The file of the page at a path; null when there is none.
const PageFile* FindPage(const std::vector<std::string>& path) {
  if (path.size() > 1) {
    return nullptr;
  }
  const std::string wanted = "/" + (path.empty() ? "index.html" : path[0]);
  for (const PageFile& file : PageFiles()) {
    if (wanted == file.path) {
      return &file;
    }
  }
  return nullptr;
}

Reply Jpeg(const Picture& picture) {
  const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(picture.time.time_since_epoch());
  return {200,
          kJpeg,
          std::string(picture.bytes.begin(), picture.bytes.end()),
          {{"X-Picture-Time", std::to_string(time.count())}}};
}

}  // namespace

/// A path with its method; "*" takes any segment.
struct DoorTable::Door {
  const char* method;
  std::array<std::string_view, 4> path;
  void (DoorTable::*serve)(Visit& visit);
};

constexpr DoorTable::Door DoorTable::kDoors[] = {
    {"GET", {"cameras"}, &DoorTable::ListCameras},
    {"POST", {"cameras"}, &DoorTable::AddCamera},
    {"GET", {"cameras", "*"}, &DoorTable::ShowState},
    {"POST", {"cameras", "*"}, &DoorTable::ChangeCamera},
    {"GET", {"cameras", "*", "history"}, &DoorTable::ShowHistory},
    {"GET", {"cameras", "*", "snapshot.jpg"}, &DoorTable::ShowSnapshot},
    {"GET", {"cameras", "*", "stream.mjpeg"}, &DoorTable::ShowMjpeg},
    {"GET", {"cameras", "*", "stream.mkv"}, &DoorTable::ShowMatroska},
    {"GET", {"cameras", "*", "positions", "*"}, &DoorTable::ShowThumbnail},
    {"POST", {"cameras", "*", "positions"}, &DoorTable::UsePosition},
    {"POST", {"cameras", "*", "move"}, &DoorTable::Move},
    {"POST", {"cameras", "*", "outputs"}, &DoorTable::SetOutput},
    {"POST", {"cameras", "*", "fault"}, &DoorTable::Simulate},
    {"GET", {"wall"}, &DoorTable::ShowWall},
    {"POST", {"wall"}, &DoorTable::HearOfWall},
    {"GET", {"events"}, &DoorTable::ShowEvents},
    {"GET", {"metrics"}, &DoorTable::ShowMetrics},
};

void DoorTable::Open(const Request& request, const Respond& respond) {
  const auto fits = [&](const Door& door) {
    for (std::size_t i = 0; i < door.path.size(); ++i) {
      const bool isOver = i >= request.path.size();
      if (isOver ? !door.path[i].empty() : door.path[i] != "*" && door.path[i] != request.path[i]) {
        return false;
      }
    }
    return request.path.size() <= door.path.size();
  };
  std::string allowed;
  for (const Door& door : kDoors) {
    if (fits(door)) {
      if (request.method == door.method) {
        Serve(door, {request, respond, nullptr, {}});
        return;
      }
      allowed += (allowed.empty() ? "" : ", ") + std::string(door.method == kGet ? "GET, HEAD" : door.method);
    }
  }
  if (const PageFile* const file = FindPage(request.path)) {
    if (request.method == kGet) {
      respond(Reply{200, file->type, std::string(file->content.begin(), file->content.end()), {}});
      return;
    }
    allowed = "GET, HEAD";
  }
  if (allowed.empty()) {
    respond(Refusal(404, "There is nothing by that path."));
    return;
  }
  Reply reply = Refusal(405, "That isn't what this path is for; it takes " + allowed + ".");
  reply.fields.emplace_back("Allow", allowed);
  respond(std::move(reply));
}

void DoorTable::Serve(const Door& door, Visit visit) {
  if (door.path[1] == "*") {
    visit.camera = site_->Find(visit.request.path[1]);
    if (!visit.camera) {
      visit.respond(Refusal(404, kNoCamera));
      return;
    }
  }
  try {
    if (visit.request.method == "POST") {
      // A form on another page can send three types without asking the server first, and JSON is none of them.
      if (!visit.request.isJson) {
        visit.respond(Refusal(415, "The body must be JSON, with Content-Type: application/json."));
        return;
      }
      visit.body = ParseBody(visit.request.body);
    }
    (this->*door.serve)(visit);
  } catch (const BadBody& bad) {
    visit.respond(Refusal(400, bad.sentence));
  }
}

void DoorTable::ListCameras(Visit& visit) {
  std::string list;
  for (const auto& [name, camera] : site_->Cameras()) {
    list += (list.empty() ? "" : ",") + *camera->State().json;
  }
  visit.respond(Reply{200, "application/json", "[" + list + "]\n", {}});
}

void DoorTable::AddCamera(Visit& visit) {
  const json& body = visit.body;
  outside_.keeper->Add({.address = Text(body, "address"),
                        .name = Name(body, false),
                        .user = Text(body, "user", false),
                        .password = Text(body, "password", false),
                        .codec = Text(body, "codec", false)},
                       visit.respond);
}

void DoorTable::ChangeCamera(Visit& visit) {
  const std::string& name = visit.request.path[1];
  const std::string action = Text(visit.body, "action");
  if (action == "rename") {
    outside_.keeper->Rename(name, Name(visit.body), visit.respond);
  } else if (action == "remove") {
    outside_.keeper->Remove(name, visit.respond);
  } else {
    throw BadBody{R"("action" must be "rename" or "remove".)"};
  }
}

void DoorTable::ShowState(Visit& visit) {
  visit.respond(Reply{200, "application/json", *visit.camera->State().json + "\n", {}});
}

void DoorTable::ShowHistory(Visit& visit) { visit.respond(JsonReply(visit.camera->History())); }

void DoorTable::ShowSnapshot(Visit& visit) {
  Waiter waiter{std::make_unique<Feed::Look>(visit.camera->Video()), visit.camera,
                std::chrono::system_clock::now() - kFresh, std::chrono::steady_clock::now() + kSnapshotWait,
                visit.respond};
  if (!AnswerWaiter(waiter, std::chrono::steady_clock::now())) {
    waiters_.push_back(std::move(waiter));
  }
  // The analyser loses sight of what a unique_ptr that is moved holds.
  // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks)
}

bool DoorTable::AnswerWaiter(const Waiter& waiter, std::chrono::steady_clock::time_point now) const {
  const PicturePtr picture = (*waiter.look)->Newest();
  if (picture && picture->time >= waiter.notBefore) {
    waiter.respond(Jpeg(*picture));
  } else if (now >= waiter.end || (*waiter.look)->IsClosed()) {
    waiter.respond(Refusal(503, Reason(*waiter.camera)));
  } else {
    return false;
  }
  return true;
}

void DoorTable::Tick() {
  const auto now = std::chrono::steady_clock::now();
  std::erase_if(waiters_, [&](const Waiter& waiter) { return AnswerWaiter(waiter, now); });
}

void DoorTable::ShowMjpeg(Visit& visit) { visit.respond(std::make_shared<MjpegOutlet>(visit.camera->Video())); }

void DoorTable::ShowMatroska(Visit& visit) {
  visit.respond(std::make_shared<MatroskaOutlet>(visit.camera->Video()));
}

void DoorTable::ShowThumbnail(Visit& visit) {
  const auto picture = visit.camera->Thumbnail(visit.request.path[3]);
  visit.respond(picture ? Reply{200, kJpeg, *picture, {}}
                        : Refusal(404, "There is no picture of that position."));
}

void DoorTable::Move(Visit& visit) {
  const std::string movement = Text(visit.body, "move");
  const int speed = visit.body.contains("speed") ? Number(visit.body, "speed", 1, 16) : 8;
  visit.respond(visit.camera->Move(movement, speed));
}

void DoorTable::SetOutput(Visit& visit) {
  const int output = Number(visit.body, "output", 1, 256);
  const std::string state = Text(visit.body, "state");
  if (state != "high" && state != "low") {
    throw BadBody{R"("state" must be "high" or "low".)"};
  }
  visit.camera->SetOutput(static_cast<unsigned>(output), state == "high", visit.respond);
}

void DoorTable::UsePosition(Visit& visit) {
  const std::string action = Text(visit.body, "action");
  if (action != "store" && action != "go" && action != "delete") {
    throw BadBody{R"("action" must be "store", "go" or "delete".)"};
  }
  visit.camera->UsePosition(action, action == "store" ? Name(visit.body) : Text(visit.body, "name"),
                            visit.respond);
}

void DoorTable::Simulate(Visit& visit) { visit.camera->Simulate(Text(visit.body, "fault"), visit.respond); }

void DoorTable::ShowWall(Visit& visit) {
  std::set<std::string> only;
  if (const auto camera = visit.request.query.find("camera"); camera != visit.request.query.end()) {
    if (!site_->Find(camera->second)) {
      visit.respond(Refusal(404, kNoCamera));
      return;
    }
    only.insert(camera->second);
  }
  const auto viewer = visit.request.query.find("viewer");
  const bool isAnswered = viewer != visit.request.query.end();
  const auto wall = std::make_shared<WallOutlet>(site_, std::move(only), isAnswered);
  if (isAnswered) {
    std::erase_if(walls_, [](const auto& each) { return each.second.expired(); });
    // Never taken from who has it: a word that somebody guesses holds up nobody's pictures.
    if (!walls_.try_emplace(viewer->second, wall).second) {
      visit.respond(Refusal(409, "There is a viewer of that name."));
      return;
    }
  }
  visit.respond(wall);
}

void DoorTable::HearOfWall(Visit& visit) {
  const auto found = walls_.find(Text(visit.body, "viewer"));
  const std::shared_ptr<WallOutlet> wall = found != walls_.end() ? found->second.lock() : nullptr;
  if (!wall) {
    visit.respond(Refusal(404, "There is no viewer of that name."));
    return;
  }
  const json& shown = visit.body["shown"];
  if (!shown.is_array() || !std::all_of(shown.begin(), shown.end(), [](const json& number) {
        return number.is_number_unsigned() && number <= std::numeric_limits<std::uint32_t>::max();
      })) {
    throw BadBody{R"("shown" must be a list of pictures' numbers.)"};
  }
  bool hasRoom = false;
  for (const json& number : shown) {
    hasRoom = wall->Shown(number.get<std::uint32_t>()) || hasRoom;
  }
  if (hasRoom) {
    site_->Wake();
  }
  visit.respond(JsonReply({{"done", true}}));
}

void DoorTable::ShowEvents(Visit& visit) { visit.respond(std::make_shared<EventsOutlet>(site_)); }

void DoorTable::ShowMetrics(Visit& visit) {
  visit.respond(Reply{200, "text/plain; version=0.0.4; charset=utf-8", outside_.metrics(), {}});
}

}  // namespace kolvex_console
