#include <utility>  // before Asio, which forgets it

#include "camera/Simulator.h"

#include <boost/asio/ip/tcp.hpp>

#include <algorithm>
#include <chrono>
#include <string_view>

namespace kolvex_console {

namespace {

constexpr std::chrono::seconds kLimit{3};

struct Fault {
  std::string_view id;
  std::string_view title;
  std::string_view commands;  // of the simulated camera; a page chooses among these and sends none of its own
};

constexpr Fault kFaults[] = {
    {"none", "None", "heal=1"},
    {"lose", "Loses packets", "heal=1&lose=0.01"},
    {"corrupt", "Changes bytes", "heal=1&corrupt=0.005"},
    {"reorder", "Swaps packets", "heal=1&reorder=0.02"},
    {"silent", "Sends nothing", "heal=1&silent=1"},
    {"refuse", "Unplugged", "heal=1&http=refuse&rtsp=refuse&silent=1"},
    {"login", "Other password", "heal=1&http=status:401"},
    {"reboot", "Restarts", "heal=1&reboot=6"},
};

}  // namespace

nlohmann::json FaultList() {
  nlohmann::json list = nlohmann::json::array();
  for (const Fault& fault : kFaults) {
    list.push_back({{"id", fault.id}, {"title", fault.title}});
  }
  return list;
}

Reply SwitchFault(const std::string& control, const std::string& address, const std::string& fault) {
  const auto* const known =
      std::find_if(std::begin(kFaults), std::end(kFaults), [&](const Fault& each) { return each.id == fault; });
  if (known == std::end(kFaults)) {
    return Refusal(400, "There is no such fault.");
  }
  boost::asio::ip::tcp::iostream camera;
  camera.expires_after(kLimit);
  const std::size_t colon = control.rfind(':');
  camera.connect(control.substr(0, colon), colon == control.npos ? "80" : control.substr(colon + 1));
  camera << "GET /?camera=" << address << "&" << known->commands << " HTTP/1.0\r\nHost: " << control
         << "\r\n\r\n"
         << std::flush;
  std::string version;
  unsigned status = 0;
  if (!(camera >> version >> status)) {
    return Refusal(502, "The simulated cameras don't answer at " + control + ".");
  }
  return status == 200 ? JsonReply({{"fault", fault}})
                       : Refusal(502, "The simulated camera didn't take the fault.");
}

}  // namespace kolvex_console
