#include <gtest/gtest.h>

#include "manifest/document.h"

namespace tolven {
namespace {

using test::AddFiles;

TEST(ManifestWriter, DocumentByteForByte) {
  const ManifestContextPtr context = ManifestMakeContext();
  AddFiles(context.get(), {{"a b", "abc"}, {"dir/empty", ""}});
  EXPECT_EQ(ManifestGetText(context.get()),
            test::kHeader + test::kAbcLine +
                "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855 0009 dir/empty\n");
  EXPECT_EQ(ManifestGetFileCounter(context.get()), 2u);
  EXPECT_EQ(ManifestGetSignedText(context.get()), "") << "the body is not ended yet";
}

TEST(ManifestWriter, LongestNameAndTheBufferBeyondIt) {
  const std::string name(65535, 'n');
  const ManifestContextPtr context = ManifestMakeContext();
  AddFiles(context.get(), {{name, "abc"}});
  EXPECT_TRUE(ManifestGetText(context.get()).ends_with(" ffff " + name + "\n"));
  const std::string longer(65536, 'n');
  EXPECT_EQ(ManifestOpenFile(context.get(), longer.data(), longer.size()), SMF_EINVARG);
}

TEST(ManifestWriter, MisuseIsRefusedAndRecorded) {
  const ManifestContextPtr context = ManifestMakeContext();
  EXPECT_EQ(ManifestOpenFile(context.get(), nullptr, 3), SMF_EINVARG);
  EXPECT_EQ(ManifestGetLastError(context.get()), "Invalid empty input file name passed");
  EXPECT_EQ(ManifestOpenFile(context.get(), "", 0), SMF_EINVARG);
  EXPECT_EQ(ManifestOpenFile(context.get(), "a\0b", 3), SMF_EINVARG);
  EXPECT_EQ(ManifestUpdateFile(context.get(), "x", 1), SMF_EINVARG);
  EXPECT_EQ(ManifestCloseFile(context.get()), SMF_EINVARG);
  EXPECT_EQ(ManifestGetText(context.get()), "") << "no refused call may leave a trace in the document";
  ASSERT_EQ(ManifestOpenFile(context.get(), "a", 1), SMF_OK);
  EXPECT_EQ(ManifestOpenFile(context.get(), "b", 1), SMF_EINVARG);
  EXPECT_EQ(ManifestUpdateFile(context.get(), nullptr, 1), SMF_EDIGESTLIB);
  EXPECT_NE(ManifestGetLastError(context.get()).find("\nError in haUpdate 1"), std::string::npos);
}

}  // namespace
}  // namespace tolven
