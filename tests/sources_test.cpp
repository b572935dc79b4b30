// Where the receiver's stream can come from: senders of this test's own, and the receiver as a
// process.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/Patience.h"
#include "support/Program.h"

namespace {

using Words = std::vector<std::string>;

constexpr std::size_t packetSize = 188;

std::string bytesOfFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string tables() { return bytesOfFile(TABLES); }

/// The first packet of the PAT in the sample of tables.
std::string patPacket() {
  const std::string all = tables();
  for (std::size_t place = 0; place < all.size(); place += packetSize) {
    if ((all[place + 1] & 0x1f) == 0 && all[place + 2] == 0) return all.substr(place, packetSize);
  }
  return {};
}

bool isTuned() {
  Program client({CLIENT, "--time-limit", patiently, "tuned"});
  client.wait();
  return client.output() == "8193\n";
}

/// A socket address of either family.
struct Place {
  sockaddr_storage address{};
  socklen_t size = 0;

  Place(const std::string& host, int port) {
    auto* const six = reinterpret_cast<sockaddr_in6*>(&address);
    auto* const four = reinterpret_cast<sockaddr_in*>(&address);
    if (inet_pton(AF_INET6, host.c_str(), &six->sin6_addr) == 1) {
      six->sin6_family = AF_INET6;
      six->sin6_port = htons(static_cast<std::uint16_t>(port));
      size = sizeof *six;
    } else {
      EXPECT_EQ(inet_pton(AF_INET, host.c_str(), &four->sin_addr), 1);
      four->sin_family = AF_INET;
      four->sin_port = htons(static_cast<std::uint16_t>(port));
      size = sizeof *four;
    }
  }
  [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address); }
};

/// A socket that is closed at the end of the scope.
class Socket {
 public:
  Socket(const Place& place, int type) : number_(socket(place.address.ss_family, type, 0)) {}
  explicit Socket(int number) : number_(number) {}
  ~Socket() { close(number_); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  [[nodiscard]] int number() const { return number_; }

 private:
  const int number_;
};

/// Sends the sample of tables in datagrams to the hosts until the receiver has a PAT: what comes
/// too fast is lost.
void sendUntilTuned(const Words& hosts, int port) {
  const std::string bytes = tables();
  do {
    for (const std::string& host : hosts) {
      const Place place(host, port);
      const Socket sender(place, SOCK_DGRAM);
      ip_mreqn interface {};
      interface.imr_ifindex = static_cast<int>(if_nametoindex("lo"));
      setsockopt(sender.number(), IPPROTO_IP, IP_MULTICAST_IF, &interface, sizeof interface);
      for (std::size_t begin = 0; begin + 7 * packetSize <= bytes.size(); begin += 7 * packetSize) {
        sendto(sender.number(), bytes.data() + begin, 7 * packetSize, 0, place.get(), place.size);
      }
    }
  } while (!isTuned());
}

/// What the tests need that have URLs.
class Urls : public testing::Test {
 protected:
  void SetUp() override {
#ifdef __SANITIZE_THREAD__
    GTEST_SKIP() << "ThreadSanitizer does not see through GStreamer";
#endif
    if (!HAS_NETWORK) GTEST_SKIP() << "GStreamer is not there, or not to be watched";
  }

