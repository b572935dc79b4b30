// What a URL becomes: elements that are not started.

#include "receiver/NetworkInput.h"

#include <gtest/gtest.h>

#include <string>

namespace receiver {
namespace {

/// An element's property as text.
std::string property(const gst::Element& pipeline, const char* element, const char* name) {
  const gst::Element found = gst::find(pipeline, element);
  if (!found) return "no element";
  GValue value = G_VALUE_INIT;
  g_object_get_property(G_OBJECT(found.get()), name, &value);
  // A text would be put between quotes.
  gchar* const text =
      G_VALUE_HOLDS_STRING(&value) ? g_value_dup_string(&value) : gst_value_serialize(&value);
  std::string result = text == nullptr ? "" : text;
  g_free(text);
  g_value_unset(&value);
  return result;
}

class Reception : public testing::Test {
 protected:
  void SetUp() override {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer does not see through GStreamer";
#endif
  }
};

TEST_F(Reception, AnAdapterIsTunedWithWhatTheUrlSays) {
  const gst::Element terrestrial =
      makeReception("dvb://3.1?frequency=506000000&delsys=dvb-t2&bandwidth-hz=8000000&stream-id=2");
  EXPECT_EQ(property(terrestrial, "source", "adapter"), "3");
  EXPECT_EQ(property(terrestrial, "source", "frontend"), "1");
  EXPECT_EQ(property(terrestrial, "source", "frequency"), "506000000");
  EXPECT_EQ(property(terrestrial, "source", "delsys"), "dvb-t2");
  EXPECT_EQ(property(terrestrial, "source", "bandwidth-hz"), "8000000");
  EXPECT_EQ(property(terrestrial, "source", "stream-id"), "2");
  const gst::Element satellite =
      makeReception("dvb://0?frequency=11836000&delsys=dvb-s&symbol-rate=27500&polarity=V");
  EXPECT_EQ(property(satellite, "source", "adapter"), "0");
  EXPECT_EQ(property(satellite, "source", "frontend"), "0");
  EXPECT_EQ(property(satellite, "source", "symbol-rate"), "27500");
  EXPECT_EQ(property(satellite, "source", "polarity"), "V");
}

TEST_F(Reception, DatagramsAndRtpHaveTheirPlaceAndTheirOptions) {
  const gst::Element group = makeReception("udp://@239.1.2.3:5000?interface=eth7");
  EXPECT_EQ(property(group, "source", "address"), "239.1.2.3");
  EXPECT_EQ(property(group, "source", "port"), "5000");
  EXPECT_EQ(property(group, "source", "multicast-iface"), "eth7");
  EXPECT_EQ(property(group, "source", "reuse"), "true");
  const gst::Element own = makeReception("rtp://[::1]:5004?latency=70");
  EXPECT_EQ(property(own, "source", "address"), "::1");
  EXPECT_EQ(property(own, "source", "reuse"), "false");
  EXPECT_EQ(property(own, "jitter", "latency"), "70");
  EXPECT_EQ(property(makeReception("udp://:5000"), "source", "address"), "0.0.0.0");
}

TEST_F(Reception, SrtAndHttpTakeTheUrlAsItIs) {
  for (const char* const url : {"https://example.org:8443/a/b.ts?c=d", "http://[::1]/x"}) {
    EXPECT_EQ(property(makeReception(url), "source", "uri"), url);
  }
  const gst::Element listener = makeReception("srt://:7000?mode=listener&latency=300");
  EXPECT_EQ(property(listener, "source", "mode"), "listener");
  EXPECT_EQ(property(listener, "source", "latency"), "300");
}

}  // namespace
}  // namespace receiver

// NOLINTBEGIN(bugprone-reserved-identifier): the name is the runtime's.
/// GLib keeps its table of names for as long as the process lives, where no pointer shows it.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libglib-2.0.so\n";
}
// NOLINTEND(bugprone-reserved-identifier)
