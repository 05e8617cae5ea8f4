#pragma once

#include <string>
#include <string_view>

namespace tolven {

// scheme://[user[:password]@]host[:port][/path], RFC 3986 as far as a time-stamp service needs it.
struct SmfUrlComponents {
  std::string scheme;  // lower case
  std::string user;    // empty: none; percent signs are decoded in user and password
  std::string password;
  std::string host;      // an IPv6 address stands without its brackets
  std::string port;      // digits; the scheme's own when the URL has none, empty for an unknown scheme
  std::string path;      // with the query, begins with "/"; a fragment is dropped
  bool hasUser = false;  // there was an "@"
};

// True iff the URL has this form. Blanks, control characters (a line break could smuggle a second header line
// into the request) and, outside of the path, anything but 7-bit characters are refused.
[[nodiscard]] bool SmfUtilSplitURL(std::string_view url, SmfUrlComponents& components);

// Empties the components; the password is overwritten first.
void SmfUtilReleaseURLComponents(SmfUrlComponents& components);

}  // namespace tolven
