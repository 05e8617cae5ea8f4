#include "signing/manifest/url.h"

#include <gtest/gtest.h>

#include "support/split.h"

namespace tolven {
namespace {

struct UrlCase {
  std::string_view url;
  SmfUrlComponents parts;
};

TEST(Url, Components) {
  const UrlCase rows[] = {
      {"http://host", {"http", "", "", "host", "80", "/", false}},
      {"HTTPS://Host/", {"https", "", "", "Host", "443", "/", false}},
      {"http://host:8080/a/b?c=d", {"http", "", "", "host", "8080", "/a/b?c=d", false}},
      {"http://host?c=d", {"http", "", "", "host", "80", "/?c=d", false}},
      {"http://host/a#b", {"http", "", "", "host", "80", "/a", false}},
      {"http://[::1]:65535/a", {"http", "", "", "::1", "65535", "/a", false}},
      {"http://[::1]", {"http", "", "", "::1", "80", "/", false}},
      {"http://user@host/", {"http", "user", "", "host", "80", "/", true}},
      {"http://u:p%40%3a:x@host/", {"http", "u", "p@::x", "host", "80", "/", true}},
      {"http://u:p@w@host/", {"http", "u", "p@w", "host", "80", "/", true}},
      {"http://:@host/", {"http", "", "", "host", "80", "/", true}},
      {"http://host/\xc3\xa4@b:c", {"http", "", "", "host", "80", "/\xc3\xa4@b:c", false}},
      {"ldap://host/", {"ldap", "", "", "host", "", "/", false}}};
  for (const UrlCase& row : rows) {
    SmfUrlComponents parts;
    ASSERT_TRUE(SmfUtilSplitURL(row.url, parts)) << row.url;
    EXPECT_EQ(parts.scheme, row.parts.scheme) << row.url;
    EXPECT_EQ(parts.user, row.parts.user) << row.url;
    EXPECT_EQ(parts.password, row.parts.password) << row.url;
    EXPECT_EQ(parts.host, row.parts.host) << row.url;
    EXPECT_EQ(parts.port, row.parts.port) << row.url;
    EXPECT_EQ(parts.path, row.parts.path) << row.url;
    EXPECT_EQ(parts.hasUser, row.parts.hasUser) << row.url;
  }
}

TEST(Url, Refused) {
  const std::string rows =
      "|host|http:/host|://host|http://|http:///path|http://:80/|http://host:/|"
      "http://host:0/|http://host:65536/|http://host:80x/|http://host:-1/|"
      "http://host:000080/|http://a:b:c/|http://[::1|http://[::1]x/|http://[]/|"
      "http://host\r\nX: y/|http://host/\n|http://host/a b|http://host/\x7f|http://host/\t|"
      "http://h\xc3\xb6st/|http://\xc3\xa4:b@host/|http://a%0d%0ab:c@host/|"
      "http://a%c3%a4:c@host/|http://a%3ab:c@host/|http://a%4:c@host/|http://a%zz@host/|"
      "http://ho%73t/|http://host\\@evil/|http://<host>/";
  auto urls = test::Split(rows);
  urls.emplace_back("http://host/\0", 13);
  for (const std::string& url : urls) {
    SmfUrlComponents parts;
    EXPECT_FALSE(SmfUtilSplitURL(url, parts)) << url;
  }
}

}  // namespace
}  // namespace tolven
