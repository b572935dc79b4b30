#include "receiver/NetworkInput.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <gst/app/gstappsink.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <new>
#include <string_view>
#include <utility>

#include "receiver/Complaint.h"

namespace receiver {
namespace {

/// How long a server may take to send something, before the receiver goes on without it.
constexpr std::chrono::seconds patience{10};
constexpr std::chrono::milliseconds betweenLooks{100};
/// Of the kernel's buffer for datagrams, as much of it as it grants.
constexpr int socketBuffer = 8 << 20;

struct FreeUri {
  void operator()(GstUri* uri) const { gst_uri_unref(uri); }
};
using Uri = std::unique_ptr<GstUri, FreeUri>;
using Options = std::map<std::string, std::string>;

/// A URL in its parts.
struct Address {
  std::string scheme;
  std::string host;
  unsigned port = 0;
  Options options;
};

std::string orEmpty(const char* text) { return text == nullptr ? "" : text; }

Address parse(const std::string& url) {
  const Uri uri(gst_uri_from_string(url.c_str()));
  if (!uri) throw StreamError(url + ": is not a URL");
  Address address;
  address.scheme = orEmpty(gst_uri_get_scheme(uri.get()));
  address.host = orEmpty(gst_uri_get_host(uri.get()));
  address.port = gst_uri_get_port(uri.get());
  if (GHashTable* const table = gst_uri_get_query_table(uri.get())) {
    GHashTableIter iterator;
    void* name = nullptr;
    void* value = nullptr;
    g_hash_table_iter_init(&iterator, table);
    while (g_hash_table_iter_next(&iterator, &name, &value) != 0) {
      address.options[static_cast<const char*>(name)] = orEmpty(static_cast<const char*>(value));
    }
    g_hash_table_unref(table);
  }
  return address;
}

/// Sets a property from text. False where there is no such property, or the text is none of its
/// values.
bool setProperty(const gst::Element& element, const std::string& name, const std::string& text) {
  const GParamSpec* const specification =
      g_object_class_find_property(G_OBJECT_GET_CLASS(element.get()), name.c_str());
  if (specification == nullptr || (specification->flags & G_PARAM_WRITABLE) == 0) return false;
  GValue value = G_VALUE_INIT;
  g_value_init(&value, specification->value_type);
  const bool isValue = gst_value_deserialize(&value, text.c_str()) != 0;
  if (isValue) g_object_set_property(G_OBJECT(element.get()), name.c_str(), &value);
  g_value_unset(&value);
  return isValue;
}

/// An option's name in a URL, and whose property it is.
struct Option {
  const char* name;
  const char* element;
  const char* property;
};
constexpr Option datagramOptions[] = {{"interface", "source", "multicast-iface"},
                                      {"latency", "jitter", "latency"}};

void setOptions(const std::string& url, const gst::Element& pipeline, const Address& address) {
  const gst::Element source = gst::find(pipeline, "source");
  for (const auto& [name, value] : address.options) {
    std::string property = name;
    gst::Element element(GST_ELEMENT(gst_object_ref(source.get())));
    if (address.scheme != "dvb") {
      const auto* const option = std::ranges::find(datagramOptions, name, &Option::name);
      element =
          option == std::end(datagramOptions) ? nullptr : gst::find(pipeline, option->element);
      if (element) property = option->property;
    }
    if (!element || !setProperty(element, property, value)) {
      throw StreamError(
          fmt::format("{}: '{}={}' is no option of {}://", url, name, value, address.scheme));
    }
  }
}

/// Whether the address is that of a group, which many can join.
bool isGroup(const std::string& host) {
  in_addr four{};
  in6_addr six{};
  return (inet_pton(AF_INET, host.c_str(), &four) == 1 && IN_MULTICAST(ntohl(four.s_addr))) ||
         (inet_pton(AF_INET6, host.c_str(), &six) == 1 && IN6_IS_ADDR_MULTICAST(&six));
}

void setDatagrams(const std::string& url, const gst::Element& source, const Address& address) {
  if (address.port == 0 || address.port > UINT16_MAX) {
    throw StreamError(fmt::format("{}: is not {}://ADDRESS:PORT", url, address.scheme));
  }
  const std::string host = address.host.empty() ? "0.0.0.0" : address.host;
  // Several receivers may join a group; an address of this machine's is one receiver's.
  g_object_set(source.get(), "address", host.c_str(), "port", static_cast<int>(address.port),
               "reuse", isGroup(host) ? TRUE : FALSE, "buffer-size", socketBuffer,
               "retrieve-sender-address", FALSE, nullptr);
}

void setAdapter(const std::string& url, const gst::Element& source, const Address& address) {
  const std::string adapter = address.host.substr(0, address.host.find('.'));
  const std::string frontend =
      adapter.size() == address.host.size() ? "0" : address.host.substr(adapter.size() + 1);
  const auto isNumber = [](const std::string& text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
  };
  if (!isNumber(adapter) || !isNumber(frontend) || !setProperty(source, "adapter", adapter) ||
      !setProperty(source, "frontend", frontend)) {
    throw StreamError(url + ": is not dvb://ADAPTER[.FRONTEND]?frequency=NUMBER...");
  }
  if (!address.options.contains("frequency")) {
    throw StreamError(url + ": has no frequency");
  }
}

/// The elements of each scheme.
struct Scheme {
  const char* name;
  const char* elements;
  bool isLive;  ///< its sender does not wait
};
constexpr Scheme schemes[] = {
    {"udp", "udpsrc name=source", true},
    {"rtp",
     "udpsrc name=source caps=application/x-rtp,media=video,clock-rate=90000,encoding-name=MP2T"
     " ! rtpjitterbuffer name=jitter ! rtpmp2tdepay",
     true},
    {"srt", "srtsrc name=source", true},
    {"http", "urisourcebin name=source use-buffering=false", false},
    {"https", "urisourcebin name=source use-buffering=false", false},
    {"dvb", "dvbsrc name=source", true},
};

const Scheme& schemeOf(const std::string& url) {
  const auto* const found =
      std::ranges::find(schemes, url.substr(0, url.find("://")), &Scheme::name);
  if (found != std::end(schemes)) return *found;
  throw StreamError(url +
                    ": is no source: a file, '-', udp://, rtp://, srt://, http://, https:// or "
                    "dvb:// is");
}

/// What an error is about: the element's own words are behind the place in its source.
std::string errorText(GstMessage* message) {
  GError* error = nullptr;
  gchar* details = nullptr;
  gst_message_parse_error(message, &error, &details);
  std::string text = error->message;
  while (text.ends_with('.')) text.pop_back();
  std::string_view last = details == nullptr ? "" : details;
  const std::size_t line = last.rfind('\n');
  if (line != std::string_view::npos)
    fmt::format_to(std::back_inserter(text), " ({})", last.substr(line + 1));
  g_error_free(error);
  g_free(details);
  return text;
}

}  // namespace

gst::Element makeReception(const std::string& url) {
  const Scheme& scheme = schemeOf(url);
  if (!gst::prepare()) throw StreamError(url + ": GStreamer cannot be used");
  const Address address = parse(url);
  GError* error = nullptr;
  const std::string description =
      std::string(scheme.elements) + " ! appsink name=sink sync=false enable-last-sample=false";
  gst::Element pipeline(
      gst_parse_launch_full(description.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &error));
  if (error != nullptr) {
    const std::string text = error->message;
    g_error_free(error);
    throw StreamError(url + ": GStreamer: " + text);
  }
  gst_object_ref_sink(pipeline.get());
  const gst::Element source = gst::find(pipeline, "source");
  if (address.scheme == "udp" || address.scheme == "rtp") {
    setDatagrams(url, source, address);
    setOptions(url, pipeline, address);
  } else if (address.scheme == "dvb") {
    setAdapter(url, source, address);
    setOptions(url, pipeline, address);
  } else {
    g_object_set(source.get(), "uri", url.c_str(), nullptr);
  }
  return pipeline;
}

NetworkInput::NetworkInput(const std::string& url, const std::function<bool()>& isToEnd)
    : url_(url), isLive_(schemeOf(url).isLive) {
  start();
  std::unique_lock lock(mutex_);
  // A server answers or refuses; a sender that does not wait may begin whenever it likes.
  const auto hasAnswered = [this] { return isLive_ || hasEnded_ || !bytes_.empty(); };
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!changed_.wait_for(lock, betweenLooks, hasAnswered) && !isToEnd() &&
         std::chrono::steady_clock::now() < deadline) {
  }
  if (!hasEnded_ || error_.empty()) return;
  const std::string error = error_;
  lock.unlock();
  stop();
  throw StreamError(url_ + ": " + error);
}

