// A peer that keeps us waiting, with limits that only a test can set. What else a peer may do stands in the
// end-to-end tests.

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "signing/manifest/http_client.h"

namespace tolven {
namespace {

TEST(Connection, SilenceEnds) {
  const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  ASSERT_TRUE(bind(listener, generic, length) == 0 && listen(listener, 8) == 0 &&
              getsockname(listener, generic, &length) == 0);
  for (const bool drips : {false, true}) {
    Connection connection({3000, 300});
    ASSERT_TRUE(connection.Connect("127.0.0.1", std::to_string(ntohs(address.sin_port))));
    const int peer = accept(listener, nullptr, nullptr);
    // A byte now and then is no life sign: the limit is for the whole reply.
    const std::jthread server([&](const std::stop_token& stop) {
      while (drips && !stop.stop_requested() && send(peer, "H", 1, MSG_NOSIGNAL) == 1) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
      }
    });
    std::vector<std::uint8_t> body;
    std::string error;
    EXPECT_FALSE(SmfUtilHTTPResponseRead(connection, "application/timestamp-reply", body, error));
    EXPECT_NE(error.find("The server did not answer in time"), std::string::npos) << error;
    shutdown(peer, SHUT_RDWR);
  }
  close(listener);
}

}  // namespace
}  // namespace tolven
