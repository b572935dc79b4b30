// A host that loads the library at run time, and unloads it when it is done.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <chrono>
#include <fstream>
#include <new>
#include <string>

#include "support/FakeHost.h"
#include "support/RawClient.h"
#include "support/Watchdog.h"

// Nothing of the library is linked: it finds the facades' factories in this program.
class MiddlewareIpc;

namespace {

/// The shared library, loaded like a plugin.
class Library {
 public:
  Library() : handle_(dlopen(LIBRARY, RTLD_NOW | RTLD_LOCAL)) {
    EXPECT_NE(handle_, nullptr) << dlerror();
  }
  ~Library() { unload(); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  /// An operation by its name for the linker.
  template <class Function>
  [[nodiscard]] Function* find(const char* name) const {
    void* const symbol = dlsym(handle_, name);
    EXPECT_NE(symbol, nullptr) << dlerror();
    return reinterpret_cast<Function*>(symbol);
  }

  [[nodiscard]] const link_map& map() const {
    link_map* map = nullptr;
    EXPECT_EQ(dlinfo(handle_, RTLD_DI_LINKMAP, static_cast<void*>(&map)), 0);
    return *map;
  }

  void unload() {
    if (handle_ != nullptr) {
      EXPECT_EQ(dlclose(handle_), 0) << dlerror();
    }
    handle_ = nullptr;
  }

 private:
  void* handle_;
};

class UnloadedLibrary : public testing::Test {
 protected:
  MiddlewareIpc* getInstance() const {
    return library.find<MiddlewareIpc*()>("_ZN13MiddlewareIpc11getInstanceEv")();
  }
  void deleteInstance(MiddlewareIpc* adapter) const {
    library.find<void(MiddlewareIpc*)>("_ZN13MiddlewareIpcD1Ev")(adapter);
    ::operator delete(static_cast<void*>(adapter));
  }

  const Watchdog watchdog{std::chrono::seconds(60)};
  FakeHost host;
  Library library;
};

TEST_F(UnloadedLibrary, StillServesTheSectionFilterClientThatIsConnected) {
  MiddlewareIpc* const adapter = getInstance();
  const RawClient client(RawClient::sectionFilter);
  client.send(word(13));
  EXPECT_EQ(client.receive(4), word(0));
  deleteInstance(adapter);
  library.unload();
  client.send(word(2) + word(17) + word(13));
  EXPECT_EQ(client.receive(4), word(0));
}

TEST_F(UnloadedLibrary, StillServesTheNextSectionFilterClient) {
  deleteInstance(getInstance());
  library.unload();
  for (int count = 0; count < 3; ++count) {
    const RawClient client(RawClient::sectionFilter);
    client.send(word(13));
    EXPECT_EQ(client.receive(4), word(0));
  }
}

TEST_F(UnloadedLibrary, IsLoadedAgain) {
  deleteInstance(getInstance());
  library.unload();
  const Library again;
  auto* const adapter = again.find<MiddlewareIpc*()>("_ZN13MiddlewareIpc11getInstanceEv")();
  {
    const RawClient client(RawClient::sectionFilter);
    client.send(word(13));
    EXPECT_EQ(client.receive(4), word(0));
  }
  EXPECT_TRUE(host.log.await("readSection()"));
  again.find<void(MiddlewareIpc*)>("_ZN13MiddlewareIpcD1Ev")(adapter);
  ::operator delete(static_cast<void*>(adapter));
}

TEST_F(UnloadedLibrary, IsMarkedAsNotToBeUnloaded) {
  std::size_t flags = 0;
  for (const ElfW(Dyn)* entry = library.map().l_ld; entry->d_tag != DT_NULL; ++entry) {
    if (entry->d_tag == DT_FLAGS_1) flags = entry->d_un.d_val;
  }
  EXPECT_NE(flags & DF_1_NODELETE, 0U);
}

}  // namespace
