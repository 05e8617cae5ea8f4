#include <gtest/gtest.h>

#include <string>

#include "fileio/utils.h"

namespace tolven {
namespace {

// The definition, word for word: at a "*" the rest is tried against every suffix.
bool SlowMatch(const char* name, const char* pattern) {
  if (*pattern == '\0') return *name == '\0';
  if (*pattern == '*') return SlowMatch(name, pattern + 1) || (*name != '\0' && SlowMatch(name + 1, pattern));
  return *name != '\0' && (*pattern == '?' || *pattern == *name) && SlowMatch(name + 1, pattern + 1);
}

// All texts over `alphabet` of up to `length` characters.
std::vector<std::string> AllTexts(const std::string& alphabet, std::size_t length) {
  std::vector<std::string> texts = {""};
  for (std::size_t begin = 0, n = 0; n < length; ++n) {
    const std::size_t end = texts.size();
    for (; begin < end; ++begin) {
      for (const char c : alphabet) texts.push_back(texts[begin] + c);
    }
  }
  return texts;
}

TEST(StringMatch, AgreesWithTheDefinition) {
  const auto names = AllTexts("ab", 6);
  for (const std::string& pattern : AllTexts("ab*?", 5)) {
    for (const std::string& name : names) {
      ASSERT_EQ(CUtils::StringMatch(name.c_str(), pattern.c_str()), SlowMatch(name.c_str(), pattern.c_str()))
          << name << " against " << pattern;
    }
  }
}

TEST(StringMatch, HostilePatternEnds) {
  std::string pattern;
  for (int i = 0; i < 2000; ++i) pattern += "*a";
  pattern += "b";
  EXPECT_FALSE(CUtils::StringMatch(std::string(4000, 'a').c_str(), pattern.c_str()));
}

TEST(ValidateFilePath, EveryResultStaysBelow) {
  for (const std::string& path : AllTexts("./a:", 7)) {
    std::string result = path;
    CUtils::ValidateFilePath(result);
    const std::string framed = "/" + result + "/";
    ASSERT_TRUE(result.empty() ||
                (framed.find("//") == std::string::npos && framed.find("/./") == std::string::npos &&
                 framed.find("/../") == std::string::npos))
        << path << " became " << result;
    // A second ":" belongs to the name, so only results without one are fixed points.
    if (result.find(':') != std::string::npos) continue;
    std::string again = result;
    CUtils::ValidateFilePath(again);
    ASSERT_EQ(again, result) << path;
  }
}

}  // namespace
}  // namespace tolven
