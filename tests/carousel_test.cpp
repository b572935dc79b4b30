// An object carousel out of its sections, whole ones and broken ones.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <random>
#include <sstream>

#include "receiver/ObjectCarousel.h"
#include "sample/carousel_sections.h"
#include "support/Watchdog.h"

namespace receiver {
namespace {

using namespace sample;

constexpr std::uint32_t number = 9;
using Kind = CarouselObject::Kind;

CarouselObject directory() { return {}; }

CarouselObject file(const std::string& text) {
  CarouselObject object;
  object.kind = Kind::file;
  object.content = std::make_shared<const std::vector<std::uint8_t>>(text.begin(), text.end());
  return object;
}

CarouselObject events(Kind kind, int tag, std::vector<std::pair<std::string, std::uint16_t>> list) {
  CarouselObject object;
  object.kind = kind;
  object.componentTag = tag;
  object.events = std::move(list);
  return object;
}

const CarouselTree& wholeTree() {
  static const CarouselTree tree = {
      {"/a", directory()},
      {"/a/b", directory()},
      {"/a/b/empty", file("")},
      {"/a/big", file(std::string(20'000, 'x'))},
      {"/start", events(Kind::streamEvent, 7, {{"one", 1}, {"two", 0x1234}})},
      {"/video", events(Kind::stream, 8, {})},
      {"/zero", file(std::string(3, '\0'))},
  };
  return tree;
}

/// Whether any of the sections has completed a tree.
bool takeAll(ObjectCarousel& carousel, const std::vector<Section>& sections) {
  bool isComplete = false;
  for (const Section& section : sections) isComplete = carousel.take(section) || isComplete;
  return isComplete;
}

TEST(Carousel, EveryKindOfObjectComesAsItWasSent) {
  ObjectCarousel carousel;
  EXPECT_TRUE(takeAll(carousel, carouselSections(number, 1, wholeTree())));
  EXPECT_EQ(*carousel.tree(), wholeTree());
}

TEST(Carousel, TheOrderOfTheSectionsDoesNotMatter) {
  std::mt19937 random(1);
  for (int round = 0; round < 20; ++round) {
    std::vector<Section> sections = carouselSections(number, 1, wholeTree());
    std::shuffle(sections.begin(), sections.end(), random);
    ObjectCarousel carousel;
    bool isComplete = takeAll(carousel, sections);
    // Blocks that came before their module was announced come again.
    for (int turn = 0; turn < 2; ++turn) isComplete = takeAll(carousel, sections) || isComplete;
    EXPECT_TRUE(isComplete);
    EXPECT_EQ(*carousel.tree(), wholeTree());
  }
}

TEST(Carousel, WithoutAnyOneSectionItStaysPending) {
  const std::vector<Section> sections = carouselSections(number, 1, wholeTree());
  for (std::size_t missing = 0; missing < sections.size(); ++missing) {
    std::vector<Section> rest = sections;
    rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(missing));
    ObjectCarousel carousel;
    EXPECT_FALSE(takeAll(carousel, rest)) << missing;
    EXPECT_EQ(carousel.tree(), nullptr);
  }
}

TEST(Carousel, AnUpdateCountsWhenItIsWholeAndOnce) {
  ObjectCarousel carousel;
  takeAll(carousel, carouselSections(number, 1, wholeTree()));
  const auto before = carousel.tree();
  EXPECT_FALSE(takeAll(carousel, carouselSections(number, 1, wholeTree())));
  EXPECT_FALSE(takeAll(carousel, carouselSections(number, 2, wholeTree()))) << "the same again";
  EXPECT_EQ(carousel.tree(), before);
  CarouselTree changed = wholeTree();
  changed.erase("/zero");
  changed["/a/new"] = file("new");
  const std::vector<Section> sections = carouselSections(number, 3, changed);
  EXPECT_FALSE(takeAll(carousel, {sections.begin(), sections.end() - 1}));
  EXPECT_EQ(carousel.tree(), before) << "what was there stays until all is there";
  EXPECT_TRUE(carousel.take(sections.back()));
  EXPECT_EQ(*carousel.tree(), changed);
}

TEST(Carousel, NamesThatLeadOutOfTheDirectoryAreLeftOut) {
  for (const std::string& name : {std::string("."), std::string(".."), std::string(),
                                  std::string("x\0y", 3), std::string(256, 'n')}) {
    CarouselTree tree = {{"/good", file("good")}, {"/" + name, file("bad")}};
    ObjectCarousel carousel;
    if (name.size() > 255) {
      // Such a name does not even fit into its field.
      continue;
    }
    takeAll(carousel, carouselSections(number, 1, tree));
    ASSERT_NE(carousel.tree(), nullptr);
    EXPECT_EQ(*carousel.tree(), (CarouselTree{{"/good", file("good")}})) << name;
  }
}

/// A module with one directory "1" that has the bindings given.
std::string directoryModule(const std::vector<std::pair<std::string, ByteBuilder>>& bindings,
                            const std::string& key = "1") {
  ByteBuilder body;
  body.number(bindings.size(), 2);
  for (const auto& [name, reference] : bindings) {
    body.number(1, 1).sized(1, ByteBuilder().bytes(name)).number(0, 1).number(1, 1);
    body.bytes({reinterpret_cast<const char*>(reference.all().data()), reference.all().size()});
    body.number(0, 2);
  }
  ByteBuilder message;
  message.sized(1, ByteBuilder().bytes(key));
  message.sized(4, ByteBuilder().bytes(std::string_view("srg\0", 4)));
  message.number(0, 2).number(0, 1).sized(4, body);
  ByteBuilder module;
  module.bytes("BIOP").number(0x01000000, 4).sized(4, message);
  return {module.all().begin(), module.all().end()};
}

void send(ObjectCarousel& carousel, const std::string& module) {
  carousel.take(serverInitiate(number));
  takeAll(carousel, moduleSections(number, 1, {{1, 1, module, {}}}));
}

TEST(Carousel, ANameWithAPathInItIsLeftOut) {
  ObjectCarousel carousel;
  send(carousel, directoryModule({{"../../etc/passwd", objectReference(number, 1, "1", "fil")},
                                  {"/tmp", objectReference(number, 1, "1", "dir")}}));
  ASSERT_NE(carousel.tree(), nullptr);
  EXPECT_TRUE(carousel.tree()->empty());
}

TEST(Carousel, ObjectsOfOtherCarouselsAreLeftOut) {
  ObjectCarousel carousel;
  send(carousel, directoryModule({{"far", objectReference(number + 1, 1, "1", "fil")}}));
  ASSERT_NE(carousel.tree(), nullptr);
  EXPECT_TRUE(carousel.tree()->empty());
}

TEST(Carousel, ADirectoryInItselfStaysPending) {
  ObjectCarousel carousel;
  send(carousel, directoryModule({{"a", objectReference(number, 1, "1", "dir")},
                                  {"b", objectReference(number, 1, "1", "dir")},
                                  {"c", objectReference(number, 1, "1", "dir")}}));
  EXPECT_EQ(carousel.tree(), nullptr);
}

TEST(Carousel, AReferenceToNothingStaysPending) {
  for (const std::uint16_t module : {std::uint16_t{1}, std::uint16_t{5}}) {
    ObjectCarousel carousel;
    send(carousel, directoryModule({{"a", objectReference(number, module, "7", "fil")}}));
    EXPECT_EQ(carousel.tree(), nullptr);
  }
}

/// What the receiver says of memory.
constexpr const char* refusal =
    "quillwork-receiver: carousels would hold more than 1 MiB; what is too much is left out\n";
constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20U;

CarouselTree treeOf(std::size_t size) { return {{"/file", file(std::string(size, 'x'))}}; }

TEST(CarouselMemory, IsSharedByAllAndGivenBack) {
  const auto memory = std::make_shared<MemoryBudget>(mebibyte);
  testing::internal::CaptureStderr();
  std::optional<ObjectCarousel> first(std::in_place, memory);
  ObjectCarousel second(memory);
  EXPECT_TRUE(takeAll(*first, carouselSections(number, 1, treeOf(600'000))));
  const std::vector<Section> sections = carouselSections(number, 1, treeOf(500'000));
  for (int turn = 0; turn < 3; ++turn) EXPECT_FALSE(takeAll(second, sections));
  EXPECT_NE(first->tree(), nullptr);
  std::shared_ptr<const CarouselTree> tree = first->tree();
  first.reset();
  EXPECT_FALSE(takeAll(second, sections)) << "somebody has the tree still";
  tree.reset();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), refusal);
  EXPECT_TRUE(takeAll(second, sections));
}

TEST(CarouselMemory, NothingIsLeftBehind) {
  const auto memory = std::make_shared<MemoryBudget>(mebibyte);
  {
    ObjectCarousel carousel(memory);
    for (std::uint8_t version = 1; version < 20; ++version) {
      takeAll(carousel, carouselSections(number, version, wholeTree()));
      takeAll(carousel, carouselSections(number, version, treeOf(100'000U + version)));
      EXPECT_LT(memory->used(), 350'000U) << "one version, and one that it replaces";
    }
  }
  EXPECT_EQ(memory->used(), 0U);
}

TEST(CarouselMemory, AnUpdateMayTakeTheRoomOfWhatItReplaces) {
  const auto memory = std::make_shared<MemoryBudget>(mebibyte);
  ObjectCarousel carousel(memory);
  EXPECT_TRUE(takeAll(carousel, carouselSections(number, 1, treeOf(700'000))));
  EXPECT_TRUE(takeAll(carousel, carouselSections(number, 2, treeOf(700'001))));
  EXPECT_EQ(*carousel.tree(), treeOf(700'001));
}

TEST(CarouselMemory, ModulesUnderWayGiveWayToEachOther) {
  testing::internal::CaptureStderr();
  const auto memory = std::make_shared<MemoryBudget>(mebibyte);
  ObjectCarousel first(memory);
  ObjectCarousel second(memory);
  const std::vector<Section> sections = carouselSections(number, 1, treeOf(600'000));
  int complete = 0;
  // Their blocks come in turns, and there is room for one of them.
  for (int turn = 0; turn < 2; ++turn) {
    for (const Section& section : sections) {
      complete += first.take(section) ? 1 : 0;
      complete += second.take(section) ? 1 : 0;
    }
  }
  EXPECT_EQ(complete, 1);
  testing::internal::GetCapturedStderr();
}

Section fromHex(const std::string& text) {
  Section bytes;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    bytes.push_back(static_cast<std::uint8_t>(std::stoi(word, nullptr, 16)));
  }
  return bytes;
}

TEST(CarouselMemory, AnnouncedSizesTakeNone) {
  testing::internal::CaptureStderr();
  const auto memory = std::make_shared<MemoryBudget>(mebibyte);
  ObjectCarousel carousel(memory);
  // Module 1: 0xc0000000 bytes, which decompressed are 0x40000000. Module 2: 0xf0000 bytes.
  carousel.take(
      fromHex("3b b0 50 00 02 c1 00 00 11 03 10 02 80 00 00 02 ff 00 00 3b"
              " 00 00 00 09 0f e2 00 00 00 00 00 00 00 00 00 00 00 00 00 02"
              " 00 01 c0 00 00 00 01 15 00 00 00 00 00 00 00 00 00 00 00 00 00 07 09 05 78 40 00"
              " 00 00 00 02 00 0f 00 00 01 00 00 00 00 00 00 00 00"));
  for (const std::string module : {"01", "02"}) {
    Section block = fromHex("3c bf fd 00 01 c1 00 00 11 03 10 03 00 00 00 09 ff 00 0f e8 00 " +
                            module + " 01 ff 00 00");
    block.resize(block.size() + 4066 + 4);
    carousel.take(block);
  }
  EXPECT_GT(memory->used(), 4066U) << "the second's block";
  EXPECT_LT(memory->used(), 8000U);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), refusal);
}

/// A carousel of modules with one file each, announced a hundred at a time.
std::vector<Section> manyModules(unsigned files, bool rootIsLast) {
  std::vector<std::string> contents;
  std::vector<std::pair<std::string, ByteBuilder>> bindings;
  for (unsigned index = 0; index < files; ++index) {
    const auto id = static_cast<std::uint16_t>(index + 2);
    bindings.emplace_back(std::to_string(index), objectReference(number, id, "1", "dir"));
    contents.push_back(directoryModule({}));
  }
  const std::string root = directoryModule(bindings);
  std::vector<Section> sections = {serverInitiate(number)};
  const auto append = [&](const std::vector<Section>& more) {
    sections.insert(sections.end(), more.begin(), more.end());
  };
  if (!rootIsLast) append(moduleSections(number, 1, {{1, 1, root, {}}}));
  for (unsigned begin = 0; begin < files; begin += 100) {
    std::vector<ModuleToSend> modules;
    for (unsigned index = begin; index < std::min(begin + 100, files); ++index) {
      modules.push_back({static_cast<std::uint16_t>(index + 2), 1, contents[index], {}});
    }
    append(moduleSections(number, 1, modules));
  }
  if (rootIsLast) append(moduleSections(number, 1, {{1, 1, root, {}}}));
  return sections;
}

// Work for each module that grows with their number would take minutes.
constexpr std::chrono::seconds enough{15};

TEST(Carousel, ThousandsOfModulesAreReadInTheirNumbersTime) {
  constexpr unsigned files = 19'000;
  for (const bool rootIsLast : {false, true}) {
    ObjectCarousel carousel;
    const std::vector<Section> sections = manyModules(files, rootIsLast);
    const Watchdog watchdog(enough);
    EXPECT_TRUE(takeAll(carousel, sections));
    ASSERT_NE(carousel.tree(), nullptr);
    EXPECT_EQ(carousel.tree()->size(), files);
  }
}

TEST(Carousel, TensOfThousandsOfModulesCanBeginAtATime) {
  std::vector<Section> sections;
  const std::string twoBlocks(4067, 'x');
  for (unsigned begin = 1; begin < 65'000; begin += 100) {
    std::vector<ModuleToSend> modules;
    for (unsigned id = begin; id < begin + 100; ++id) {
      modules.push_back({static_cast<std::uint16_t>(id), 1, twoBlocks, {}});
    }
    for (Section& section : moduleSections(number, 1, modules)) {
      // Of each only the second block, which is small.
      if (section[0] == 0x3b || section.size() < 4000) sections.push_back(std::move(section));
    }
  }
  const auto memory = std::make_shared<MemoryBudget>(ObjectCarousel::mostBytes);
  ObjectCarousel carousel(memory);
  const Watchdog watchdog(enough);
  EXPECT_FALSE(takeAll(carousel, sections));
  EXPECT_GT(memory->used(), 65'000U);
}

TEST(Carousel, AModuleOfWhichTheTreeKnowsNothingChangesNothing) {
  ObjectCarousel carousel;
  takeAll(carousel, carouselSections(number, 1, wholeTree()));
  const auto before = carousel.tree();
  for (std::uint8_t version = 1; version < 4; ++version) {
    EXPECT_FALSE(takeAll(
        carousel, moduleSections(number, version, {{77, version, directoryModule({}), {}}})));
  }
  EXPECT_EQ(carousel.tree(), before);
}

TEST(Carousel, OfSeveralOnAPidTheOneThatIsMeantIsRead) {
  ObjectCarousel carousel(std::make_shared<MemoryBudget>(mebibyte), number + 1);
  const CarouselTree other = {{"/other", file("other")}};
  std::vector<Section> sections = carouselSections(number, 1, wholeTree());
  const std::vector<Section> own = carouselSections(number + 1, 1, other);
  sections.insert(sections.begin(), own.begin(), own.end());
  takeAll(carousel, sections);
  takeAll(carousel, sections);
  ASSERT_NE(carousel.tree(), nullptr);
  EXPECT_EQ(*carousel.tree(), other);
}

TEST(Carousel, AModuleThatIsCompressedInAnUnknownWayStaysPending) {
  ByteBuilder info;
  info.number(0, 12).number(0, 1);
  info.sized(1, ByteBuilder().number(0x0905, 2).number(0x77, 1).number(100, 4));
  ObjectCarousel carousel;
  carousel.take(serverInitiate(number));
  const std::string module = directoryModule({});
  const std::string text(info.all().begin(), info.all().end());
  takeAll(carousel, moduleSections(number, 1, {{1, 1, module, text}}));
  EXPECT_EQ(carousel.tree(), nullptr);
}

TEST(Carousel, ADamagedCompressedModuleIsReadOnceMore) {
  ByteBuilder info;
  info.number(0, 12).number(0, 1);
  info.sized(1, ByteBuilder().number(0x0905, 2).number(0x78, 1).number(100, 4));
  ObjectCarousel carousel;
  carousel.take(serverInitiate(number));
  const std::string text(info.all().begin(), info.all().end());
  const auto sections = moduleSections(number, 1, {{1, 1, "not compressed at all", text}});
  for (int turn = 0; turn < 3; ++turn) EXPECT_FALSE(takeAll(carousel, sections));
  EXPECT_EQ(carousel.tree(), nullptr);
}

TEST(Carousel, EveryTruncationAndEveryByteThatIsWrongIsHarmless) {
  CarouselTree tree = {{"/d", directory()},
                       {"/d/f", file("text")},
                       {"/s", events(Kind::streamEvent, 7, {{"one", 1}})}};
  const std::vector<Section> sections = carouselSections(number, 1, tree);
  for (std::size_t which = 0; which < sections.size(); ++which) {
    for (std::size_t position = 0; position < sections[which].size(); ++position) {
      std::vector<Section> broken = sections;
      broken[which].resize(position);
      ObjectCarousel cut;
      takeAll(cut, broken);
      for (const unsigned change : {0x01U, 0x80U, 0xffU}) {
        broken = sections;
        broken[which][position] = static_cast<std::uint8_t>(broken[which][position] ^ change);
        ObjectCarousel carousel;
        takeAll(carousel, broken);
        takeAll(carousel, sections);
      }
    }
  }
}

}  // namespace
}  // namespace receiver
