#include "support/AskEverything.h"

#include <gtest/gtest.h>

void askEverything(quillwork::client::ControlChannel& channel) {
  using Texts = std::vector<std::string>;
  using Bytes = std::vector<std::uint8_t>;
  const auto services = channel.getServices();
  ASSERT_EQ(services.size(), 2U);
  EXPECT_EQ(services[0].name, "Alpha TV");
  EXPECT_EQ(services[1].values[4], -5);
  EXPECT_EQ(channel.getVideoLanguages(), (Texts{"por", "eng", "spa"}));
  // A listener that leaves them alone would pass for an answer with any others.
  EXPECT_EQ(channel.getMainVideoBounds({-1, -1, -1, -1}).width, 640);
  const auto events = channel.getProgramEvents();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(events[0].byteLists[0], (Bytes{1, 2}));
  EXPECT_EQ(events[0].textLists[0], (Texts{"first", "", "second"}));
  EXPECT_EQ(events[1].byteLists[0], (Bytes{3, 4, 5}));
  EXPECT_EQ(events[1].textLists[1].front().size(), 400U);
  EXPECT_EQ(channel.getProgramEvent().values[1], 2);
  const auto descriptors = channel.getNetworkDescriptors();
  ASSERT_EQ(descriptors.size(), 3U);
  EXPECT_EQ(descriptors[0].data, (Bytes{'a', 'b', 'c'}));
  EXPECT_EQ(descriptors[2].tag, -1);
  EXPECT_EQ(channel.getSystemProperties().at(1).value, "2");
  EXPECT_EQ(channel.getAllIDs(1, 2), (std::vector<std::int32_t>{1, -2, 65535}));
  EXPECT_EQ(channel.mountCarousel("locator"), "/mnt/oc");
  EXPECT_EQ(channel.open("locator").player, 9);
  EXPECT_EQ(channel.getCurrentTime(1), 12);
  EXPECT_EQ(channel.getNetwork().value, 65281);
  EXPECT_EQ(channel.getTransportStream().real, 570.5F);
  EXPECT_EQ(channel.getPMTs(1).size(), 2U);
  EXPECT_EQ(channel.getServiceComponents(1).size(), 2U);
  EXPECT_TRUE(channel.checkVersionFlag(1));
  channel.setMediaMute(1, true);
  channel.setMediaSoundLevel(1, 0.5);
  channel.setSystemProperty("name", "value");
}

void askEverything(quillwork::client::SectionFilterChannel& channel) {
  channel.start();
  channel.stop();
  channel.set_pid(256);
  channel.set_table_id(66);
  channel.set_positive_filter(1, {1}, {2, 3});
  channel.set_greater_than_filter(2, {}, {});
  channel.set_less_than_filter(3, {4}, {5});
  channel.set_xor_filter(4, {1}, {2}, {3});
  channel.set_time_out(-1);
  channel.clear_table_id();
  channel.clear_positive_filter();
  channel.clear_less_than_filter();
  channel.clear_xor_filter();
  EXPECT_EQ(channel.read_section(), std::vector<std::uint8_t>(4096, 's'));
}

const std::vector<std::string> everySectionFilterCall = {
    "start()",
    "stop()",
    "set_pid(256)",
    "set_table_id(66)",
    "set_positive_filter(1, {01}, {02 03})",
    "set_greater_than_filter(2, {}, {})",
    "set_less_than_filter(3, {04}, {05})",
    "set_xor_filter(4, {01}, {02}, {03})",
    "set_time_out(-1)",
    "clear_table_id()",
    "clear_positive_filter()",
    "clear_less_than_filter()",
    "clear_xor_filter()",
    "read_section()",
};
