// The layouts that travel, against a table of the published offsets.

#include <gtest/gtest.h>

#include <cstddef>

#include "protocol/message.h"
#include "protocol/records.h"
#include "support/RawClient.h"

namespace quillwork {
namespace {

struct Field {
  const char* name;
  std::size_t offset;
  std::size_t published;
};

#define FIELD(record, field, published) \
  Field { #record "." #field, offsetof(record, field), published }

TEST(Layout, EveryFieldOfAWireRecordStandsWhereItIsPublished) {
  const Field fields[] = {
      FIELD(message, group, 0),
      FIELD(message, reserved, 4),
      FIELD(message, type, 8),
      FIELD(message, payload, 12),
      FIELD(service, value_1, 0),
      FIELD(service, value_2, 4),
      FIELD(service, value_3, 8),
      FIELD(service, value_4, 12),
      FIELD(service, value_5, 16),
      FIELD(service, reserved, 20),
      FIELD(service, name, 24),
      FIELD(service, reserved_tail, 279),
      FIELD(service_component, value_1, 0),
      FIELD(service_component, value_2, 4),
      FIELD(service_component, value_3, 8),
      FIELD(service_component, value_4, 12),
      FIELD(service_component, value_5, 16),
      FIELD(service_component, value_6, 20),
      FIELD(pmt, value_1, 0),
      FIELD(pmt, value_2, 4),
      FIELD(pmt, value_3, 8),
      FIELD(pmt, value_4, 12),
      FIELD(program_event, value_1, 0),
      FIELD(program_event, value_2, 4),
      FIELD(program_event, value_3, 8),
      FIELD(program_event, value_4, 12),
      FIELD(program_event, value_5, 16),
      FIELD(program_event, value_6, 20),
      FIELD(program_event, value_7, 24),
      FIELD(program_event, value_8, 28),
      FIELD(program_event, text_1, 32),
      FIELD(program_event, text_2, 287),
      FIELD(program_event, text_3, 542),
      FIELD(program_event, padding, 797),
      FIELD(program_event, byte_list_1_count, 800),
      FIELD(program_event, byte_list_2_count, 804),
      FIELD(program_event, byte_list_3_count, 808),
      FIELD(program_event, text_list_1_count, 812),
      FIELD(program_event, text_list_2_count, 816),
      FIELD(program_event, text_list_3_count, 820),
      FIELD(program_event, byte_list_1, 824),
      FIELD(program_event, byte_list_2, 824 + sizeof(void*)),
      FIELD(program_event, byte_list_3, 824 + 2 * sizeof(void*)),
      FIELD(program_event, text_list_1, 824 + 3 * sizeof(void*)),
      FIELD(program_event, text_list_2, 824 + 4 * sizeof(void*)),
      FIELD(program_event, text_list_3, 824 + 5 * sizeof(void*)),
      FIELD(network, network_value, 0),
      FIELD(network, name, 4),
      FIELD(network, padding, 259),
      FIELD(transport_stream, value_1, 0),
      FIELD(transport_stream, value_2, 4),
      FIELD(transport_stream, value_3, 8),
      FIELD(transport_stream, reserved, 12),
      FIELD(transport_stream, real_value, 16),
      FIELD(transport_stream, mode, 20),
      FIELD(transport_stream, reserved_tail, 24),
      FIELD(system_property, reserved, 0),
      FIELD(system_property, name, 4),
      FIELD(system_property, value, 259),
      FIELD(system_property, padding, 514),
      FIELD(tuner_data, kind, 0),
      FIELD(tuner_data, argument, 4),
      FIELD(video_data, type, 0),
      FIELD(video_data, x, 4),
      FIELD(video_data, y, 8),
      FIELD(video_data, width, 12),
      FIELD(video_data, height, 16),
      FIELD(audio_data, type, 0),
      FIELD(audio_data, padding, 4),
      FIELD(audio_data, level, 8),
      FIELD(video_region, x, 0),
      FIELD(video_region, y, 4),
      FIELD(video_region, width, 8),
      FIELD(video_region, height, 12),
  };
  for (const Field& field : fields) EXPECT_EQ(field.offset, field.published) << field.name;
}

TEST(Layout, EveryWireRecordHasItsPublishedSize) {
  EXPECT_EQ(sizeof(message), 1960U);
  EXPECT_EQ(sizeof(service), 540U);
  EXPECT_EQ(sizeof(service_component), 24U);
  EXPECT_EQ(sizeof(pmt), 16U);
  EXPECT_EQ(sizeof(program_event), 824U + 6 * sizeof(void*));
  EXPECT_EQ(programEventSize, 848U);
  EXPECT_EQ(sizeof(network), 260U);
  EXPECT_EQ(sizeof(transport_stream), 280U);
  EXPECT_EQ(sizeof(system_property), 516U);
  EXPECT_EQ(sizeof(tuner_data), 8U);
  EXPECT_EQ(sizeof(video_data), 1952U);
  EXPECT_EQ(sizeof(audio_data), 16U);
  EXPECT_EQ(alignof(audio_data), 8U);
  EXPECT_EQ(sizeof(video_region), 16U);
  EXPECT_EQ(sizeof(ipcutil::Rectangle_t), 16U);
}

TEST(Message, EachOfThe490WordsIsReachedByItsIndex) {
  message record{};
  for (std::size_t index = 0; index < 490; ++index) {
    record[index] = static_cast<std::int32_t>(index * 3 + 1);
  }
  const message& same = record;
  const std::string bytes = bytesOf(record);
  for (std::size_t index = 0; index < 490; ++index) {
    EXPECT_EQ(same[index], static_cast<std::int32_t>(index * 3 + 1));
    EXPECT_EQ(bytes.substr(index * 4, 4), word(static_cast<std::int32_t>(index * 3 + 1)));
  }
  EXPECT_EQ(record.group, 1);
  EXPECT_EQ(record.reserved, 4);
  EXPECT_EQ(record.type, 7);
  EXPECT_EQ(record.payload[0], 10);
}

TEST(Message, AShortStringIsCutTo254CharactersAndFilledWithZeroes) {
  message record;
  std::memset(&record, 0x55, sizeof record);
  putShortString(record, 12, std::string(300, 'x'));
  const std::string bytes = bytesOf(record);
  EXPECT_EQ(bytes.substr(12, 254), std::string(254, 'x'));
  EXPECT_EQ(bytes[266], '\0');
  EXPECT_EQ(bytes[267], '\x55');
  putShortString(record, 267, "ab");
  EXPECT_EQ(bytesOf(record).substr(267, 255), "ab" + std::string(253, '\0'));
  EXPECT_EQ(bytesOf(record)[522], '\x55');
  putShortString(record, 12, "");
  EXPECT_EQ(bytesOf(record).substr(12, 255), std::string(255, '\0'));
}

TEST(Message, AStringIsReadUpToItsZeroByteOrTheRecordsEnd) {
  message record{};
  putShortString(record, 12, "name");
  EXPECT_EQ(getString(record, 12), "name");
  std::memset(&record, 'y', sizeof record);
  EXPECT_EQ(getString(record, 12), std::string(1948, 'y'));
  EXPECT_EQ(getString(record, 16), std::string(1944, 'y'));
}

TEST(Message, ABooleanIsOneByteAndLeavesTheRestOfItsWord) {
  message record{};
  for (const std::size_t position : {12U, 16U, 24U}) {
    record[position / 4] = 0x11223344;
    putBoolean(record, position, true);
    EXPECT_EQ(record[position / 4], 0x11223301);
    EXPECT_TRUE(getBoolean(record, position));
    putBoolean(record, position, false);
    EXPECT_EQ(record[position / 4], 0x11223300);
    EXPECT_FALSE(getBoolean(record, position));
    record[position / 4] = 0x80;
    EXPECT_TRUE(getBoolean(record, position));
  }
}

TEST(Message, ADoubleTravelsAsItsEightBytes) {
  message record{};
  put(record, 16, 0.75);
  EXPECT_EQ(bytesOf(record).substr(16, 8), std::string("\0\0\0\0\0\0\xe8\x3f", 8));
  EXPECT_EQ(get<double>(record, 16), 0.75);
}

TEST(TextField, ATextOf254CharactersFillsItAndALongerOneIsCut) {
  service record{};
  setFieldText(record.name, std::string(254, 'a'));
  EXPECT_EQ(record.name[253], 'a');
  EXPECT_EQ(record.name[254], '\0');
  setFieldText(record.name, std::string(300, 'b'));
  EXPECT_EQ(fieldText(record.name), std::string(254, 'b'));
  setFieldText(record.name, "");
  EXPECT_EQ(std::string(record.name, 255), std::string(255, '\0'));
}

TEST(TextField, AFieldWithoutAZeroByteIsReadUpToItsEnd) {
  system_property property{};
  std::memset(property.name, 'n', sizeof property.name);
  std::memset(property.value, 'v', sizeof property.value);
  EXPECT_EQ(fieldText(property.name), std::string(255, 'n'));
  EXPECT_EQ(fieldText(property.value), std::string(255, 'v'));
}

TEST(VideoData, ItsTextCanFillTheRecordAndItsFlagIsAnyByteButZero) {
  message record{};
  std::memset(&record, 't', sizeof record);
  EXPECT_EQ(get<video_data>(record, 8).text(), std::string(1948, 't'));
  EXPECT_TRUE(get<video_data>(record, 8).flag());
  record[3] = 0x100;
  EXPECT_FALSE(get<video_data>(record, 8).flag());
  EXPECT_EQ(get<video_data>(record, 8).text(), "");
}

}  // namespace
}  // namespace quillwork
