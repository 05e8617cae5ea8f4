#include "signing/manifest/manifest_document.h"

#include <algorithm>
#include <array>

#include "signing/hash/codec.h"

namespace tolven {
namespace {

constexpr std::string_view kMagicLine = "QEL-MANIFEST";
constexpr std::string_view kVersionKey = "Version";
constexpr std::string_view kVersionValue = "1.0";
constexpr std::string_view kHashKey = "Hash";
constexpr std::string_view kSignatureKey = "Signature";
constexpr std::string_view kBodyKey = "Body";
constexpr std::string_view kBodyTitle = "Body: Digest | Name-Length | Name";

constexpr std::size_t kNameLengthDigits = 4;
// A line is found again by a number of 32 bits; what signs the document stops at half of this.
constexpr std::size_t kMaxDocument = UINT32_MAX;
constexpr std::size_t kMaxSignatureAlgorithm = 8;

constexpr std::string_view kSignatureBegin = "-----BEGIN SIGNATURE-----\n";
constexpr std::string_view kSignatureEnd = "\n-----END SIGNATURE-----";
constexpr std::size_t kSignatureLine = 64;
constexpr int kSignatureBase64Mode = 3;  // padded, in lines

// A reader goes by these places and does not search for the markers.
static_assert(kSignatureBegin.size() == 26 && kSignatureEnd.size() == 24);
constexpr std::size_t kSignatureFrame = kSignatureBegin.size() + kSignatureEnd.size();

}  // namespace

// --- reading ---

namespace {

// One walk over the document. Nothing is read that was not first found to be inside the text; one spelling is
// right, everything else ends the walk.
class ManifestParser {
 public:
  ManifestParser(ManifestContext& context, const BodyLineSink& sink)
      : m_context(context), m_text(context.text), m_sink(sink) {}

  int Run() {
    // A zero byte would let two readers see two documents.
    if (m_text.find('\0') != std::string_view::npos) return SMF_EPARSE;
    while (m_state != State::kDone) {
      if (const int result = Step(); result != SMF_OK) return result;
    }
    return SMF_OK;
  }

 private:
  enum class State { kMagic, kHeader, kBody, kDone };

  int Step() {
    switch (m_state) {
      case State::kMagic:
        return ReadMagic();
      case State::kHeader:
        return ReadHeaderLine();
      case State::kBody:
        return ReadBody();
      case State::kDone:
        break;
    }
    return SMF_OK;
  }

  // The line at m_at without its LF; false when no LF follows.
  bool TakeLine(std::string_view& line) {
    const std::size_t end = m_text.find('\n', m_at);
    if (end == std::string_view::npos) return false;
    line = m_text.substr(m_at, end - m_at);
    m_at = end + 1;
    return true;
  }

  int ReadMagic() {
    std::string_view line;
    if (!TakeLine(line) || line != kMagicLine) return SMF_EINTERNAL;
    m_state = State::kHeader;
    return SMF_OK;
  }

  int ReadHeaderLine() {
    std::string_view line;
    if (!TakeLine(line)) return SMF_EPARSE;
    if (line.empty()) return EndHeader();
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) return SMF_EPARSE;
    const std::string_view key = line.substr(0, colon);
    std::string_view value = line.substr(colon + 1);
    if (value.starts_with(' ')) value.remove_prefix(1);
    m_titleBefore = key == kBodyKey;
    if (key == kHashKey) return SetHash(value);
    if (key == kSignatureKey) return SetSignature(value);
    return SMF_OK;
  }

  int SetHash(std::string_view name) {
    if (m_hashSeen) return SMF_EPARSE;
    m_hashSeen = true;
    const int id = haGetAlgorithm(name.data(), name.size());
    if (id == 0) return Fail(m_context, SMF_EDIGESTLIB, "Hash algorithm could not be parsed from manifest");
    m_context.hashAlgorithm = id;
    m_context.digestLength = haGetDigestLength(id);
    return SMF_OK;
  }

  int SetSignature(std::string_view value) {
    if (m_signatureSeen) return SMF_EPARSE;
    m_signatureSeen = true;
    const std::size_t comma = value.find(',');
    const std::string_view format = value.substr(0, comma);
    if (format.starts_with(kFormatPkcs7Tstamp)) {
      m_context.signatureFormat = kFormatPkcs7Tstamp;
    } else if (format.starts_with(kFormatPkcs7)) {
      m_context.signatureFormat = kFormatPkcs7;
    } else {
      m_context.signatureFormat = format;  // the verification refuses it by name
    }
    m_algorithmGiven = comma != std::string_view::npos;
    if (m_algorithmGiven) m_context.signatureAlgorithm = value.substr(comma + 1, kMaxSignatureAlgorithm);
    return SMF_OK;
  }

  // Only behind the body title; a header cut short must not turn into a document without files.
  int EndHeader() {
    if (!m_titleBefore) return SMF_EPARSE;
    if (m_signatureSeen && !m_algorithmGiven) {
      m_context.signatureAlgorithm = haGetAlgorithmName(m_context.hashAlgorithm);
    }
    m_context.headerLength = m_at;
    m_state = State::kBody;
    return SMF_OK;
  }

