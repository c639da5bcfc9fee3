#include "simcam/device/CameraStatus.h"

#include <nlohmann/json.hpp>

namespace simcam {

namespace {

using nlohmann::json;

json ToJson(const VideoSettings& video) {
  return {{"codec", video.codec == Codec::Jpeg ? "mjpeg" : "mpeg4"},
          {"standard", video.ntsc ? "NTSC" : "PAL"},
          {"resolution", video.resolution},
          {"fps", video.fps},
          {"const_qu", video.constQuality},
          {"targetrate", video.targetRate},
          {"peakrate", video.peakRate},
          {"gopsize", video.gopSize},
          {"Jpeg_Quality", video.jpegQuality},
          {"Bitrate", video.bitrate},
          {"GOPSelect", video.gopSelect}};
}

json ToJson(const Faults& faults) {
  const PacketFaults& packets = faults.packets;
  return {{"lose", packets.lose.ToText()},
          {"duplicate", packets.duplicate.ToText()},
          {"reorder", packets.reorder.ToText()},
          {"truncate", packets.truncate.ToText()},
          {"corrupt", packets.corrupt.ToText()},
          {"garbage", packets.garbage.ToText()},
          {"oversize", packets.oversize.ToText()},
          {"empty", packets.empty.ToText()},
          {"stranger", packets.stranger.ToText()},
          {"mistype", packets.mistype.ToText()},
          {"unmark", packets.unmark.ToText()},
          {"swap", packets.swap.ToText()},
          {"silent", faults.silent},
          {"http", faults.http.ToText()},
          {"rtsp", faults.rtsp.ToText()}};
}

json ToJson(const FaultCounts& counts) {
  return {{"lost", counts.lost},           {"duplicated", counts.duplicated}, {"reordered", counts.reordered},
          {"truncated", counts.truncated}, {"corrupted", counts.corrupted},   {"garbage", counts.garbage},
          {"oversized", counts.oversized}, {"emptied", counts.emptied},       {"strangers", counts.strangers},
          {"mistyped", counts.mistyped},   {"unmarked", counts.unmarked},     {"swapped", counts.swapped},
          {"reports", counts.reports},     {"http", counts.httpReplies},      {"rtsp", counts.rtspReplies},
          {"reboots", counts.reboots}};
}

json ToJson(const HeadStatus& head) {
  return {{"protocol", head.protocol},   {"pan", head.pan},           {"tilt", head.tilt},
          {"zoom", head.zoom},           {"focus", head.focus},       {"iris", head.iris},
          {"moving", head.moving},       {"frames", head.frames},     {"errors", head.errors},
          {"lastError", head.lastError}, {"lastSlot", head.lastSlot}, {"presets", head.presets}};
}

}  // namespace

json ToJson(const CameraStatus& status) {
  const CameraCounters& counters = status.counters;
  return {{"address", status.address},
          {"model", status.model},
          {"group", status.group},
          {"up", status.up},
          {"sessions", status.sessions},
          {"playing", status.playing},
          {"configured", status.configured},
          {"video", ToJson(status.video)},
          {"format", status.format},
          {"frames",
           {{"encoded", status.framesEncoded},
            {"sent", counters.framesSent},
            {"dropped", counters.framesDropped},
            {"last", counters.lastFrame}}},
          {"packets", counters.packets},
          {"bytes", counters.bytes},
          {"sendErrors", counters.sendErrors},
          {"rtcp",
           {{"reports", counters.reportsSent},
            {"answersOk", counters.answersOk},
            {"answersBad", counters.answersBad},
            {"answersStray", counters.answersStray},
            {"lastBadAnswer", counters.lastBadAnswer}}},
          {"http", counters.httpRequests},
          {"rtsp", counters.rtspRequests},
          {"authFailures", counters.authFailures},
          {"badRequests", counters.badRequests},
          {"faults", ToJson(status.faults)},
          {"faultsApplied", ToJson(counters.faults)},
          {"inputs", status.inputs},
          {"outputs", status.outputs},
          {"head", ToJson(status.head)},
          {"requests", status.requests}};
}

}  // namespace simcam
