// Memory is short for a moment: each allocation in turn is refused, once. Afterwards the receiver
// knows what it knows where none was refused.

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <new>
#include <tuple>
#include <utility>
#include <vector>

#include "receiver/SectionStore.h"
#include "sample/carousel_sections.h"

namespace {

constexpr int unlimited = std::numeric_limits<int>::max();
// How many more allocations the calling thread gets before one is refused.
thread_local int allowance = unlimited;

bool isRefused() {
  if (allowance == unlimited || allowance-- > 0) return false;
  allowance = unlimited;
  return true;
}

/// Refuses one allocation of a scope: the first one behind so many.
class OneRefusal {
 public:
  explicit OneRefusal(int behind) { allowance = behind; }
  ~OneRefusal() { allowance = unlimited; }
  OneRefusal(const OneRefusal&) = delete;
  OneRefusal& operator=(const OneRefusal&) = delete;
  /// Whether it has come.
  static bool hasCome() { return allowance == unlimited; }
};

}  // namespace

// Not inlined: the compiler would see memory that new has given passed to free().
[[gnu::noinline]] void* operator new(std::size_t size) {
  void* const memory = isRefused() ? nullptr : std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return isRefused() ? nullptr : std::malloc(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace receiver {
namespace {

/// Calls `test(number)` with the number of each allocation, or of every so many-th, until it
/// returns false: there is none with that number any more.
template <class Test>
void withEachRefusal(int stride, Test&& test) {
  int number = 0;
  while (test(number)) number += stride;
  EXPECT_GT(number, 0) << "nothing was refused";
}

/// Goes on where memory has run out, as the stream's player does.
template <class Call>
bool attempt(Call&& call) {
  try {
    call();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

Section section(std::uint8_t tableId, std::uint16_t extension, const sample::ByteBuilder& body,
                std::uint8_t number = 0, std::uint8_t last = 0) {
  return sample::longSection(tableId, extension, 0, number, last, body);
}

/// What a store holds, with its bookkeeping.
auto contentOf(const SectionStore& store) {
  std::vector<std::pair<SubTable, Section>> sections;
  store.forEach([&](const SubTable& table, const Section& section) {
    sections.emplace_back(table, section);
  });
  return std::tuple(std::move(sections), store.bytes(), store.puts());
}

std::size_t countSubTables(SectionStore& store) {
  std::size_t count = 0;
  store.eraseIf([&](const SubTable&, std::uint64_t) {
    ++count;
    return false;
  });
  return count;
}

TEST(ShortOfMemory, ASectionThatCannotBeKeptLeavesTheStoreAsItWas) {
  const SubTable known{16, 0x40, 1, 0};
  const SubTable unknown{17, 0x42, 1, 0};
  const auto body = sample::ByteBuilder().number(1, 8);
  const auto other = sample::ByteBuilder().number(2, 8);
  const std::pair<SubTable, Section> puts[] = {
      {known, section(0x40, 1, other, 0, 1)},  // other content
      {known, section(0x40, 1, body, 1, 1)},   // another number
      {unknown, section(0x42, 1, body)}};      // another sub-table
  for (const auto& [table, bytes] : puts) {
    withEachRefusal(1, [&, &itsTable = table, &itsBytes = bytes](int number) {
      SectionStore store(10'000);
      store.put(known, section(0x40, 1, body, 0, 1), {});
      const auto before = contentOf(store);
      {
        const OneRefusal refusal(number);
        if (attempt([&] { store.put(itsTable, itsBytes, {}); })) return false;
      }
      EXPECT_EQ(contentOf(store), before) << "allocation " << number;
      EXPECT_EQ(countSubTables(store), 1U) << "allocation " << number;
      EXPECT_TRUE(store.put(itsTable, itsBytes, {}).isNew) << "allocation " << number;
      return true;
    });
  }
}

}  // namespace
}  // namespace receiver