  int ReadBody() {
    if (m_at >= m_text.size()) return SMF_EPARSE;  // cut off before the empty line
    if (m_text[m_at] != '\n') return ReadBodyLine();
    ++m_at;
    m_context.bodyLength = m_at - m_context.headerLength;
    m_context.bodyEnded = true;
    m_state = State::kDone;
    return SMF_OK;
  }

  int ReadBodyLine() {
    const std::size_t digits = 2 * m_context.digestLength;
    const std::size_t nameAt = digits + 1 + kNameLengthDigits + 1;
    const std::string_view rest = m_text.substr(m_at);
    if (rest.size() < nameAt || rest[digits] != ' ' || rest[nameAt - 1] != ' ') return SMF_EPARSE;

    std::array<std::uint8_t, kHaMaxDigestLength> digest;
    std::array<std::uint8_t, 2> number;
    if (haDecBase16SB(rest.data(), digits, digest.data(), digest.size(), nullptr) != HA_CODEC_OK)
      return SMF_EPARSE;
    if (haDecBase16SB(rest.data() + digits + 1, kNameLengthDigits, number.data(), number.size(), nullptr) !=
        HA_CODEC_OK) {
      return SMF_EPARSE;
    }
    // A signed number: what a writer can say beyond 32767 reads as negative and is no length.
    const int length = static_cast<std::int16_t>(number[0] << 8 | number[1]);
    if (length <= 0) return SMF_EPARSE;
    const auto nameLength = static_cast<std::size_t>(length);
    if (rest.size() - nameAt <= nameLength || rest[nameAt + nameLength] != '\n') return SMF_EPARSE;

    m_at += nameAt + nameLength + 1;
    return m_sink(rest.substr(nameAt, nameLength), std::span(digest).first(m_context.digestLength));
  }

  ManifestContext& m_context;
  const std::string_view m_text;
  const BodyLineSink& m_sink;
  State m_state = State::kMagic;
  std::size_t m_at = 0;
  bool m_titleBefore = false;  // the line before this one was the body title
  bool m_hashSeen = false;
  bool m_signatureSeen = false;
  bool m_algorithmGiven = false;
};

}  // namespace

int ParseManifest(ManifestContext& context, const BodyLineSink& sink) {
  return ManifestParser(context, sink).Run();
}

int CheckManifest(ManifestContext& context, std::size_t& count) {
  context.mode = ManifestMode::kRead;
  context.ForgetFiles();
  count = 0;
  if (context.text.size() > kMaxDocument) return SMF_EPARSE;
  return ParseManifest(context, [&count](std::string_view, std::span<const std::uint8_t>) {
    ++count;
    return static_cast<int>(SMF_OK);
  });
}

int CollectRecords(ManifestContext& context, std::size_t count) {
  std::vector<std::uint32_t> lines;
  lines.reserve(count);
  const char* text = context.text.data();
  const int result = ParseManifest(context, [&](std::string_view name, std::span<const std::uint8_t> digest) {
    const std::size_t before = 2 * digest.size() + 1 + kNameLengthDigits + 1;
    lines.push_back(static_cast<std::uint32_t>(static_cast<std::size_t>(name.data() - text) - before));
    return static_cast<int>(SMF_OK);
  });
  if (result == SMF_OK) context.lines = std::move(lines);  // half a list would look like a whole one
  return result;
}

int ParseIntoRecords(ManifestContext& context) {
  std::size_t count = 0;
  const int result = CheckManifest(context, count);
  return result == SMF_OK ? CollectRecords(context, count) : result;
}

ManifestFile ManifestFiles::operator[](std::size_t place) const {
  const std::string_view line = m_text.substr(m_lines[place]);
  std::size_t length = 0;  // digits that were checked, or written here
  for (const char c : line.substr(m_digits + 1, kNameLengthDigits)) {
    length = length << 4 | static_cast<std::size_t>(c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10);
  }
  return {line.substr(0, m_digits), line.substr(m_digits + 1 + kNameLengthDigits + 1, length)};
}

void ManifestSetText(ManifestContext* context, std::string text) {
  ManifestContext& c = ContextOf(context);
  ResetDocument(c);
  c.mode = ManifestMode::kRead;
  c.text = std::move(text);
}

int ManifestParse(ManifestContext* context, const void* text, std::size_t length) {
  ManifestContext& c = ContextOf(context);
  return Guarded(c, [&]() -> int {
    if (text == nullptr) return Fail(c, SMF_EINVARG, "No signed manifest file passed");
    std::string copy(static_cast<const char*>(text), length);  // the text may be this context's own
    ResetDocument(c);
    c.text = std::move(copy);
    const int result = ParseIntoRecords(c);
    return result == SMF_OK ? SMF_OK : Fail(c, result, "Error in manifest parser");
  });
}