NetworkInput::~NetworkInput() { stop(); }

void NetworkInput::start() {
  // New ones each time: an element that links itself when its stream begins does so once.
  pipeline_ = makeReception(url_);
  const gst::Element sink = gst::find(pipeline_, "sink");
  g_object_set(sink.get(), "emit-signals", TRUE, nullptr);
  g_signal_connect(sink.get(), "new-sample", G_CALLBACK(onSample), this);
  GstBus* const bus = gst_element_get_bus(pipeline_.get());
  gst_bus_set_sync_handler(bus, onMessage, this, nullptr);
  gst_object_unref(bus);
  if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
    const std::lock_guard lock(mutex_);
    if (error_.empty()) error_ = "cannot be received";
    hasEnded_ = true;
  }
}

void NetworkInput::stop() {
  {
    const std::lock_guard lock(mutex_);
    isStopping_ = true;
    changed_.notify_all();
  }
  gst_element_set_state(pipeline_.get(), GST_STATE_NULL);
  const std::lock_guard lock(mutex_);
  isStopping_ = false;
}

bool NetworkInput::restart() {
  {
    const std::lock_guard lock(mutex_);
    // What has brought nothing would bring nothing again, in no time and for ever.
    if (!hasEnded_ || isInterrupted_ || !std::exchange(hasBrought_, false)) return false;
  }
  stop();
  {
    const std::lock_guard lock(mutex_);
    bytes_.clear();
    error_.clear();
    hasEnded_ = false;
  }
  start();
  return true;
}