  static void expectTuned(const std::string& url, const Words& hosts, int port) {
    Program receiver({receiverProgram(), url});
    ASSERT_TRUE(receiver.awaitOutput("serving\n")) << receiver.errors();
    sendUntilTuned(hosts, port);
    receiver.signal(SIGTERM);
    EXPECT_EQ(receiver.wait(), 0) << receiver.errors();
    EXPECT_NE(receiver.output().find(url + ": "), std::string::npos) << "its totals";
  }
  /// That the receiver refuses its arguments with this complaint.
  static void expectRefusal(const Words& words, const std::string& complaint) {
    Words all = {receiverProgram()};
    all.insert(all.end(), words.begin(), words.end());
    Program receiver(all);
    EXPECT_EQ(receiver.wait(), 1);
    EXPECT_EQ(receiver.errors(), "quillwork-receiver: " + complaint + "\n");
  }
};

TEST_F(Urls, DatagramsToAnAddress) { expectTuned("udp://127.0.0.1:45681", {"127.0.0.1"}, 45681); }

TEST_F(Urls, DatagramsToAName) {
  expectTuned("udp://localhost:45682", {"127.0.0.1", "::1"}, 45682);
}

TEST_F(Urls, DatagramsToAnAddressOfIpVersion6) {
  const Place place("::1", 0);
  const Socket probe(place, SOCK_DGRAM);
  if (bind(probe.number(), place.get(), place.size) != 0) GTEST_SKIP() << "there is no ::1";
  expectTuned("udp://[::1]:45683", {"::1"}, 45683);
}

/// A group is joined on the loopback interface of a network of this test's own: nothing of it
/// leaves the machine.
TEST_F(Urls, DatagramsToAGroup) {
  std::promise<std::string> skipped;
  std::thread other([&] {
    // This thread's, and that of the programs that it starts.
    if (unshare(CLONE_NEWNET) != 0) {
      skipped.set_value("no network of its own is allowed here");
      return;
    }
    skipped.set_value("");
    ifreq request{};
    std::strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    const Socket control(socket(AF_INET, SOCK_DGRAM, 0));
    ASSERT_EQ(ioctl(control.number(), SIOCSIFFLAGS, &request), 0);
    expectTuned("udp://239.255.7.7:45684?interface=lo", {"239.255.7.7"}, 45684);
    expectTuned("udp://@239.255.7.8:45685?interface=lo", {"239.255.7.8"}, 45685);
  });
  other.join();
  const std::string reason = skipped.get_future().get();
  if (!reason.empty()) GTEST_SKIP() << reason;
}

/// An RTP packet (RFC 3550) with transport stream packets in it (RFC 2250).
std::string rtp(std::uint16_t number, const std::string& packets) {
  const std::uint32_t time = 1000U + 90U * number;
  std::string bytes = {'\x80', 33};
  for (const unsigned shift : {8U, 0U}) bytes += static_cast<char>(number >> shift);
  for (const unsigned shift : {24U, 16U, 8U, 0U}) bytes += static_cast<char>(time >> shift);
  return bytes + "\x12\x34\x56\x78" + packets;
}

TEST_F(Urls, RtpInTheWrongOrderIsPutInOrderAndItsLossesAreCounted) {
  const std::string url = "rtp://127.0.0.1:45686";
  Program receiver({receiverProgram(), url});
  ASSERT_TRUE(receiver.awaitOutput("serving\n")) << receiver.errors();
  const Place place("127.0.0.1", 45686);
  const Socket sender(place, SOCK_DGRAM);
  constexpr std::uint16_t count = 60;
  std::vector<std::string> all;
  unsigned counter = 0;
  for (std::uint16_t number = 0; number < count; ++number) {
    std::string packets;
    for (int index = 0; index < 7; ++index) {
      // Of the PID that the SDT has; nothing but stuffing.
      packets += "G" + std::string("\x00\x11", 2) + static_cast<char>(0x10U | (counter++ & 0xfU)) +
                 std::string(packetSize - 4, '\xff');
    }
    all.push_back(rtp(number, packets));
  }
  all.push_back(rtp(count, patPacket()));
  std::swap(all[10], all[11]);
  std::swap(all[40], all[42]);
  for (const std::size_t lost : {20U, 30U, 31U}) all[lost].clear();
  for (const std::string& packet : all) {
    if (packet.empty()) continue;
    sendto(sender.number(), packet.data(), packet.size(), 0, place.get(), place.size);
  }
  while (!isTuned()) {
  }
  receiver.signal(SIGTERM);
  EXPECT_EQ(receiver.wait(), 0);
  const std::string totals =
      url + ": " + std::to_string((count - 3) * 7 + 1) + " packets (0 damaged, 2 gaps), 1 sections";
  EXPECT_NE(receiver.output().find(totals), std::string::npos) << receiver.output();
}

TEST_F(Urls, SrtFromASenderThatCalls) {
  const std::string url = "srt://127.0.0.1:45687?mode=listener";
  Program receiver({receiverProgram(), url});
  ASSERT_TRUE(receiver.awaitOutput("serving\n")) << receiver.errors();
  // A portion a millisecond: a sender that ends has what is still on its way thrown away.
  Program sender({"/usr/bin/gst-launch-1.0", "-q", "filesrc", std::string("location=") + SAMPLE,
                  "blocksize=1316", "!", "identity", "sleep-time=1000", "!", "srtsink",
                  "uri=srt://127.0.0.1:45687"});
  while (!isTuned()) {
  }
  receiver.signal(SIGTERM);
  EXPECT_EQ(receiver.wait(), 0) << receiver.errors();
}

/// Listens on a port of its own.
class Listener : public Socket {
 public:
  Listener() : Socket(Place("127.0.0.1", 0), SOCK_STREAM) {
    const Place place("127.0.0.1", 0);
    EXPECT_EQ(bind(number(), place.get(), place.size), 0);
    EXPECT_EQ(listen(number(), 5), 0);
  }
  [[nodiscard]] std::string url() const {
    sockaddr_in bound{};
    socklen_t size = sizeof bound;
    getsockname(number(), reinterpret_cast<sockaddr*>(&bound), &size);
    return "http://localhost:" + std::to_string(ntohs(bound.sin_port)) + "/stream.ts";
  }
};

/// A server that answers each request with the same.
class Server {
 public:
  explicit Server(std::string answer) : answer_(std::move(answer)), thread_([this] { serve(); }) {}
  ~Server() {
    shutdown(listener_.number(), SHUT_RDWR);
    thread_.join();
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  [[nodiscard]] std::string url() const { return listener_.url(); }

 private:
  void serve() const {
    for (;;) {
      const Socket connection(accept(listener_.number(), nullptr, nullptr));
      if (connection.number() == -1) return;
      std::string request;
      char bytes[4096];
      while (request.find("\r\n\r\n") == std::string::npos) {
        const ssize_t size = recv(connection.number(), bytes, sizeof bytes, 0);
        if (size <= 0) break;
        request.append(bytes, static_cast<std::size_t>(size));
      }
      for (std::size_t sent = 0; sent < answer_.size();) {
        const ssize_t size =
            send(connection.number(), answer_.data() + sent, answer_.size() - sent, MSG_NOSIGNAL);
        if (size <= 0) break;
        sent += static_cast<std::size_t>(size);
      }
      shutdown(connection.number(), SHUT_WR);
    }
  }

  const std::string answer_;
  const Listener listener_;
  std::thread thread_;
};

std::string found(const std::string& body) {
  return "HTTP/1.0 200 OK\r\nContent-Type: video/MP2T\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\n\r\n" + body;
}

TEST_F(Urls, HttpIsReadToItsEndAndAgainWhenItIsTunedAnew) {
  const std::string bytes = tables();
  const Server server(found(bytes));
  Program receiver({receiverProgram(), "--fast", server.url()});
  const std::string totals =
      server.url() + ": " + std::to_string(bytes.size() / packetSize) + " packets (0 damaged";
  ASSERT_TRUE(receiver.awaitOutput(totals)) << receiver.errors();
  receiver.forgetOutput();
  receiver.say("retune");
  ASSERT_TRUE(receiver.awaitOutput("broadcast time")) << receiver.errors();
  receiver.signal(SIGTERM);
  EXPECT_EQ(receiver.wait(), 0);
  EXPECT_EQ(receiver.errors(), "");
}

TEST_F(Urls, WhatAServerRefusesAndWhatItHasOtherwiseIsSaid) {
  const Server refusing("HTTP/1.0 404 Not Here\r\nContent-Length: 0\r\n\r\n");
  Program receiver({receiverProgram(), refusing.url()});
  EXPECT_EQ(receiver.wait(), 1);
  EXPECT_TRUE(receiver.errors().starts_with("quillwork-receiver: " + refusing.url() + ": "))
      << receiver.errors();
  const Server other(found("<html>" + std::string(100'000, ' ')));
  Program puzzled({receiverProgram(), "--once", other.url()});
  EXPECT_EQ(puzzled.wait(), 1);
  EXPECT_EQ(puzzled.errors(), "quillwork-receiver: " + other.url() +
                                  ": what arrives is no MPEG transport stream of 188, 192 or "
                                  "204-byte packets: it is a markup text\n");
}

TEST_F(Urls, AServerThatSaysNothingHoldsUpNoEnd) {
  const Listener listener;
  Program receiver({receiverProgram(), listener.url()});
  const Socket connection(accept(listener.number(), nullptr, nullptr));
  char byte = 0;
  ASSERT_EQ(recv(connection.number(), &byte, 1, 0), 1);
  // Nor does it let another receiver serve meanwhile.
  expectRefusal({TABLES},
                "/dev/shm/ipc.socket: another receiver serves there; it has to end first");
  receiver.signal(SIGTERM);
  EXPECT_EQ(receiver.wait(), 0);
  // It would serve without the stream in the end.
  EXPECT_EQ(receiver.output(), "");
  EXPECT_EQ(receiver.errors(), "");
}

TEST_F(Urls, WhatIsNoUrlOrNoOptionIsRefused) {
  for (const char* const wrong :
       {"udp://", "udp://127.0.0.1", "udp://127.0.0.1:0", "udp://127.0.0.1:70000", "udp://x"}) {
    expectRefusal({wrong}, std::string(wrong) + ": is not udp://ADDRESS:PORT");
  }
  expectRefusal({"udp://127.0.0.1:1x"}, "udp://127.0.0.1:1x: is not a URL");
  expectRefusal({"udp://127.0.0.1:45688?port=1"},
                "udp://127.0.0.1:45688?port=1: 'port=1' is no option of udp://");
  expectRefusal({"rtp://127.0.0.1:45688?latency=x"},
                "rtp://127.0.0.1:45688?latency=x: 'latency=x' is no option of rtp://");
  expectRefusal({"ftp://there/x.ts"},
                "ftp://there/x.ts: is no source: a file, '-', udp://, rtp://, srt://, http://, "
                "https:// or dvb:// is");
  const Place place("127.0.0.1", 45689);
  const Socket taken(place, SOCK_DGRAM);
  ASSERT_EQ(bind(taken.number(), place.get(), place.size), 0);
  Program receiver({receiverProgram(), "udp://127.0.0.1:45689"});
  EXPECT_EQ(receiver.wait(), 1);
  EXPECT_NE(receiver.errors().find("Address already in use"), std::string::npos)
      << receiver.errors();
}

TEST_F(Urls, AnAdapterThatIsNotThereIsNamedByItsDevice) {
  expectRefusal({"dvb://15.2?frequency=506000000&delsys=dvb-t2"},
                "dvb://15.2?frequency=506000000&delsys=dvb-t2: Device "
                "\"/dev/dvb/adapter15/frontend2\" does not exist");
  expectRefusal({"dvb://x"}, "dvb://x: is not dvb://ADAPTER[.FRONTEND]?frequency=NUMBER...");
  expectRefusal({"dvb://0"}, "dvb://0: has no frequency");
  expectRefusal({"dvb://0?frequency=1&delsys=dvb-x"},
                "dvb://0?frequency=1&delsys=dvb-x: 'delsys=dvb-x' is no option of dvb://");
}

TEST(Sources, AUrlInABuildWithoutGStreamerSaysWhatIsMissing) {
  if (HAS_GSTREAMER) GTEST_SKIP() << "this build has it";
  Program receiver({receiverProgram(), "udp://127.0.0.1:45690"});
  EXPECT_EQ(receiver.wait(), 1);
  EXPECT_EQ(receiver.errors(),
            "quillwork-receiver: udp://127.0.0.1:45690: URLs need GStreamer, which this receiver "
            "is built without\n");
}

TEST(Sources, ANamedPipeLeavesTheStandardInputToCommands) {
  const std::string path = "/dev/shm/pipe";
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  Program receiver({receiverProgram(), "--fast", path});
  ASSERT_TRUE(receiver.awaitOutput("serving\n")) << receiver.errors();
  std::ofstream(path, std::ios::binary) << tables();
  ASSERT_TRUE(receiver.awaitOutput("broadcast time"));
  EXPECT_TRUE(isTuned());
  receiver.say("quit");
  EXPECT_EQ(receiver.wait(), 0);
  EXPECT_EQ(receiver.errors(), "");
}

TEST(Sources, OnceEndsTheReceiverAtTheStreamsEnd) {
  const std::string cut = "/dev/shm/cut.ts";
  std::ofstream(cut, std::ios::binary) << tables().substr(100);
  Program receiver({receiverProgram(), "--once", "--fast", cut});
  EXPECT_EQ(receiver.wait(), 0);
  EXPECT_NE(receiver.output().find("broadcast time"), std::string::npos);
  EXPECT_EQ(receiver.errors(), "quillwork-receiver: " + cut +
                                   ": is cut inside packets: 88 bytes before the first whole one "
                                   "and 0 behind the last are skipped\n");
  Program both({receiverProgram(), "--once", "--loop", cut});
  EXPECT_EQ(both.wait(), 1);
  EXPECT_EQ(both.errors(), "quillwork-receiver: --loop excludes --once\n");
}

TEST(Sources, ALiveSourceHasItsTotalsWhenTheReceiverEnds) {
  Program receiver({receiverProgram(), "-"});
  receiver.give(tables());
  while (!isTuned()) {
  }
  receiver.signal(SIGTERM);
  EXPECT_EQ(receiver.wait(), 0);
  EXPECT_NE(receiver.output().find("-: "), std::string::npos) << receiver.output();
  EXPECT_NE(receiver.output().find("broadcast time"), std::string::npos);
}

}  // namespace
