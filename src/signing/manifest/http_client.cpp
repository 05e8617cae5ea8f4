#include "signing/manifest/http_client.h"

#include <string.h>

#include <algorithm>
#include <optional>

#include "signing/crypto/trace.h"
#include "signing/hash/codec.h"

namespace tolven {
namespace {

constexpr int kStatusOk = 200;

std::span<const std::uint8_t> BytesOf(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

// What comes from a stranger is shown without control characters.
std::string Printable(std::string_view text) {
  std::string shown(text.substr(0, 100));
  std::replace_if(
      shown.begin(), shown.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
  return shown;
}

// Digits only; nothing for anything else or more than a reply may have.
std::optional<std::size_t> ParseLength(std::string_view text) {
  std::size_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9' || value > kMaxHttpReply) return std::nullopt;
    value = 10 * value + static_cast<std::size_t>(c - '0');
  }
  if (text.empty() || value > kMaxHttpReply) return std::nullopt;
  return value;
}

// The header of a reply: everything up to the first empty line. Lines end with CR LF or a single LF.
struct ReplyHeader {
  std::string statusLine;
  int status = 0;
  std::optional<std::string> contentType;
  std::optional<std::size_t> contentLength;
  bool isCoded = false;  // in a transfer coding that HTTP/1.0 does not know
};

// "HTTP/1.0 200 OK": 0 when it is something else.
int ParseStatus(std::string_view line) {
  if (!line.starts_with("HTTP/1.") || line.size() < 12 || line[8] != ' ') return 0;
  if (line.size() > 12 && line[12] != ' ') return 0;
  return static_cast<int>(ParseLength(line.substr(9, 3)).value_or(0));
}

bool ParseField(std::string_view line, ReplyHeader& header) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || colon == 0) return false;
  const std::string_view name = line.substr(0, colon);
  const std::string_view value = Trim(line.substr(colon + 1));
  if (EqualsIgnoreCase(name, "Content-Type")) {
    // Parameters such as a charset do not make another type.
    header.contentType = std::string(Trim(value.substr(0, value.find(';'))));
  } else if (EqualsIgnoreCase(name, "Content-Length")) {
    const std::optional<std::size_t> length = ParseLength(value);
    if (!length || (header.contentLength && header.contentLength != length)) return false;
    header.contentLength = length;
  } else if (EqualsIgnoreCase(name, "Transfer-Encoding")) {
    header.isCoded = !EqualsIgnoreCase(value, "identity");
  }
  return true;
}

bool ParseHeader(std::string_view text, ReplyHeader& header) {
  for (bool first = true; !text.empty(); first = false) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    if (first) {
      header.statusLine = Printable(line);
      header.status = ParseStatus(line);
      if (header.status == 0) return false;
    } else if (!line.empty() && !ParseField(line, header)) {
      return false;
    }
  }
  return header.status != 0;
}

// Reads one reply piece by piece.
class ReplyReader {
 public:
  ReplyReader(Connection& connection, std::string& error) : m_connection(connection), m_error(error) {}

  // Status line and fields. What was read beyond them stays for ReadBody.
  bool ReadHeader(ReplyHeader& header) {
    std::size_t end = 0;
    while ((end = HeaderEnd()) == std::string::npos) {
      bool ended = false;
      if (!ReadSome(ended)) return false;
      if (ended) return Fail("The server's response ends within its header");
    }
    if (!ParseHeader(std::string_view(m_data).substr(0, end), header)) {
      return Fail("The server's response has no valid header: " + header.statusLine);
    }
    m_data.erase(0, end);
    return true;
  }

  // As many bytes as announced; without an announcement, all until the server closes.
  bool ReadBody(const ReplyHeader& header, std::vector<std::uint8_t>& body) {
    bool ended = false;
    while (!ended && (!header.contentLength || m_data.size() < *header.contentLength)) {
      if (!ReadSome(ended)) return false;
    }
    if (header.contentLength && m_data.size() < *header.contentLength) {
      return Fail("The server's response ends before its announced length");
    }
    const std::span<const std::uint8_t> bytes =
        BytesOf(m_data).first(header.contentLength.value_or(m_data.size()));
    body.assign(bytes.begin(), bytes.end());
    return true;
  }

  bool HasMore() const { return !m_data.empty(); }

