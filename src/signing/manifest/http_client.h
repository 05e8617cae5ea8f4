#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "signing/manifest/connection.h"
#include "signing/manifest/url.h"

namespace tolven {

// HTTP/1.0 for one exchange: a POST and its reply (RFC 1945).

inline constexpr std::size_t kMaxHttpReply = 1024 * 1024;  // bytes, header included

// Asks the proxy that the connection leads to for a tunnel (RFC 9110, 9.3.6). False with the reason in error.
[[nodiscard]] bool HttpProxyConnect(Connection& connection, const SmfUrlComponents& target,
                                    std::string& error);

// Sends `body` to the path of the URL. False with the reason in error.
[[nodiscard]] bool HttpPost(Connection& connection, const SmfUrlComponents& url, const char* contentType,
                            const char* accept, std::span<const std::uint8_t> body, std::string& error);

// Reads a reply with status 200 and that content type; a reply that ends before its announced length, is
// larger than kMaxHttpReply, or comes in another transfer coding, fails. False with the reason in error.
[[nodiscard]] bool SmfUtilHTTPResponseRead(Connection& connection, const char* contentType,
                                           std::vector<std::uint8_t>& body, std::string& error);

}  // namespace tolven
