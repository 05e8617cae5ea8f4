#include <gtest/gtest.h>

#include "manifest/document.h"

namespace tolven {
namespace {

using test::Block;
using test::kAbcDigest;
using test::kAbcLine;
using test::kHeader;
using test::kSmallDocument;
using test::Parse;

std::string WithHeader(std::string_view lines) {
  return std::string("QEL-MANIFEST\n").append(lines).append("Body: Digest | Name-Length | Name\n\n");
}

TEST(ManifestParser, ReadsWhatTheWriterWrites) {
  const std::vector<test::NamedContent> files = {{"a b", "abc"},
                                                 {" leading and trailing ", ""},
                                                 {"line\nbreak", "x"},
                                                 {std::string(32767, 'l'), "y"},
                                                 {"\xff\x80", "z"}};
  const ManifestContextPtr writer = ManifestMakeContext();
  test::AddFiles(writer.get(), files);
  const std::string document = std::string(ManifestGetText(writer.get())) + "\n";

  const ManifestContextPtr reader = ManifestMakeContext();
  ASSERT_EQ(Parse(reader.get(), document), SMF_OK) << ManifestGetLastError(reader.get());
  ManifestFiles records;
  ASSERT_EQ(ManifestGetFileList(reader.get(), &records), SMF_OK);
  ASSERT_EQ(records.size(), files.size());
  for (std::size_t i = 0; i < files.size(); ++i) EXPECT_EQ(records[i].name, files[i].first);
  EXPECT_EQ(ManifestGetSignedText(reader.get()), document);
  EXPECT_EQ(ManifestCompare(writer.get(), reader.get()), SMF_OK) << ManifestGetLastError(writer.get());
}

struct HeaderCase {
  std::string_view lines;
  const char* hash;
  std::string_view format;
  std::string_view algorithm;
};

TEST(ManifestParser, HeaderTable) {
  const HeaderCase rows[] = {
      {"Hash: SHA256\nSignature: PKCS7\n", "SHA256", "PKCS7", "SHA256"},
      {"Hash: SHA512\nSignature: PKCS7-TSTAMP\n", "SHA512", "PKCS7-TSTAMP", "SHA512"},
      {"Signature: PKCS7\nHash: sha-384\n", "SHA384", "PKCS7", "SHA384"},
      {"Hash: MD5\nSignature: PKCS7-TSTAMP,SHA256\n", "MD5", "PKCS7-TSTAMP", "SHA256"},
      {"Hash: SHA1\nSignature: PKCS7,SHA512garbage\n", "SHA1", "PKCS7", "SHA512ga"},
      {"Hash: SHA1\nSignature: PKCS7,\n", "SHA1", "PKCS7", ""},
      {"Hash: SHA1\nSignature: PKCS7-TSTAMP2\n", "SHA1", "PKCS7-TSTAMP", "SHA1"},
      {"Hash:SHA1\nSignature: PKCS12\n", "SHA1", "PKCS12", "SHA1"},
      {"Hash: SHA1\nSignature: PGP\n", "SHA1", "PGP", "SHA1"},
      {"Version: 9\nhash: MD5\nHashes: MD5\nHas: MD5\n: MD5\n", "SHA256", "PKCS7-TSTAMP", "SHA256"},
      {"", "SHA256", "PKCS7-TSTAMP", "SHA256"},
      {"Body: not yet\nHash: SHA1\n", "SHA1", "PKCS7-TSTAMP", "SHA256"}};
  for (const HeaderCase& row : rows) {
    const ManifestContextPtr context = ManifestMakeContext();
    ASSERT_EQ(Parse(context.get(), WithHeader(row.lines) + "\n"), SMF_OK) << row.lines;
    EXPECT_STREQ(ManifestFileHashAlgorithm(context.get()), row.hash) << row.lines;
    EXPECT_EQ(ManifestSignatureFormat(context.get()), row.format) << row.lines;
    EXPECT_EQ(ManifestSignatureAlgorithm(context.get()), row.algorithm) << row.lines;
    EXPECT_EQ(ManifestGetFileCounter(context.get()), 0u);
    ManifestFiles records;
    EXPECT_EQ(ManifestGetFileList(context.get(), &records), SMF_EEOL);
  }
}

struct HostileCase {
  const char* what;
  std::string text;
  int code;
};

std::vector<HostileCase> HostileDocuments() {
  const std::string tail = kSmallDocument.substr(13);
  const std::string separator = kHeader + kAbcDigest;
  return {
      {"empty", "", SMF_EINTERNAL},
      {"magic without line end", "QEL-MANIFEST", SMF_EINTERNAL},
      {"magic and a blank", std::string("QEL-MANIFEST \n").append(tail), SMF_EINTERNAL},
      {"magic cut", "QEL-MANIFES\n" + tail, SMF_EINTERNAL},
      {"magic in lower case", "qel-manifest\n" + tail, SMF_EINTERNAL},
      {"empty line in front", std::string("\n").append(kSmallDocument), SMF_EINTERNAL},
      {"CR LF", "QEL-MANIFEST\r\n" + tail, SMF_EINTERNAL},
      {"header without colon", WithHeader("Version 1.0\n") + "\n", SMF_EPARSE},
      {"header line that never ends", "QEL-MANIFEST\nVersion: 1.0", SMF_EPARSE},
      {"no body title", "QEL-MANIFEST\nHash: SHA256\n\n\n", SMF_EPARSE},
      {"longer body key", "QEL-MANIFEST\nBodyguard: x\n\n\n", SMF_EPARSE},
      {"line between title and separator", WithHeader("").insert(13, "Body: x\nVersion: 1\n\n"), SMF_EPARSE},
      {"unknown algorithm", WithHeader("Hash: SHA224\n") + "\n", SMF_EDIGESTLIB},
      {"empty algorithm", WithHeader("Hash: \n") + "\n", SMF_EDIGESTLIB},
      {"two algorithms", WithHeader("Hash: SHA256\nHash: CRC32\n") + "\n", SMF_EPARSE},
      {"two formats", WithHeader("Signature: PKCS7-TSTAMP\nSignature: PKCS7\n") + "\n", SMF_EPARSE},
      {"no body", kHeader, SMF_EPARSE},
      {"body without its empty line", kHeader + kAbcLine, SMF_EPARSE},
      {"digest one digit short", kHeader + kAbcDigest.substr(1) + " 0003 a b\n\n", SMF_EPARSE},
      {"digest one digit long", kHeader + std::string("0").append(kAbcDigest) + " 0003 a b\n\n", SMF_EPARSE},
      {"digest that is not hex", kHeader + std::string("x").append(kAbcDigest, 1) + " 0003 a b\n\n",
       SMF_EPARSE},
      {"digest of another algorithm", WithHeader("Hash: SHA512\n") + kAbcLine + "\n", SMF_EPARSE},
      {"first blank missing", separator + "00003 a b\n\n", SMF_EPARSE},
      {"second blank missing", separator + " 00030a b\n\n", SMF_EPARSE},
      {"tab for a blank", separator + "\t0003 a b\n\n", SMF_EPARSE},
      {"length in other letters", separator + " 0x03 a b\n\n", SMF_EPARSE},
      {"length with a sign", separator + " +003 a b\n\n", SMF_EPARSE},
      {"length 0", separator + " 0000 \n\n", SMF_EPARSE},
      {"length too small", separator + " 0002 a b\n\n", SMF_EPARSE},
      {"length too large", separator + " 0004 a b\n\n", SMF_EPARSE},
      {"length beyond the text", separator + " 7fff a b\n\n", SMF_EPARSE},
      {"negative length", separator + " 8000 " + std::string(32768, 'n') + "\n\n", SMF_EPARSE},
      {"length ffff", separator + " ffff " + std::string(65535, 'n') + "\n\n", SMF_EPARSE},
      {"zero byte in a name", separator + std::string(" 0003 a\0b\n\n", 12), SMF_EPARSE},
      {"zero byte in the header", WithHeader(std::string_view("Version: 1\0\n", 12)) + "\n", SMF_EPARSE},
      {"zero byte behind the document", kSmallDocument + std::string(1, '\0'), SMF_EPARSE},
      {"CR in front of the line end", separator + " 0003 a b\r\n\n", SMF_EPARSE}};
}

TEST(ManifestParser, HostileTable) {
  for (const HostileCase& row : HostileDocuments()) {
    const ManifestContextPtr context = ManifestMakeContext();
    EXPECT_EQ(Parse(context.get(), row.text), row.code) << row.what;
    EXPECT_EQ(ManifestGetFileCounter(context.get()), 0u) << row.what;
    EXPECT_EQ(ManifestGetSignedText(context.get()), "") << row.what;
    EXPECT_EQ(ManifestGetErrorCategory(context.get()), MANIFEST_CATEGORY_ERROR) << row.what;
    EXPECT_TRUE(ManifestGetLastError(context.get()).ends_with("Error in manifest parser")) << row.what;

    const std::string signedText = row.text + Block("AAAA");
    EXPECT_EQ(
        ManifestVerify(context.get(), signedText.data(), signedText.size(), nullptr, nullptr, nullptr, {}, 0),
        SMF_EPARSE)
        << row.what;
  }
}

TEST(ManifestParser, NoTruncationPasses) {
  for (std::size_t length = 0; length < kSmallDocument.size(); ++length) {
    const ManifestContextPtr context = ManifestMakeContext();
    // A copy of exactly this length: the address sanitizer sees one byte too far.
    const std::vector<char> text(kSmallDocument.begin(),
                                 kSmallDocument.begin() + static_cast<std::ptrdiff_t>(length));
    EXPECT_NE(ManifestParse(context.get(), text.data() == nullptr ? "" : text.data(), text.size()), SMF_OK)
        << length;
  }
}

// A flipped bit may give another document (another name, another digest), never one that reads outside of
// itself or covers less than it shows.
TEST(ManifestParser, EveryFlippedBit) {
  for (std::size_t at = 0; at < kSmallDocument.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string text = kSmallDocument;
      text[at] = static_cast<char>(text[at] ^ (1 << bit));
      const ManifestContextPtr context = ManifestMakeContext();
      if (Parse(context.get(), text) != SMF_OK) continue;
      EXPECT_NE(ManifestGetSignedText(context.get()), kSmallDocument);
      EXPECT_LE(ManifestGetSignedText(context.get()).size(), text.size());
      EXPECT_GE(at, 12u) << "a damaged magic passed";
    }
  }
}

TEST(ManifestParser, SignatureBlockByItsPlaces) {
  const std::string line(64, 'A');
  const std::string rows[] = {"",  // no block
                              std::string(49, '-'),
                              std::string(50, '-'),  // nothing between the markers
                              Block(""),
                              Block("AAA"),
                              Block("AA=="
                                    "\n"),
                              Block("\nAAAA"),  // broken or shifted text
                              Block(line + line),
                              Block("AAAA\nAAAA"),
                              Block(line + "\r\nAAAA"),
                              "-----BEGIN SIGNATURE-----\r\nAAAA\r\n-----END SIGNATURE-----",  // CR LF
                              Block("AAAA") + "\n",  // a line end behind the marker
                              std::string(" ").append(Block("AAAA")),
                              Block(" AAAA"),
                              Block("AAAA ")};
  for (const std::string& block : rows) {
    const std::string text = kSmallDocument + block;
    const ManifestContextPtr context = ManifestMakeContext();
    EXPECT_EQ(ManifestVerify(context.get(), text.data(), text.size(), nullptr, nullptr, nullptr, {}, 0),
              SMF_EDECODE)
        << block;
    EXPECT_EQ(ManifestGetLastError(context.get()), "Error in Base64 Decoder");
    EXPECT_EQ(ManifestGetErrorCategory(context.get()), MANIFEST_CATEGORY_ERROR);
  }
  // What decodes is refused one step later: nothing was initialised that could check it.
  const std::string text = kSmallDocument + Block(line + "\nAAAA");
  const ManifestContextPtr context = ManifestMakeContext();
  EXPECT_EQ(ManifestVerify(context.get(), text.data(), text.size(), nullptr, nullptr, nullptr, {}, 0),
            SMF_EINIT);
}

TEST(ManifestParser, ForgedFormatsLeaveNoLoggableWarning) {
  for (const std::string format : {"PKCS7", "PKCS7-TSTAMP", "NONE"}) {
    const std::string text =
        WithHeader("Hash: SHA256\nSignature: " + format + "\n") + kAbcLine + "\n" + Block("AAAA");
    const ManifestContextPtr context = ManifestMakeContext();
    EXPECT_NE(ManifestVerify(context.get(), text.data(), text.size(), nullptr, nullptr, nullptr, {}, 0),
              SMF_OK);
    EXPECT_NE(ManifestGetErrorCategory(context.get()), MANIFEST_CATEGORY_LOGGABLE_WARNING) << format;
    EXPECT_EQ(ManifestGetFileCounter(context.get()), 0u) << format;
  }
}

}  // namespace
}  // namespace tolven