 private:
  // Behind the empty line that ends the header; npos while it has not come.
  std::size_t HeaderEnd() const {
    for (std::size_t at = m_data.find('\n'); at != std::string::npos; at = m_data.find('\n', at + 1)) {
      if (m_data.compare(at + 1, 1, "\n") == 0) return at + 2;
      if (m_data.compare(at + 1, 2, "\r\n") == 0) return at + 3;
    }
    return std::string::npos;
  }

  bool ReadSome(bool& ended) {
    std::uint8_t buffer[8192];
    std::size_t done = 0;
    if (!m_connection.Read(buffer, done)) return Fail(m_connection.Error());
    if (m_read + done > kMaxHttpReply) return Fail("The server's response is too long");
    m_read += done;
    m_data.append(buffer, buffer + done);
    ended = done == 0;
    return true;
  }

  bool Fail(const std::string& text) {
    m_error = text;
    return false;
  }

  Connection& m_connection;
  std::string& m_error;
  std::string m_data;      // read and not yet used
  std::size_t m_read = 0;  // bytes in all
};

bool Send(Connection& connection, std::span<const std::uint8_t> data, std::string& error) {
  if (connection.Write(data)) return true;
  error = connection.Error();
  return false;
}

// "Authorization: Basic" of RFC 7617.
std::string Credentials(const SmfUrlComponents& url) {
  const std::string plain = url.user + ":" + url.password;
  std::string text(plain.size() * 4 / 3 + 5, '\0');
  std::size_t written = 0;
  if (haEncBase64SB(plain.data(), plain.size(), kHaBase64Pad, 0, nullptr, text.data(), text.size(),
                    &written) != 0) {
    return {};
  }
  text.resize(written);
  return text;
}

}  // namespace

bool HttpProxyConnect(Connection& connection, const SmfUrlComponents& target, std::string& error) {
  const std::string host = target.host.find(':') == std::string::npos ? target.host : "[" + target.host + "]";
  connection.StartClock();
  if (!Send(connection, BytesOf("CONNECT " + host + ":" + target.port + " HTTP/1.0\r\n\r\n"), error))
    return false;
  connection.StartClock();
  ReplyReader reader(connection, error);
  ReplyHeader header;
  if (!reader.ReadHeader(header)) return false;
  if (header.status != kStatusOk) {
    error = "The proxy refused the connection: " + header.statusLine;
    return false;
  }
  // The other side speaks only when spoken to: bytes that are there already are not its own.
  if (!reader.HasMore()) return true;
  error = "The proxy sent more than its answer";
  return false;
}

bool HttpPost(Connection& connection, const SmfUrlComponents& url, const char* contentType,
              const char* accept, std::span<const std::uint8_t> body, std::string& error) {
  std::string request = "POST " + url.path + " HTTP/1.0\r\nUser-Agent: QEL\r\nAccept-Encoding: \r\n";
  request.append("Accept: ").append(accept).append("\r\n");
  if (url.hasUser) request.append("Authorization: Basic ").append(Credentials(url)).append("\r\n");
  request.append("Content-Type: ").append(contentType).append("\r\n");
  request.append("Content-Length: ").append(std::to_string(body.size())).append("\r\n\r\n");
  connection.StartClock();
  return Send(connection, BytesOf(request), error) && Send(connection, body, error);
}

bool SmfUtilHTTPResponseRead(Connection& connection, const char* contentType, std::vector<std::uint8_t>& body,
                             std::string& error) {
  const std::string wanted = contentType;
  connection.StartClock();
  ReplyReader reader(connection, error);
  ReplyHeader header;
  if (!reader.ReadHeader(header)) return false;
  if (header.status != kStatusOk) {
    error = "The server refused the request: " + header.statusLine;
  } else if (!header.contentType) {
    error = "Server response does not specify content type, but " + wanted + " is expected to be found";
  } else if (!EqualsIgnoreCase(*header.contentType, wanted)) {
    error = "Server response specifies content type in header as " + Printable(*header.contentType) +
            ", but " + wanted + " is expected to be found";
  } else if (header.isCoded) {
    error = "Server response has a transfer coding, which HTTP/1.0 does not have";
  } else if (reader.ReadBody(header, body)) {
    ManifestTrace("Read proper response of %d bytes\n", static_cast<int>(body.size()));
    return true;
  }
  return false;
}

}  // namespace tolven
