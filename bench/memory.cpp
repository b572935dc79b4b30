#include "bench/memory.h"

#include <pthread.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>

#include "bench/Host.h"
#include "client/ControlChannel.h"
#include "client/SectionFilterChannel.h"
#include "support/OwnSharedMemory.h"

namespace bench {
namespace {

/// A figure of the process's memory in bytes, by its name in smaps_rollup of proc(5).
long memory(const std::string& name) {
  std::ifstream figures("/proc/self/smaps_rollup");
  for (std::string line; std::getline(figures, line);) {
    if (line.starts_with(name + ':')) return std::stol(line.substr(name.size() + 1)) * 1024;
  }
  throw std::runtime_error("no " + name + " in /proc/self/smaps_rollup");
}

/// A thread's stack, from its lowest byte on.
struct Stack {
  const unsigned char* lowest = nullptr;
  std::size_t size = 0;

  static Stack current() {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    void* lowest = nullptr;
    Stack stack;
    pthread_attr_getstack(&attributes, &lowest, &stack.size);
    pthread_attr_destroy(&attributes);
    stack.lowest = static_cast<const unsigned char*>(lowest);
    return stack;
  }

  /// A stack grows downwards over zeros: from its top down to the lowest byte that was written.
  [[nodiscard]] long used() const {
    const unsigned char* const end = lowest + size;
    return end - std::find_if(lowest, end, [](unsigned char byte) { return byte != 0; });
  }
};

struct Figures {
  long resident;
  long written;
  long controlStack;
  long sectionStack;
};

void ask(quillwork::client::ControlChannel& channel) {
  channel.getServices();
  channel.getProgramEvents();
  channel.getNetworkDescriptors();
  channel.getNetwork();
  channel.getTransportStream();
  channel.getVideoLanguages();
  channel.getSystemProperty("name");
  channel.setSystemProperty("name", "value");
  channel.mountCarousel("dvb://1");
  channel.open("file.ts");
}

void measure(Figures& figures) {
  Shape shape;
  shape.services = 200;
  shape.events = 10;
  shape.eventBytes = 100;
  shape.eventTexts = 10;
  shape.descriptors = 50;
  shape.descriptorBytes = 100;
  shape.section = 4096;
  const long resident = memory("Rss");
  const long written = memory("Private_Dirty");
  auto host = std::make_unique<Host>(Shape{});
  figures.resident = memory("Rss") - resident;
  figures.written = memory("Private_Dirty") - written;
  host.reset();
  const Host full(shape);
  quillwork::client::ControlChannel control;
  quillwork::client::SectionFilterChannel sections;
  ask(control);
  Stack stack;
  Host::onCall = [&] { stack = Stack::current(); };
  // The reply has come: the thread waits for the next request.
  control.getCurrentService();
  figures.controlStack = stack.used();
  sections.set_positive_filter(0, {1, 2}, {3, 4});
  sections.read_section();
  figures.sectionStack = stack.used();
}

}  // namespace

std::vector<Size> measureMemory() {
  auto* const figures = static_cast<Figures*>(
      mmap(nullptr, sizeof(Figures), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
  if (figures == MAP_FAILED) throw std::runtime_error("no memory");
  const pid_t process = fork();
  if (process == 0) {
    takeOwnSharedMemory();
    if (std::freopen("/dev/null", "w", stdout) == nullptr) _exit(1);
    try {
      measure(*figures);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "%s\n", error.what());
      _exit(1);
    }
    _exit(0);
  }
  int status = -1;
  waitpid(process, &status, 0);
  if (status != 0) throw std::runtime_error("the memory cannot be measured");
  std::vector<Size> sizes = {
      {"resident memory of a process, more with the adapter", figures->resident},
      {"of that, written to", figures->written},
      {"stack used by ipc-control", figures->controlStack},
      {"stack used by ipc-demux", figures->sectionStack},
  };
  munmap(figures, sizeof *figures);
  return sizes;
}

}  // namespace bench
