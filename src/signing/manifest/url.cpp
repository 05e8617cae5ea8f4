#include "signing/manifest/url.h"

#include <string.h>

#include <algorithm>

#include "signing/hash/codec.h"

namespace tolven {
namespace {

constexpr int kMaxPort = 65535;

bool IsVisible(unsigned char c) {
  return c > ' ' && c != 0x7f;
}
// In user, host and port. Some readers take a backslash for a slash: two of them would see two hosts.
bool IsAuthority(unsigned char c) {
  return c < 0x80 && std::string_view("\"\\^`{}|<>").find(static_cast<char>(c)) == std::string_view::npos;
}
bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

std::string_view DefaultPort(std::string_view scheme) {
  if (scheme == "https") return "443";
  return scheme == "http" ? "80" : "";
}

std::string LowerCase(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lower;
}

// "%40" is "@". False for a broken escape and for one that hides a control character or an 8-bit one.
bool DecodePercent(std::string_view text, std::string& decoded) {
  decoded.clear();
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint8_t byte = static_cast<std::uint8_t>(text[i]);
    if (text[i] == '%') {
      if (text.size() - i < 3 || haDecBase16SB(text.data() + i + 1, 2, &byte, 1, nullptr) != HA_CODEC_OK)
        return false;
      i += 2;
    }
    if (byte < ' ' || byte >= 0x7f) return false;
    decoded.push_back(static_cast<char>(byte));
  }
  return true;
}

bool SplitUser(std::string_view userInfo, SmfUrlComponents& c) {
  const std::size_t colon = userInfo.find(':');
  const std::string_view password =
      colon == std::string_view::npos ? std::string_view() : userInfo.substr(colon + 1);
  c.hasUser = true;
  // A colon in the user would move the border between user and password in the request.
  return DecodePercent(userInfo.substr(0, colon), c.user) && DecodePercent(password, c.password) &&
         c.user.find(':') == std::string::npos;
}

bool SplitPort(std::string_view text, SmfUrlComponents& c) {
  if (text.empty() || text.size() > 5 || !std::all_of(text.begin(), text.end(), IsDigit)) return false;
  int port = 0;
  for (const char digit : text) port = 10 * port + (digit - '0');
  c.port = std::to_string(port);
  return port > 0 && port <= kMaxPort;
}

bool SplitHost(std::string_view text, SmfUrlComponents& c) {
  std::size_t end = text.find(':');
  if (text.starts_with('[')) {
    const std::size_t bracket = text.find(']');
    if (bracket == std::string_view::npos) return false;
    c.host = text.substr(1, bracket - 1);
    end = bracket + 1;
    if (end < text.size() && text[end] != ':') return false;
  } else {
    c.host = text.substr(0, end);
  }
  if (c.host.empty() || c.host.find_first_of("%[]") != std::string::npos) return false;
  c.port = DefaultPort(c.scheme);
  return end >= text.size() || SplitPort(text.substr(end + 1), c);
}

}  // namespace

bool SmfUtilSplitURL(std::string_view url, SmfUrlComponents& c) {
  c = SmfUrlComponents{};
  if (!std::all_of(url.begin(), url.end(), [](char b) { return IsVisible(static_cast<unsigned char>(b)); })) {
    return false;
  }
  const std::size_t schemeEnd = url.find("://");
  if (schemeEnd == std::string_view::npos || schemeEnd == 0) return false;
  c.scheme = LowerCase(url.substr(0, schemeEnd));

  std::string_view rest = url.substr(schemeEnd + 3);
  const std::size_t pathAt = std::min(rest.find_first_of("/?#"), rest.size());
  std::string_view authority = rest.substr(0, pathAt);
  std::string_view path = rest.substr(pathAt);
  path = path.substr(0, path.find('#'));
  if (!path.starts_with('/')) c.path.push_back('/');
  c.path.append(path);

  if (!std::all_of(authority.begin(), authority.end(),
                   [](char b) { return IsAuthority(static_cast<unsigned char>(b)); })) {
    return false;
  }
  if (const std::size_t at = authority.rfind('@'); at != std::string_view::npos) {
    if (!SplitUser(authority.substr(0, at), c)) return false;
    authority.remove_prefix(at + 1);
  }
  return SplitHost(authority, c);
}

void SmfUtilReleaseURLComponents(SmfUrlComponents& components) {
  explicit_bzero(components.password.data(), components.password.size());
  components = SmfUrlComponents{};
}

}  // namespace tolven