// The markers are not searched for: the block is the text between the 26 bytes and the 24 bytes that they
// take.
int ReadSignatureBlock(ManifestContext& context, std::vector<std::uint8_t>& signature) {
  const std::string_view block =
      std::string_view(context.text).substr(context.headerLength + context.bodyLength);
  int result = HA_CODEC_ETEXT;
  if (block.size() > kSignatureFrame) {
    const std::string_view base64 = block.substr(kSignatureBegin.size(), block.size() - kSignatureFrame);
    signature.resize(base64.size() / 4 * 3 + 3);
    std::size_t written = 0;
    result = haDecBase64SB(base64.data(), base64.size(), kSignatureBase64Mode, kSignatureLine, "\n",
                           signature.data(), signature.size(), &written);
    signature.resize(written);
  }
  if (result == HA_CODEC_OK) return SMF_OK;
  return Fail(context, SMF_EDECODE, "Error in Base64 Decoder");
}

// --- writing ---

namespace {

void AddHeaderLine(std::string& header, std::string_view key, std::string_view value) {
  header.append(key).append(": ").append(value).append("\n");
}

std::string MakeHeader(const ManifestContext& context) {
  const std::string_view hashName = haGetAlgorithmName(context.hashAlgorithm);
  std::string signature = context.signatureFormat;
  if (context.signatureAlgorithm != hashName) signature.append(",").append(context.signatureAlgorithm);
  std::string header;
  header.append(kMagicLine).append("\n");
  AddHeaderLine(header, kVersionKey, kVersionValue);
  AddHeaderLine(header, kHashKey, hashName);
  AddHeaderLine(header, kSignatureKey, signature);
  return header.append(kBodyTitle).append("\n\n");
}

// Room for the block of a signature of n bytes, with plenty to spare.
constexpr std::size_t BlockSize(std::size_t n) {
  const std::size_t groups = (n + 4) / 3;
  return (groups * 4 / 64 + groups * 2 + 28) * 2;
}

}  // namespace

int WriteManifestHeader(ManifestContext& context) {
  if (context.headerLength != 0) return SMF_OK;
  const std::string header = MakeHeader(context);
  if (!ExtendManifestBuffer(context, header.size())) {
    return Fail(context, SMF_EPARSE, "The manifest buffer could not be extended");
  }
  context.text.append(header);
  context.headerLength = header.size();
  return SMF_OK;
}

bool AppendBodyLine(ManifestContext& context) {
  const std::string& name = context.openName;
  const std::size_t digits = 2 * context.digestLength;
  const std::size_t lineLength = digits + 1 + kNameLengthDigits + 1 + name.size() + 1;
  std::string& text = context.text;
  const std::size_t start = text.size();
  if (start > kMaxDocument - lineLength || !ExtendManifestBuffer(context, lineLength)) return false;
  context.index = {};
  context.lines.push_back(static_cast<std::uint32_t>(start));
  // The encoder ends its text with a zero byte, in the place of the blank.
  text.resize(start + digits + 1);
  if (haHexEncodeDigest(&context.digest, text.data() + start, digits + 1, nullptr) != HA_OK) {
    text.resize(start);
    context.lines.pop_back();
    return false;
  }
  text.back() = ' ';
  text.append(FormatText("%04x ", static_cast<unsigned>(name.size()))).append(name).append("\n");
  context.bodyLength += lineLength;
  return true;
}

int EndBody(ManifestContext& context) {
  if (const int result = WriteManifestHeader(context); result != SMF_OK) return result;
  if (!ExtendManifestBuffer(context, 1)) {
    return Fail(context, SMF_EPARSE, "The manifest buffer could not be extended");
  }
  context.text.push_back('\n');
  ++context.bodyLength;
  context.bodyEnded = true;
  return SMF_OK;
}

void ReopenBody(ManifestContext& context) {
  --context.bodyLength;
  context.text.resize(context.headerLength + context.bodyLength);
  context.bodyEnded = false;
}

int AppendSignatureBlock(ManifestContext& context, std::span<const std::uint8_t> signature) {
  std::string& text = context.text;
  const std::size_t start = text.size();
  const std::size_t textStart = start + kSignatureBegin.size();
  std::size_t room = BlockSize(signature.size());
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (!ExtendManifestBuffer(context, room)) break;
    text.resize(start + room);
    std::size_t written = 0;
    const int result = haEncBase64SB(signature.data(), signature.size(), kSignatureBase64Mode, kSignatureLine,
                                     "\n", text.data() + textStart, room - kSignatureBegin.size(), &written);
    if (result == HA_CODEC_OK) {
      std::copy(kSignatureBegin.begin(), kSignatureBegin.end(),
                text.begin() + static_cast<std::ptrdiff_t>(start));
      text.resize(textStart + written);  // the end marker goes over the encoder's zero byte
      text.append(kSignatureEnd);
      return SMF_OK;
    }
    text.resize(start);
    if (result != HA_CODEC_ESIZE) break;
    room += text.size();
  }
  return Fail(context, SMF_EENCODE, "Error in Base64 Encoder. Buffer too small");
}

}  // namespace tolven
