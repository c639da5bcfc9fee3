#pragma once

#include <deque>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "simcam/cgi/CgiDevice.h"
#include "simcam/device/CameraSettings.h"
#include "simcam/device/CameraStatus.h"
#include "simcam/device/Faults.h"
#include "simcam/head/PtzHead.h"
#include "simcam/net/HttpService.h"
#include "simcam/net/RtspService.h"
#include "simcam/net/TcpServer.h"
#include "simcam/stream/RtpSender.h"
#include "simcam/stream/StreamHub.h"

namespace simcam {

/// One camera: its servers, streams, pins and head. Everything happens on the loop's thread.
class Camera : public CgiDevice, public RtspHost {
 public:
  /// Completed settings. The loop, hub and pacer outlive the camera; the number tells cameras apart.
  Camera(EventLoop& loop, StreamHub& hub, Pacer& pacer, const CameraSettings& settings, std::uint64_t number);
  ~Camera() override;

  /// Begins to listen. False, with a sentence, when an address can't be bound.
  bool Open(std::string& error);

  /// Gone at once, with all its connections and sessions, and back after that time with outputs low, new
  /// session numbers and SSRCs. Its configuration and its head's stored positions survive.
  void Reboot(Milliseconds gone);

  CameraStatus Status();
  void Note(std::string request);  ///< remembers a request's text for the status

  Faults& faults() { return faults_; }
  CameraCounters& counters() { return counters_; }
  Inputs& pins() { return inputs_; }
  void ApplyRefusal();              ///< opens or closes the servers as the faults want it
  void AnswerAs(Group group);       ///< speaks as the other firmware line from now on
  void Reseed(std::uint64_t seed);  ///< draws anew from here

  // CgiDevice
  const CameraSettings& settings() const override { return settings_; }
  void Configure(const VideoSettings& video) override;
  const Inputs& inputs() const override { return inputs_; }
  bool output(unsigned index) const override { return outputs_[index]; }
  void SetOutput(unsigned index, bool high) override;
  void WriteSerial(std::span<const std::uint8_t> bytes) override;

  // RtspHost
  Group group() const override { return settings_.group; }
  std::string address() const override { return settings_.address; }
  std::string sessionDescription() const override;
  std::optional<ReplyFault> OnRtspRequest(const RtspRequest& request) override;
  RtpSender* AddStream(const sockaddr_in& rtp, const sockaddr_in& rtcp, bool isPlayer) override;
  void PlayStream(RtpSender* stream) override;
  void EndStream(RtpSender* stream) override;
  std::uint16_t serverPort() const override { return sockets_->rtpPort(); }
  std::uint64_t DrawSessionNumber() override { return dice_(); }

 private:
  void SpoilAtConnect(Connection& connection, ReplyFault& fault, std::uint64_t& count);
  void LeaveIfAsked(const ReplyFault& fault);
  HttpReply AnswerHttp(const HttpRequest& request);
  HttpReply RunCgi(const HttpRequest& request);
  bool Authorized(const HttpRequest& request) const;
  bool Listen(std::string& error);
  void TakeReport(const sockaddr_in& from, std::span<const std::uint8_t> datagram);
  View Look();
  StreamFormat Format() const;
  void Refit();  ///< gives all playing streams the source that fits the settings and the view

  EventLoop& loop_;
  StreamHub& hub_;
  Pacer& pacer_;
  CameraSettings settings_;
  const std::uint64_t number_;
  Faults faults_;
  CameraCounters counters_;
  std::mt19937_64 dice_;
  Inputs inputs_;
  std::vector<bool> outputs_;
  PtzHead head_;
  bool configured_ = false;
  bool ownView_ = false;  // shows something that other cameras don't: needs an encoder of its own
  std::deque<std::string> requests_;
  bool up_ = false;
  Timer rebootTimer_;
  Milliseconds goneFor_{0};
  Timer leaveTimer_;                  // a camera can't go while it answers
  std::unique_ptr<UdpPair> sockets_;  // opened for the first stream
  std::vector<std::unique_ptr<RtpSender>> streams_;
  // Last, so that they go first: their connections end streams.
  TcpServer http_, rtsp_;
};

}  // namespace simcam
