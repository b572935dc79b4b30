// Carousels as directories.

#include "receiver/CarouselMounts.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>

#include "receiver/Source.h"

namespace receiver {
namespace {

namespace fs = std::filesystem;

std::string contentOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

CarouselObject fileOf(const std::string& text) {
  CarouselObject object;
  object.kind = CarouselObject::Kind::file;
  object.content = std::make_shared<const std::vector<std::uint8_t>>(text.begin(), text.end());
  return object;
}

/// Everything below a directory, with the sizes of files.
std::string listing(const fs::path& root) {
  std::set<std::string> lines;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    const std::string name = fs::relative(entry.path(), root).string();
    lines.insert(entry.is_regular_file() ? name + ":" + std::to_string(entry.file_size()) : name);
  }
  std::string all;
  for (const std::string& line : lines) all += line + " ";
  return all;
}

TEST(ACarouselLocator, HasNumbersOfTheBroadcastsWidths) {
  const auto largest = CarouselLocator::parse("dvb://ffff.FFFF.0ffff.000ff");
  ASSERT_TRUE(largest);
  EXPECT_EQ(largest->originalNetwork, 65535);
  EXPECT_EQ(largest->transportStream, 65535);
  EXPECT_EQ(largest->place, (CarouselPlace{65535, 255}));
  for (const char* const locator :
       {"dvb://10000.1001.65.41", "dvb://ff01.10000.65.41", "dvb://ff01.1001.10065.41",
        "dvb://..10065", "dvb://..65.100", "dvb://..65.141", "dvb://..65.7fffffff",
        "dvb://..65.80000000", "dvb://..65.-1"}) {
    EXPECT_FALSE(CarouselLocator::parse(locator)) << locator;
  }
}

class Mounts : public testing::Test {
 protected:
  static constexpr const char* directory = "/dev/shm/mounts/deep";

  ~Mounts() override { fs::remove_all("/dev/shm/mounts"); }

  void SetUp() override {
    const char* const streams = std::getenv("QUILLWORK_STREAMS");
    if (streams == nullptr) GTEST_SKIP() << "QUILLWORK_STREAMS does not name the captures";
    if (!canDecompress()) GTEST_SKIP() << "zlib is not there for this processor";
    source.emplace(std::string(streams) + "/made-dynamic-a.ts");
    data.onTree([this](const CarouselPlace& place, std::shared_ptr<const CarouselTree> tree) {
      mounts->update(place, std::move(tree));
    });
    make();
  }
  void make() {
    writer.emplace();
    worker.emplace();
    mounts.emplace(data, information, *writer, *worker, directory,
                   [this](const std::string& locator, const std::string& path) {
                     done.push_back(locator + " " + path);
                   });
  }
  void TearDown() override {
    writer.reset();
    worker.reset();
    mounts.reset();
  }
  /// Plays so many packets, or to the end, and waits for what follows from them.
  void play(int packets) {
    for (; packets > 0; --packets) {
      const auto packet = source->next();
      if (!packet) break;
      information.take(*packet);
      data.take(*packet);
    }
    settle();
  }
  void settle() {
    // The worker is told of what has been written.
    finish(*writer);
    finish(*worker);
  }
  /// Waits for the tasks that the thread has, and for those that they give to it.
  static void finish(Worker& thread) {
    for (int turn = 0; turn < 3; ++turn) {
      std::promise<void> reached;
      thread.postKept([&] { reached.set_value(); });
      reached.get_future().wait();
    }
  }

