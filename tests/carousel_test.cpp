// An object carousel out of its sections, whole ones and broken ones.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "receiver/ObjectCarousel.h"
#include "sample/carousel_sections.h"

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

TEST(Carousel, AModuleThatIsTooMuchStaysPending) {
  const std::string padding(ObjectCarousel::mostBytes / 2 + 1'000'000, '\0');
  const auto carouselWith = [&](const std::vector<std::uint16_t>& modules) {
    ObjectCarousel carousel;
    std::vector<std::pair<std::string, ByteBuilder>> bindings;
    for (const std::uint16_t id : modules) {
      const std::string name(1, static_cast<char>('a' + id));
      bindings.emplace_back(name, objectReference(number, id, "1", "dir"));
      takeAll(carousel, moduleSections(number, id, {{id, 1, directoryModule({}) + padding, {}}}));
    }
    carousel.take(serverInitiate(number));
    const std::string root = directoryModule(bindings);
    takeAll(carousel, moduleSections(number, 1, {{1, 1, root, {}}}));
    return carousel.tree() != nullptr;
  };
  EXPECT_TRUE(carouselWith({2}));
  EXPECT_FALSE(carouselWith({2, 3})) << "the second has no room";
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