void NetworkInput::interrupt() {
  const std::lock_guard lock(mutex_);
  isInterrupted_ = true;
  changed_.notify_all();
}

ByteInput::Arrival NetworkInput::read(PacketFramer& framer, std::chrono::milliseconds time) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, time, [this] { return isInterrupted_ || hasEnded_ || !bytes_.empty(); });
  if (isInterrupted_) return Arrival::end;
  if (!bytes_.empty()) {
    const std::span<std::uint8_t> room = framer.room(bytes_.size());
    std::copy(bytes_.begin(), bytes_.end(), room.begin());
    framer.add(bytes_.size());
    bytes_.clear();
    hasBrought_ = true;
    changed_.notify_all();
    return Arrival::bytes;
  }
  if (!hasEnded_) return Arrival::nothing;
  if (!error_.empty()) {
    complain("{}: {}", url_, std::exchange(error_, {}));
  }
  return Arrival::end;
}

bool NetworkInput::isReady() {
  const std::lock_guard lock(mutex_);
  return !bytes_.empty() || hasEnded_;
}

void NetworkInput::end() {
  const std::lock_guard lock(mutex_);
  hasEnded_ = true;
  changed_.notify_all();
}

GstFlowReturn NetworkInput::onSample(GstElement* sink, void* self) {
  GstSample* const sample = gst_app_sink_pull_sample(GST_APP_SINK(sink));
  if (sample == nullptr) return GST_FLOW_EOS;
  static_cast<NetworkInput*>(self)->take(sample);
  gst_sample_unref(sample);
  return GST_FLOW_OK;
}

void NetworkInput::take(GstSample* sample) {
  GstMapInfo info;
  GstBuffer* const buffer = gst_sample_get_buffer(sample);
  if (buffer == nullptr || gst_buffer_map(buffer, &info, GST_MAP_READ) == 0) return;
  {
    std::unique_lock lock(mutex_);
    // A server waits for its reader.
    const auto hasRoom = [&] {
      return isStopping_ || isInterrupted_ || bytes_.empty() ||
             bytes_.size() + info.size <= mostBytes;
    };
    if (!isLive_) changed_.wait(lock, hasRoom);
    bool isLost = !hasRoom();
    if (!isLost) {
      try {
        bytes_.insert(bytes_.end(), info.data, info.data + info.size);
      } catch (const std::bad_alloc&) {
        isLost = true;
      }
    }
    if (isLost && !std::exchange(hasLost_, true)) {
      complain("{}: comes faster than it is read; packets are lost", url_);
    }
    changed_.notify_all();
  }
  gst_buffer_unmap(buffer, &info);
}

GstBusSyncReply NetworkInput::onMessage(GstBus*, GstMessage* message, void* self) {
  auto* const input = static_cast<NetworkInput*>(self);
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
    const std::string text = errorText(message);
    {
      const std::lock_guard lock(input->mutex_);
      // The first one is the cause of the others.
      if (input->error_.empty()) input->error_ = text;
    }
    input->end();
  }
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) input->end();
  gst_message_unref(message);
  return GST_BUS_DROP;
}

std::unique_ptr<Source> openUrl(const std::string& url, const std::function<bool()>& isToEnd) {
  return std::make_unique<LiveSource>(url, std::make_unique<NetworkInput>(url, isToEnd));
}

}  // namespace receiver