  std::optional<FileSource> source;
  ServiceInformation information{std::nullopt};
  DataBroadcast data{information};
  std::optional<Worker> writer;
  std::optional<Worker> worker;
  std::optional<CarouselMounts> mounts;
  std::vector<std::string> done;
};

using Words = std::vector<std::string>;

TEST_F(Mounts, AnUpdateTakesThePlaceOfWhatWasThere) {
  play(100);
  const std::string path = mounts->mount("dvb://ff01.1001.65.41");
  EXPECT_EQ(path, std::string(directory) + "/65.41");
  settle();
  EXPECT_FALSE(fs::exists(path)) << "it is not complete yet";
  play(10'000);
  const std::string notice = "dvb://ff01.1001.65.41 " + path;
  EXPECT_EQ(done, Words{notice});
  EXPECT_EQ(listing(path),
            "big.bin:30000 css css/empty.css:0 css/style.css:20 events:346 img img/deep "
            "img/deep/er img/deep/er/x.dat:300 img/logo.bin:9000 index.html:36 ");
  EXPECT_NE(contentOf(path + "/events")
                .find("<dsmcc_object component_tag=\"66\">\n"
                      "    <stream_event stream_event_id=\"1\" stream_event_name=\"start\"/>\n"),
            std::string::npos);
  // Whoever is in the old directory finds it gone, and never a mixture.
  play(100'000);
  EXPECT_EQ(done, (Words{notice, notice}));
  EXPECT_EQ(listing(path),
            "big.bin:30000 css css/style.css:21 data data/new.txt:9 events:346 img img/deep "
            "img/deep/er img/deep/er/x.dat:300 img/logo.bin:9000 index.html:56 ");
  EXPECT_EQ(std::distance(fs::directory_iterator(directory), {}), 2) << "the link and its target";
}

TEST_F(Mounts, ACompleteCarouselIsThereAtOnceAndGoesWithItsLastLocator) {
  play(100'000);
  const std::string path = mounts->mount("dvb://..65");
  EXPECT_EQ(path, std::string(directory) + "/65");
  EXPECT_EQ(mounts->mount("dvb://.1001.65"), path);
  settle();
  EXPECT_EQ(done.back(), "dvb://.1001.65 " + path);
  mounts->umount("dvb://..65");
  mounts->umount("dvb://..65");
  mounts->umount("dvb://..66");
  mounts->umount("nothing");
  settle();
  EXPECT_TRUE(fs::exists(path));
  mounts->umount("dvb://.1001.65");
  settle();
  EXPECT_TRUE(fs::is_empty(directory));
}

TEST_F(Mounts, AnotherLocatorOfACompleteCarouselIsToldAlone) {
  play(100'000);
  const std::string path = mounts->mount("dvb://..65");
  settle();
  const fs::path version = fs::read_symlink(path);
  mounts->mount("dvb://.1001.65");
  settle();
  mounts->mount("dvb://..65");
  settle();
  EXPECT_EQ(done, (Words{"dvb://..65 " + path, "dvb://.1001.65 " + path, "dvb://..65 " + path}));
  EXPECT_EQ(fs::read_symlink(path), version) << "it is not written once more";
}

/// Holds a thread up until its end.
class Hold {
 public:
  explicit Hold(Worker& worker) {
    worker.postKept([promises = promises_] {
      promises->begun.set_value();
      promises->released.get_future().wait();
    });
    promises_->begun.get_future().wait();
  }
  ~Hold() { promises_->released.set_value(); }
  Hold(const Hold&) = delete;
  Hold& operator=(const Hold&) = delete;

 private:
  /// The thread still has them when it has been released.
  struct Promises {
    std::promise<void> begun;
    std::promise<void> released;
  };
  const std::shared_ptr<Promises> promises_ = std::make_shared<Promises>();
};

TEST_F(Mounts, TheNewestVersionIsWrittenHoweverManyHaveWaited) {
  play(100);
  const std::string path = mounts->mount("dvb://..65");
  {
    const Hold hold(*writer);
    for (std::size_t version = 0; version <= 2 * Worker::mostTasks; ++version) {
      const CarouselTree tree = {{"/version", fileOf(std::to_string(version))}};
      mounts->update({0x65, -1}, std::make_shared<const CarouselTree>(tree));
    }
  }
  settle();
  EXPECT_EQ(contentOf(path + "/version"), std::to_string(2 * Worker::mostTasks));
  EXPECT_EQ(done, Words{"dvb://..65 " + path}) << "those before it are left out";
}

TEST_F(Mounts, AClientThatDoesNotReadHoldsNoFileUp) {
  play(100);
  const std::string path = mounts->mount("dvb://..65");
  testing::internal::CaptureStderr();
  {
    const Hold hold(*worker);
    while (worker->post([] {})) continue;
    for (const std::string version : {"first", "second"}) {
      const CarouselTree tree = {{"/version", fileOf(version)}};
      mounts->update({0x65, -1}, std::make_shared<const CarouselTree>(tree));
      finish(*writer);
      EXPECT_EQ(contentOf(path + "/version"), version);
    }
  }
  settle();
  testing::internal::GetCapturedStderr();
  EXPECT_EQ(done, Words{"dvb://..65 " + path}) << "what it hears is late, and not lost";
}

TEST_F(Mounts, WhatIsUnmountedAtTheEndGoes) {
  play(100'000);
  const std::string path = mounts->mount("dvb://..65");
  settle();
  ASSERT_TRUE(fs::exists(path));
  {
    const Hold hold(*writer);
    mounts->umount("dvb://..65");
    writer->stop();
  }
  TearDown();
  EXPECT_TRUE(fs::is_empty(directory));
}

TEST_F(Mounts, WhatIsNotReceivedCannotBeMounted) {
  play(100'000);
  for (const char* const locator :
       {"", "nothing", "dvb://..99", "dvb://.1002.65", "dvb://1.1001.65", "dvb://..259"}) {
    EXPECT_EQ(mounts->mount(locator), "") << locator;
  }
}

constexpr const char* refused =
    "quillwork-receiver: more than 256 carousels, or one under more than 16 locators, are not"
    " mounted\n";

TEST_F(Mounts, ACarouselMoreThanThereMayBeIsRefused) {
  play(100'000);
  testing::internal::CaptureStderr();
  // With each tag that there is, and without one, a service has one place too many.
  EXPECT_NE(mounts->mount("dvb://..65"), "");
  for (int tag = 0; tag < 255; ++tag) {
    EXPECT_NE(mounts->mount(fmt::format("dvb://..65.{:x}", tag)), "") << tag;
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::CaptureStderr();
  EXPECT_EQ(mounts->mount("dvb://..65.ff"), "");
  EXPECT_EQ(mounts->mount("dvb://.1001.65.ff"), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), refused) << "it is said once";
  EXPECT_NE(mounts->mount("dvb://..65"), "") << "it is mounted already";
  EXPECT_NE(mounts->mount("dvb://.1001.65"), "") << "so is its place";
  mounts->umount("dvb://..65.0");
  EXPECT_NE(mounts->mount("dvb://..65.ff"), "");
}

TEST_F(Mounts, ALocatorMoreThanAPlaceMayHaveIsRefused) {
  play(100'000);
  const auto spelling = [](std::size_t zeros) {
    return "dvb://.." + std::string(zeros, '0') + "65";
  };
  testing::internal::CaptureStderr();
  std::set<std::string> told;
  for (std::size_t zeros = 0; zeros < 16; ++zeros) {
    const std::string path = mounts->mount(spelling(zeros));
    EXPECT_EQ(path, std::string(directory) + "/65");
    told.insert(spelling(zeros) + " " + path);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::CaptureStderr();
  EXPECT_EQ(mounts->mount(spelling(16)), "");
  EXPECT_EQ(mounts->mount(spelling(17)), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), refused) << "it is said once";
  settle();
  EXPECT_EQ(std::set<std::string>(done.begin(), done.end()), told) << "as they were mounted";
  EXPECT_NE(mounts->mount(spelling(0)), "") << "it is mounted already";
  EXPECT_NE(mounts->mount("dvb://..65.41"), "") << "another place has room";
  mounts->umount(spelling(16));
  EXPECT_EQ(mounts->mount(spelling(16)), "") << "it never was mounted";
  mounts->umount(spelling(15));
  EXPECT_NE(mounts->mount(spelling(16)), "");
  for (std::size_t zeros = 0; zeros < 15; ++zeros) mounts->umount(spelling(zeros));
  settle();
  EXPECT_TRUE(fs::exists(std::string(directory) + "/65")) << "one spelling still has it";
  mounts->umount(spelling(16));
  settle();
  EXPECT_FALSE(fs::exists(std::string(directory) + "/65"));
}

TEST_F(Mounts, WhatIsMountedGoesWithTheReceiver) {
  play(100'000);
  mounts->mount("dvb://..65");
  settle();
  TearDown();
  EXPECT_TRUE(fs::is_empty(directory));
  make();
  mounts->mount("dvb://..65");
  settle();
  EXPECT_EQ(done.size(), 2U);
}

TEST_F(Mounts, WhatAKilledReceiverHasLeftIsInNobodysWay) {
  play(100'000);
  fs::create_directory(std::string(directory) + "/.65.1");
  std::ofstream(std::string(directory) + "/.65.1/old") << "old";
  fs::create_directory_symlink("elsewhere", std::string(directory) + "/.65.link");
  fs::create_directory_symlink(".65.1", std::string(directory) + "/65");
  const std::string path = mounts->mount("dvb://..65");
  settle();
  EXPECT_FALSE(fs::exists(path + "/old"));
  EXPECT_TRUE(fs::exists(path + "/index.html"));
}

TEST_F(Mounts, WhatCannotBeWrittenIsSaidInOneLine) {
  play(100'000);
  fs::create_directories(std::string(directory) + "/65/full");
  testing::internal::CaptureStderr();
  mounts->mount("dvb://..65");
  settle();
  const std::string said = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(said.starts_with("quillwork-receiver: carousel 65: ")) << said;
  EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1);
  EXPECT_TRUE(done.empty());
  EXPECT_EQ(listing(directory), "65 65/full ");
}

TEST_F(Mounts, NothingIsWrittenForACarouselThatNobodyHasMounted) {
  mounts->update({1, 2}, std::make_shared<const CarouselTree>(CarouselTree{{"/a", fileOf("a")}}));
  settle();
  EXPECT_TRUE(fs::is_empty(directory));
}

}  // namespace
}  // namespace receiver
