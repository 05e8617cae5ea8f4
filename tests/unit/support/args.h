#pragma once

#include <sstream>
#include <string>
#include <vector>

namespace tolven::test {

// An argument vector that may be written to, as main gets it. "_" in a text of arguments stands for a blank.
class Args {
 public:
  explicit Args(const std::string& text) : m_texts{"TOLVEN"} {
    std::istringstream stream(text);
    for (std::string word; stream >> word;) {
      for (char& c : word) {
        if (c == '_') c = ' ';
      }
      m_texts.push_back(word);
    }
    for (std::string& word : m_texts) m_pointers.push_back(word.data());
    m_pointers.push_back(nullptr);
  }
  Args(const Args&) = delete;
  Args& operator=(const Args&) = delete;

  int Count() const { return static_cast<int>(m_texts.size()); }
  char** Vector() { return m_pointers.data(); }

 private:
  std::vector<std::string> m_texts;
  std::vector<char*> m_pointers;
};

}  // namespace tolven::test
