#include "faults/Cells.h"

#include <algorithm>
#include <sstream>
#include <utility>

namespace kolvex_test {

namespace {

struct Step {
  const char* dialogue;
  const char* groups;
  const char* name;
  const char* service;
  const char* request;  // a text in it; empty for the connect in front of the first
  const char* places;   // of the reply, behind its status line
  Part part;
};

constexpr const char* kHttp = "Server,Content-Type,Content-Length,Connection,body";
constexpr const char* kQuery = "Capability query";
constexpr const char* kStream = "Stream";
constexpr const char* kPins = "Inputs and outputs";
constexpr const char* kHead = "Head and stored positions";
constexpr Step kSteps[] = {
    {kQuery, "12", "connect", "http", "", "", Query},
    {kQuery, "12", "GetTime.cgi", "http", "/GetTime.cgi", kHttp, Query},
    {kQuery, "1", "time.cgi", "http", "/time.cgi", kHttp, Query},
    {kQuery, "1", "comport.cgi", "http", "/comport.cgi", kHttp, Query},
    {kQuery, "1", "multimedia.cgi", "http", "/multimedia.cgi", kHttp, Query},
    {kQuery, "1", "gpio.cgi", "http", "/gpio.cgi", kHttp, Query},
    {kQuery, "1", "channel.cgi", "http", "/channel.cgi", kHttp, Query},
    {kQuery, "1", "network.cgi", "http", "/network.cgi", kHttp, Query},
    {kQuery, "2", "GetMAC.cgi", "http", "/GetMAC.cgi", kHttp, Query},
    {kQuery, "2", "GetCameraType.cgi", "http", "/GetCameraType.cgi", kHttp, Query},
    {kStream, "12", "HTTP connect", "http", "", "", StartVideo},
    {kStream, "1", "multimedia.cgi", "http", "/multimedia.cgi", kHttp, StartVideo},
    {kStream, "2", "SetMultimedia.cgi", "http", "/SetMultimedia.cgi", kHttp, StartVideo},
    {kStream, "12", "RTSP connect", "rtsp", "", "", StartVideo},
    {kStream, "12", "DESCRIBE", "rtsp", "DESCRIBE", "CSeq,Content-Base,Content-Type,Content-Length,body",
     StartVideo},
    {kStream, "12", "SETUP", "rtsp", "SETUP", "CSeq,Transport,Session", StartVideo},
    {kStream, "12", "PLAY", "rtsp", "PLAY", "CSeq,Session", StartVideo},
    {kStream, "12", "PAUSE", "rtsp", "PAUSE", "CSeq,Session", StopVideo},
    {kStream, "12", "TEARDOWN", "rtsp", "TEARDOWN", "CSeq", StopVideo},
    {kPins, "12", "connect for inputs", "http", "", "", PollInputs},
    {kPins, "1", "gpio.cgi, retrieve", "http", "action=retrieve", kHttp, PollInputs},
    {kPins, "2", "GetGPIO.cgi", "http", "/GetGPIO.cgi", kHttp, PollInputs},
    {kPins, "12", "connect for an output", "http", "", "", SwitchOutput},
    {kPins, "1", "gpio.cgi, apply", "http", "value=1", kHttp, SwitchOutput},
    {kPins, "2", "SetGPIO.cgi", "http", "STA=1", kHttp, SwitchOutput},
    {kHead, "1", "connect for the protocol", "http", "", "", OpenHead},
    {kHead, "1", "comport.cgi", "http", "/comport.cgi", kHttp, OpenHead},
    {kHead, "1", "connect for a movement", "http", "", "", MoveHead},
    {kHead, "1", "movement", "http", "write=FF010004", kHttp, MoveHead},
    {kHead, "1", "connect for a position", "http", "", "", StorePosition},
    {kHead, "1", "store position", "http", "write=FF010003", kHttp, StorePosition},
    {kHead, "1", "recall position", "http", "write=FF010007", kHttp, RecallPosition},
    {kHead, "1", "delete position", "http", "write=FF010005", kHttp, DeletePosition},
};

struct Way {
  const char* column;
  const char* reply;    // the fault of a reply
  const char* connect;  // of a connect; null where it makes no sense
  bool hasPlace;
  bool isExit;  // the camera leaves
};
constexpr const char* kDrip = "drip";
constexpr Way kWays[] = {
    {"cut", "cut", "cut/connect", true, false},
    {"stall", "stall", "stall/connect", true, false},
    {kDrip, "drip:2", nullptr, true, false},
    {"garbage", "garbage:64", "garbage:64/connect", true, false},
    {"oversize", "oversize:300000", nullptr, true, false},
    {"reset", "reset", "reset/connect", true, false},
    {"503", "status:503", nullptr, false, false},
    {"401", "status:401", nullptr, false, false},
    {"endless", "endless", nullptr, false, false},
    {"gone", "gone:600000", "refuse", false, true},
    {"other group", "turn:100", nullptr, false, true},
};

struct Disturbance {
  const char* where;
  const char* fault;
};
constexpr const char* kDatagrams = "Packets and reports of a stream that plays";
constexpr std::pair<const char*, const char*> kStreams[] = {
    {"group 1, MJPEG", "group=1,codec=mjpeg"},
    {"group 1, MPEG-4", "group=1,codec=mpeg4"},
    {"group 2, MJPEG", "group=2,codec=mjpeg"},
    {"group 2, MPEG-4", "group=2,codec=mpeg4"},
};
constexpr Disturbance kPackets[] = {
    {"three lost", "lose=next:3"},
    {"three doubled", "duplicate=next:3"},
    {"three reordered", "reorder=next:3"},
    {"each second short", "truncate=every:2"},
    {"payload changed", "corrupt=1"},
    {"wrong payload type", "mistype=1"},
    {"no marker", "unmark=1"},
    {"three of 6000 bytes between", "oversize=next:3"},
    {"three of garbage between", "garbage=next:3"},
    {"three of a stranger's between", "stranger=next:3"},
    {"a stranger's before each", "stranger=1"},
    {"one without a byte", "empty=next:1"},
    {"silence", "silent=1"},
    {"camera gone", "reboot=600"},
    {"camera back at once", "reboot=0"},
    {"camera back as the other group", "answer-as=OTHER&reboot=0"},
};
constexpr Disturbance kReports[] = {
    {"lost", "reports=lose"},           {"short", "reports=short"},   {"garbage", "reports=garbage"},
    {"6000 bytes", "reports=oversize"}, {"no byte", "reports=empty"},
};

std::string EndOf(const Cell& cell, bool isExit) {
  return isExit ? std::string("answer-as=") + cell.camera[6] + "&heal=1&reboot=0" : "heal=1";
}

void Add(const Step& step, char group, std::vector<Cell>& cells) {
  Cell cell{.table = std::string(step.dialogue) + ", group " + group,
            .step = step.name,
            .camera = std::string("group=") + group,
            .part = step.part};
  const bool isConnect = *step.request == '\0';
  const auto add = [&](const Way& way, const std::string& place) {
    cell.column = way.column;
    cell.fault = std::string(step.service) + "=" +
                 (isConnect ? way.connect : way.reply + place + "@" + step.request + (way.isExit ? "*1" : ""));
    cell.end = EndOf(cell, way.isExit && !isConnect);
    cells.push_back(cell);
  };
  for (const Way& way : kWays) {
    if (isConnect ? way.connect != nullptr : !way.hasPlace) {
      add(way, "");
    }
  }
  std::string headers = step.places;
  if (group == '2' && headers.starts_with("CSeq")) {
    headers.insert(4, ",Date");
  }
  std::istringstream places(isConnect ? "" : "start,status line," + headers);
  for (int number = -1; std::getline(places, cell.where, ','); ++number) {
    const std::string place = number == -1           ? "start"
                              : number == 0          ? "status"
                              : cell.where == "body" ? "body"
                                                     : "header" + std::to_string(number);
    for (const Way& way : kWays) {
      if (way.hasPlace) {
        add(way, "/" + place);
      }
    }
  }
}

void Add(const char* step, const Disturbance& row, Part part, std::vector<Cell>& cells) {
  for (const auto& [column, camera] : kStreams) {
    Cell cell{kDatagrams, step, row.where, column, camera, row.fault, "", part};
    if (const std::size_t other = cell.fault.find("OTHER"); other != std::string::npos) {
      cell.fault.replace(other, 5, camera[6] == '1' ? "2" : "1");
    }
    cell.end = EndOf(cell, cell.fault.find("reboot") != std::string::npos);
    cells.push_back(cell);
  }
}

// What the host heard, and within how many seconds. Where the camera sets the pace there is no bound.
std::string Text(const Outcome& outcome, bool isTimed) {
  std::string text = outcome.told.empty() ? "–" : outcome.told;
  if (isTimed && !outcome.told.empty() && outcome.told != "nothing") {
    constexpr int kBounds[] = {1, 9, 14, 25, 99};
    text +=
        " ≤ " +
        std::to_string(*std::ranges::find_if(
            kBounds, [&](int bound) { return outcome.after < milliseconds(bound * 1000) || bound == 99; })) +
        " s";
  }
  return text + (outcome.restarted ? " †" : "");
}

std::vector<std::string> ColumnsOf(const std::string& table) {
  std::vector<std::string> columns;
  for (const auto& [column, camera] : kStreams) {
    columns.emplace_back(column);
  }
  if (table != kDatagrams) {
    columns.clear();
    for (const Way& way : kWays) {
      columns.emplace_back(way.column);
    }
  }
  return columns;
}

std::string Line(const std::vector<std::string>& columns, const std::vector<Cell*>& cells) {
  std::string text;
  for (const std::string& column : columns) {
    const auto cell = std::ranges::find_if(cells, [&](const Cell* one) { return one->column == column; });
    text += " | " + (cell != cells.end() ? Text((*cell)->outcome, kIsTimed && column != kDrip) : "");
  }
  return text + " |";
}

std::string Head(const std::string& table) {
  std::string head = "\n## " + table + "\n\n| step | where |";
  std::string line = "\n|---|---|";
  for (const std::string& column : ColumnsOf(table)) {
    head += " " + column + " |";
    line += "---|";
  }
  return head + line;
}

}  // namespace

std::vector<Cell> AllCells() {
  std::vector<Cell> cells;
  for (const char* const dialogue : {kQuery, kStream, kPins, kHead}) {
    for (const char group : {'1', '2'}) {
      for (const Step& step : kSteps) {
        if (step.dialogue == dialogue && std::string(step.groups).find(group) != std::string::npos) {
          Add(step, group, cells);
        }
      }
    }
  }
  for (const Disturbance& row : kPackets) {
    Add("RTP", row, DisturbVideo, cells);
  }
  for (const Disturbance& row : kReports) {
    Add("RTCP", row, DisturbReports, cells);
  }
  return cells;
}

std::vector<Row> Render(std::vector<Cell>& cells) {
  std::vector<Row> rows;
  std::string table;
  std::string above;
  for (std::size_t next = 0; next < cells.size();) {
    const Cell& first = cells[next];
    const auto isOf = [](const Cell& one, const Cell& other) {
      return one.table == other.table && one.step == other.step;
    };
    if (table != first.table) {
      table = first.table;
      rows.push_back({Head(table), {}});
    }
    std::vector<Cell*> members;
    for (; next < cells.size() && isOf(cells[next], first) && cells[next].where == first.where; ++next) {
      members.push_back(&cells[next]);
    }
    const std::string line = Line(ColumnsOf(table), members);
    std::string where = first.where;
    if (line == above && table != kDatagrams && isOf(*rows.back().cells.front(), first)) {
      where = rows.back().cells.front()->where + " to " + where;
      members.insert(members.begin(), rows.back().cells.begin(), rows.back().cells.end());
      rows.pop_back();
    }
    rows.push_back({"| " + first.step + " | " + where + line, members});
    above = line;
  }
  return rows;
}

}  // namespace kolvex_test
