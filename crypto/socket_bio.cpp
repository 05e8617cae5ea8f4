#include "socket_bio.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdint>
#include <new>

namespace tolven::crypto {
namespace {

using MethodPtr = std::unique_ptr<BIO_METHOD, Releaser<BIO_meth_free>>;

int SocketOf(BIO* bio) {
  return static_cast<int>(reinterpret_cast<std::intptr_t>(BIO_get_data(bio)));
}

bool MayRetry() {
  return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

int Write(BIO* bio, const char* data, int length) {
  BIO_clear_retry_flags(bio);
  if (length <= 0) return 0;
  const ssize_t sent = send(SocketOf(bio), data, static_cast<std::size_t>(length), MSG_NOSIGNAL);
  if (sent < 0 && MayRetry()) BIO_set_retry_write(bio);
  return static_cast<int>(sent);
}

int Read(BIO* bio, char* buffer, int length) {
  BIO_clear_retry_flags(bio);
  if (length <= 0) return 0;
  const ssize_t got = recv(SocketOf(bio), buffer, static_cast<std::size_t>(length), 0);
  if (got < 0 && MayRetry()) BIO_set_retry_read(bio);
  if (got == 0) BIO_set_flags(bio, BIO_FLAGS_IN_EOF);
  return static_cast<int>(got);
}

long Control(BIO* bio, int command, long /*number*/, void* /*pointer*/) {
  if (command == BIO_CTRL_FLUSH) return 1;
  if (command == BIO_CTRL_EOF) return BIO_test_flags(bio, BIO_FLAGS_IN_EOF) != 0 ? 1 : 0;
  return 0;
}

MethodPtr MakeMethod() {
  MethodPtr method(BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "socket without signals"));
  if (!method) throw std::bad_alloc();
  BIO_meth_set_write(method.get(), Write);
  BIO_meth_set_read(method.get(), Read);
  BIO_meth_set_ctrl(method.get(), Control);
  return method;
}

}  // namespace

BioPtr MakeSocketBio(int socket) {
  static const MethodPtr method = MakeMethod();
  BioPtr bio(BIO_new(method.get()));
  if (!bio) throw std::bad_alloc();
  BIO_set_data(bio.get(), reinterpret_cast<void*>(static_cast<std::intptr_t>(socket)));
  BIO_set_init(bio.get(), 1);
  return bio;
}

}  // namespace tolven::crypto
