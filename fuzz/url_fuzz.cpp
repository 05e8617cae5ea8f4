// Addresses of time stamp services and proxies. What is accepted, put together from its parts, has the same
// parts again; and no part can end a line of a request.
#include "fuzz/support.h"
#include "signing/manifest/url.h"

namespace {

std::string Escape(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    constexpr const char* kDigits = "0123456789abcdef";
    escaped += {'%', kDigits[(c >> 4) & 15], kDigits[c & 15]};
  }
  return escaped;
}

}  // namespace

void tolven::fuzz::Run(Input input) {
  SmfUrlComponents url, again;
  if (!SmfUtilSplitURL(input.Text(), url)) return;
  for (const std::string& part : {url.scheme, url.user, url.password, url.host, url.port, url.path}) {
    Require(std::all_of(part.begin(), part.end(), [](char c) { return c < 0 || (c >= ' ' && c != 0x7f); }));
  }
  Require(!url.host.empty() && url.path.starts_with('/') && url.user.find(':') == std::string::npos);
  const bool bracketed = url.host.find(':') != std::string::npos;
  std::string text = url.scheme + "://";
  if (url.hasUser) text += Escape(url.user) + ":" + Escape(url.password) + "@";
  text += bracketed ? "[" + url.host + "]" : url.host;
  if (!url.port.empty()) text += ":" + url.port;
  Require(SmfUtilSplitURL(text + url.path, again));
  Require(again.scheme == url.scheme && again.user == url.user && again.password == url.password);
  Require(again.host == url.host && again.port == url.port && again.path == url.path);
  SmfUtilReleaseURLComponents(url);
}
