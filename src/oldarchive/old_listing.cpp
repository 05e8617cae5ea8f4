#include "oldarchive/old_listing.h"

#include <array>
#include <cstdio>
#include <ctime>

#include "report/show_text.h"

namespace tolven {
namespace {

constexpr std::uint32_t kSetUserId = 04000;
constexpr std::uint32_t kSetGroupId = 02000;

// Empty for a time that has no calendar date here: the line still tells the rest.
std::string ShortDate(std::int64_t mtime) {
  const auto seconds = static_cast<std::time_t>(mtime);
  std::tm parts{};
  if (localtime_r(&seconds, &parts) == nullptr) return {};
  std::array<char, 64> text{};
  return std::string(text.data(), std::strftime(text.data(), text.size(), "%b %d %H:%M", &parts));
}

}  // namespace

std::string OldPermissionString(const FileInfo& info) {
  std::string text = "----------";
  constexpr std::string_view kLetters = "rwxrwxrwx";
  if (info.IsDirectory()) text[0] = 'd';
  for (std::size_t i = 0; i < kLetters.size(); ++i) {
    if ((info.mode & (0400U >> i)) != 0) text[i + 1] = kLetters[i];
  }
  if ((info.mode & kSetUserId) != 0) text[3] = 's';
  if ((info.mode & kSetGroupId) != 0) text[6] = 's';
  return text;
}

std::string OldListingLine(const FileInfo& info) {
  std::array<char, 32> size{};
  std::snprintf(size.data(), size.size(), "%9llu", static_cast<unsigned long long>(info.size));
  return OldPermissionString(info) + "  " + size.data() + "  " + ShortDate(info.mtime) + "   " +
         ShowText(info.target);
}

}  // namespace tolven
