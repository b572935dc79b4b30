#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "receiver/Gst.h"
#include "receiver/Source.h"

namespace receiver {

/// The elements that receive what a URL names, with an application sink called "sink" at their end;
/// they are not started. Throws StreamError for a URL or an option that is none, and where an
/// element is missing. docs/receiver.md has the URLs and their options.
gst::Element makeReception(const std::string& url);

/// What is received through GStreamer: datagrams, RTP, SRT, HTTP, or a DVB adapter. It is taken off
/// the network on a thread of GStreamer's, which waits for nobody where the sender does not wait.
class NetworkInput : public ByteInput {
 public:
  /// What a sender that does not wait has sent in vain, when so much has not been read.
  static constexpr std::size_t mostBytes = std::size_t{32} << 20U;

  /// Waits until a server has answered, but no longer once `isToEnd`, which is asked several times
  /// a second. Throws StreamError for what cannot be received.
  NetworkInput(const std::string& url, const std::function<bool()>& isToEnd);
  ~NetworkInput() override;

  Arrival read(PacketFramer& framer, std::chrono::milliseconds time) override;
  bool isReady() override;
  bool restart() override;
  void interrupt() override;
  [[nodiscard]] bool keepsPace() const override { return isLive_; }

 private:
  void start();
  void stop();
  void take(GstSample* sample);
  void end();
  static GstFlowReturn onSample(GstElement* sink, void* self);
  static GstBusSyncReply onMessage(GstBus* bus, GstMessage* message, void* self);

  const std::string url_;
  const bool isLive_;
  gst::Element pipeline_;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::uint8_t> bytes_;
  std::string error_;        ///< why it has ended, empty for a plain end
  bool hasBrought_ = false;  ///< bytes, since it was started
  bool hasEnded_ = false;
  bool isInterrupted_ = false;
  bool isStopping_ = false;
  bool hasLost_ = false;
};

/// The source of a URL, made as a NetworkInput is. Throws StreamError for what cannot be received.
std::unique_ptr<Source> openUrl(const std::string& url, const std::function<bool()>& isToEnd);

}  // namespace receiver
