#include <gtest/gtest.h>
#include <sys/stat.h>

#include "manifest_signing/signing_world.h"
#include "signing/crypto/dkv.h"
#include "support/temp_dir.h"

namespace tolven {
namespace {

using test::Initialised;
using test::Pki;
using test::Scratch;

const std::string kPlainDocument =
    "QEL-MANIFEST\nVersion: 1.0\nHash: SHA256\nSignature: PKCS7\nBody: Digest | Name-Length | Name\n\n" +
    test::kAbcLine + "\n";

// Signed with a key of the PKI, format "PKCS7".
std::string SignedBy(const std::string& pse,
                     const std::vector<test::NamedContent>& files = {{"a b", "abc"}}) {
  const ManifestContextPtr context = Initialised("PKCS7");
  test::AddFiles(context.get(), files);
  EXPECT_EQ(ManifestLocalSign(context.get(), Pki().File(pse).c_str(), nullptr, nullptr, nullptr, nullptr),
            SMF_OK)
      << ManifestGetLastError(context.get());
  return std::string(ManifestGetText(context.get()));
}

int Verify(ManifestContext* context, std::string_view document, const std::string& key = "",
           unsigned flags = 0) {
  return ManifestVerifyEx(context, document.data(), document.size(), key.c_str(), nullptr, nullptr, {}, flags,
                          false, true);
}

struct TrustCase {
  const char* what;
  const char* verify;      // content of QELverify.pse: a file of the PKI; null: none
  const char* validation;  // likewise QELvalidation.pse
  int code;
  const char* signer;
};

TEST(ManifestVerify, ProductiveThenValidation) {
  const std::string document = SignedBy("lonely.pse");
  const TrustCase rows[] = {
      {"productive", "lonely.crt", nullptr, SMF_OK, "QEL software"},
      {"both", "lonely.crt", "lonely.pse", SMF_OK, "QEL software"},
      {"validation", "trust.pse", "lonely.pse", SMF_ESIGNATURE_VALIDATION, "QEL validation"},
      {"no productive key at all", nullptr, "lonely.pse", SMF_ESIGNATURE_VALIDATION, "QEL validation"},
      {"neither knows the signer", "trust.pse", "foreign.crt", SMF_ESIGNATURE, "Unknown signer"},
      {"a namesake", "namesake.crt", "namesake.crt", SMF_ESIGNATURE, "Unknown signer"},
      {"damaged trust file", "nonsense.pse", "lonely.pse", SMF_ESIGNATURE, "Unknown signer"},
      {"no keys", nullptr, nullptr, SMF_ESIGNATURE, "Unknown signer"}};
  for (const TrustCase& row : rows) {
    Scratch sec;
    if (row.verify != nullptr) sec.Write("QELverify.pse", Pki().Read(row.verify));
    if (row.validation != nullptr) sec.Write("QELvalidation.pse", Pki().Read(row.validation));
    const test::Environment secudir("SECUDIR", sec.Path().c_str());
    const ManifestContextPtr context = Initialised("PKCS7");
    EXPECT_EQ(Verify(context.get(), document), row.code) << row.what << ManifestGetLastError(context.get());
    EXPECT_STREQ(ManifestSignatureName(context.get()), row.signer) << row.what;
    const bool accepted = row.code != SMF_ESIGNATURE;
    EXPECT_EQ(ManifestGetErrorCategory(context.get()),
              accepted ? MANIFEST_CATEGORY_LOGGABLE_WARNING : MANIFEST_CATEGORY_ERROR)
        << row.what;
    EXPECT_EQ(ManifestGetLastError(context.get()).find("QELverify.pse is missing") != std::string::npos,
              row.verify == nullptr && row.validation == nullptr)
        << row.what;
  }
}

TEST(ManifestVerify, NoFlippedByteOfTheSignedTextPasses) {
  const std::string document = SignedBy("signer.pse");
  const std::size_t covered = test::BodyOf(document).size();
  const ManifestContextPtr context = Initialised("PKCS7");
  for (std::size_t at = 0; at < covered; ++at) {
    std::string text = document;
    text[at] = static_cast<char>(text[at] ^ 1);
    const int result = Verify(context.get(), text);
    EXPECT_TRUE(result != SMF_OK && result != SMF_ESIGNATURE_EXTERNAL && result != SMF_ESIGNATURE_VALIDATION)
        << at;
    EXPECT_NE(ManifestGetErrorCategory(context.get()), MANIFEST_CATEGORY_LOGGABLE_WARNING) << at;
    EXPECT_EQ(ManifestGetFileCounter(context.get()), 0u) << at;
  }
  for (std::size_t length = 0; length < document.size(); length += 7) {
    EXPECT_NE(Verify(context.get(), std::string_view(document).substr(0, length)), SMF_OK) << length;
  }
  ASSERT_EQ(Verify(context.get(), document), SMF_OK) << "the context is as good as new";
}

TEST(ManifestVerify, LocalFiles) {
  const std::string document =
      SignedBy("signer.pse", {{"a b", "abc"}, {"dir/big", std::string(200001, 'x')}, {"empty", ""}});
  const test::TempDir here;
  const ManifestContextPtr context = Initialised("PKCS7");
  const auto verify = [&] {
    return ManifestVerifyFiles(context.get(), document.data(), document.size(), nullptr, nullptr, nullptr, {},
                               0);
  };
  const auto write = [](const char* name, const std::string& content) {
    std::ofstream(name, std::ios::binary | std::ios::trunc) << content;
  };
  std::filesystem::create_directory("dir");
  write("a b", "abc");
  write("dir/big", std::string(200001, 'x'));
  write("empty", "");
  EXPECT_EQ(verify(), SMF_OK) << ManifestGetLastError(context.get());

  write("dir/big", std::string(200000, 'x') + "y");
  EXPECT_EQ(verify(), SMF_EDIGEST);
  EXPECT_TRUE(
      ManifestGetLastError(context.get()).ends_with("Local File >dir/big< digest is different to manifest"));
  EXPECT_EQ(ManifestGetErrorCategory(context.get()), MANIFEST_CATEGORY_ERROR);
  write("dir/big", std::string(200001, 'x'));

  const auto expectMissing = [&](const char* what, const char* error) {
    EXPECT_EQ(verify(), SMF_EFILENOTFOUND) << what;
    EXPECT_TRUE(ManifestGetLastError(context.get())
                    .ends_with(std::string("Local File >empty< was not found. System error code ") + error))
        << what << ManifestGetLastError(context.get());
  };
  std::filesystem::remove("empty");
  expectMissing("missing", "2. No such file or directory");
  std::filesystem::create_directory("empty");
  expectMissing("directory", "21. Is a directory");
  std::filesystem::remove("empty");
  ASSERT_EQ(mkfifo("empty", 0600), 0);
  expectMissing("pipe", "22. Invalid argument");
  std::filesystem::remove("empty");
  write("elsewhere", "");
  std::filesystem::create_symlink("elsewhere", "empty");
  expectMissing("link", "40. Too many levels of symbolic links");
}

}  // namespace
}  // namespace tolven
