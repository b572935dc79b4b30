#include "ipc/SharedSocket.h"

#include <sys/socket.h>

#include <atomic>
#include <utility>

namespace quillwork {

void SharedSocket::own(Descriptor socket) {
  const Lock lock(mutex_);
  end();
  own_ = std::move(socket);
  std::atomic_ref(shared_).store(own_.number());
}

int SharedSocket::number() const {
  const Lock lock(mutex_);
  return own_.number();
}

void SharedSocket::shutDown() {
  const Lock lock(mutex_);
  if (own_.number() != -1) shutdown(own_.number(), SHUT_RDWR);
}

void SharedSocket::close() {
  const Lock lock(mutex_);
  end();
}

void SharedSocket::end() {
  int number = own_.number();
  if (number == -1) return;
  shutdown(number, SHUT_RDWR);
  std::atomic_ref(shared_).compare_exchange_strong(number, -1);
  own_.close();
}

}  // namespace quillwork
