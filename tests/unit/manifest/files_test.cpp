// Records against files and against other records.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>

#include "manifest/document.h"
#include "support/split.h"

namespace tolven {
namespace {

using test::AddFiles;
using test::NamedContent;

// A context in read mode that lists these files.
ManifestContextPtr Listing(const std::vector<NamedContent>& files) {
  const ManifestContextPtr writer = ManifestMakeContext();
  AddFiles(writer.get(), files);
  const std::string text =
      (files.empty() ? test::kHeader : std::string(ManifestGetText(writer.get()))) + "\n";
  ManifestContextPtr reader = ManifestMakeContext();
  EXPECT_EQ(test::Parse(reader.get(), text), SMF_OK);
  return reader;
}

int Check(ManifestContext* context, const NamedContent& file) {
  if (const int result = ManifestOpenFile(context, file.first.data(), file.first.size()); result != SMF_OK)
    return result;
  EXPECT_EQ(ManifestUpdateFile(context, file.second.data(), file.second.size()), SMF_OK);
  return ManifestCloseFile(context);
}

TEST(ManifestCheck, NthFileOfANameAnswersToTheNthRecord) {
  const ManifestContextPtr context = Listing({{"x", "one"}, {"y", "other"}, {"x", "two"}});
  EXPECT_EQ(Check(context.get(), {"x", "one"}), SMF_OK);
  EXPECT_EQ(Check(context.get(), {"x", "two"}), SMF_OK);
  EXPECT_EQ(ManifestCheckAllMet(context.get()), SMF_EFILENOTFOUND);
  EXPECT_NE(ManifestGetLastError(context.get()).find(">y<"), std::string::npos);
  EXPECT_EQ(Check(context.get(), {"y", "other"}), SMF_OK);
  EXPECT_EQ(ManifestCheckAllMet(context.get()), SMF_OK);
  EXPECT_EQ(Check(context.get(), {"x", "one"}), SMF_EFILENOTFOUND) << "a third x is not listed";

  ManifestRewindFiles(context.get());
  EXPECT_EQ(Check(context.get(), {"x", "two"}), SMF_EDIGEST) << "they must not change places";
  EXPECT_EQ(Check(context.get(), {"x", "one"}), SMF_EDIGEST);
}

TEST(ManifestCheck, FilesMayComeInAnyOrder) {
  // The content of a file of a name is its number among those of the name.
  const std::vector<NamedContent> listed = {{"b", "0"}, {"a", "0"}, {"b", "1"}, {"c", "0"}, {"a", "1"}};
  const ManifestContextPtr context = Listing(listed);
  std::vector<std::string> names = {"a", "a", "b", "b", "c", "d"};
  do {
    ManifestRewindFiles(context.get());
    std::map<std::string, int> met;
    for (const std::string& name : names) {
      const int code = Check(context.get(), {name, std::to_string(met[name]++)});
      EXPECT_EQ(code, name == "d" ? SMF_EFILENOTFOUND : SMF_OK) << ::testing::PrintToString(names);
      const bool all = met["a"] == 2 && met["b"] == 2 && met["c"] == 1;
      EXPECT_EQ(ManifestCheckAllMet(context.get()), all ? SMF_OK : SMF_EFILENOTFOUND);
    }
  } while (std::next_permutation(names.begin(), names.end()));
}

TEST(ManifestCheck, PassedAndAbandonedFilesCountAsMet) {
  const ManifestContextPtr context = Listing({{"x", "one"}, {"x", "two"}, {"x", "three"}});
  EXPECT_EQ(ManifestPassFile(context.get(), "x", 1), SMF_OK);
  ASSERT_EQ(ManifestOpenFile(context.get(), "x", 1), SMF_OK);
  ManifestAbandonFile(context.get());
  EXPECT_EQ(Check(context.get(), {"x", "three"}), SMF_OK);
  EXPECT_EQ(ManifestCheckAllMet(context.get()), SMF_OK);
  EXPECT_EQ(ManifestPassFile(context.get(), "x", 1), SMF_EFILENOTFOUND);
  EXPECT_EQ(ManifestGetFileCounter(context.get()), 3u);
}

// Files with a content of one letter, as "name1|other2".
std::vector<NamedContent> Files(const std::string& text) {
  std::vector<NamedContent> files;
  for (const std::string& part : test::Split(text)) {
    if (!part.empty()) files.emplace_back(part.substr(0, part.size() - 1), part.substr(part.size() - 1));
  }
  return files;
}

struct CompareCase {
  const char* internal;
  const char* external;
  int code;
  const char* text;
};

TEST(ManifestCompare, Table) {
  const CompareCase rows[] = {
      {"a1|b2", "a1|b2", SMF_OK, ""},
      {"", "", SMF_OK, ""},
      {"a1|b2", "b2|a1", SMF_OK, ""},
      {"a1|b2", "a1|b3", SMF_EDIGEST, "External manifest file >b< digest is different to internal manifest"},
      {"a1|b2", "a1|c2", SMF_EFILENOTFOUND, "External file >c< was not found in the internal manifest"},
      {"a1|b2", "a1", SMF_EBODY_NOT_EQUAL,
       "Incompatible content length of the internal(145) and external(73) manifest\nThe manifest content is "
       "not "
       "equal"},
      {"a1|a2", "a2|a1", SMF_EDIGEST, "External manifest file >a< digest is different to internal manifest"},
      {"a1|b2", "a1|a1", SMF_EFILENOTFOUND, "External file >a< was not found in the internal manifest"}};
  for (const CompareCase& row : rows) {
    const ManifestContextPtr internal = Listing(Files(row.internal));
    const ManifestContextPtr external = Listing(Files(row.external));
    EXPECT_EQ(ManifestCompare(internal.get(), external.get()), row.code)
        << row.internal << " and " << row.external;
    EXPECT_EQ(ManifestGetLastError(internal.get()), row.text) << row.internal << " and " << row.external;
  }
}

TEST(ManifestCompare, CountAndAlgorithm) {
  // Two short records are as long as one with a longer name.
  const ManifestContextPtr two = Listing({{"a", "1"}, {"b", "2"}});
  const ManifestContextPtr one = Listing({{"a", "1"}, {"b", "2"}});
  const ManifestContextPtr crc = ManifestMakeContext();
  ASSERT_EQ(test::Parse(crc.get(), "QEL-MANIFEST\nHash: CRC32\nBody: \n\n\n"), SMF_OK);
  EXPECT_EQ(ManifestCompare(two.get(), crc.get()), SMF_EBODY_NOT_EQUAL);
  EXPECT_TRUE(ManifestGetLastError(two.get()).starts_with("The file hash algorithms are not equal\n"));
  EXPECT_EQ(ManifestCompare(nullptr, one.get()), SMF_EINVARG);
  EXPECT_EQ(ManifestGetLastError(nullptr), "Invalid null argument passed for the manifest handle");
  ManifestClose(nullptr);

  const std::string longName(73, 'n');  // a line of 144 bytes, as two lines with names of one byte
  const ManifestContextPtr internal = Listing({{"a", "1"}, {"b", "2"}});
  const ManifestContextPtr longer = Listing({{longName, "1"}});
  EXPECT_EQ(ManifestCompare(longer.get(), internal.get()), SMF_EFILENOTFOUND);
}

}  // namespace
}  // namespace tolven
