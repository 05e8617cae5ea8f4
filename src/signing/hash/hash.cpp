#include "signing/hash/hash.h"

#include <algorithm>
#include <span>
#include <string_view>

#include "cslib/crc32.h"
#include "signing/hash/block_feed.h"
#include "signing/hash/codec.h"

namespace tolven {
namespace {

struct Algorithm {
  int id;
  std::string_view name;
  std::size_t letters;  // characters of the name before its digits: a hyphen may stand behind them
  std::size_t blockLength;
  std::size_t digestLength;
};

constexpr std::array<Algorithm, 6> kAlgorithms = {{{kHaMd5, "MD5", 2, 64, 16},
                                                   {kHaSha1, "SHA1", 3, 64, 20},
                                                   {kHaSha256, "SHA256", 3, 64, 32},
                                                   {kHaSha512, "SHA512", 3, 128, 64},
                                                   {kHaSha384, "SHA384", 3, 128, 48},
                                                   {kHaCrc32, "CRC32", 3, 4, 4}}};

const Algorithm* FindAlgorithm(int id) {
  const auto found =
      std::find_if(kAlgorithms.begin(), kAlgorithms.end(), [id](const Algorithm& a) { return a.id == id; });
  return found == kAlgorithms.end() ? nullptr : &*found;
}

// Upper case without asking the locale.
constexpr char UpperLetter(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool IsNameOf(std::string_view text, const Algorithm& algorithm) {
  const bool hyphen = text.size() > algorithm.letters && text[algorithm.letters] == '-';
  if (text.size() != algorithm.name.size() + (hyphen ? 1 : 0)) return false;
  for (std::size_t i = 0; i < algorithm.name.size(); ++i) {
    const std::size_t place = i + (hyphen && i >= algorithm.letters ? 1 : 0);
    if (UpperLetter(text[place]) != algorithm.name[i]) return false;
  }
  return true;
}

void SetState(HaContext& context, int id) {
  switch (id) {
    case kHaMd5:
      context.state.emplace<Md5State>();
      break;
    case kHaSha1:
      context.state.emplace<Sha1State>();
      break;
    case kHaSha256:
      context.state.emplace<Sha256State>();
      break;
    case kHaSha512:
      context.state.emplace<Sha512State>();
      break;
    case kHaSha384:
      context.state = Sha512State::Sha384();
      break;
    default:
      context.state.emplace<Crc32State>();
      break;
  }
}

template <typename State>
void Feed(State& state, std::span<const std::uint8_t> data) {
  FeedBlocks(state, data);
}
void Feed(Crc32State& state, std::span<const std::uint8_t> data) {
  state.value = haCRC32Update(state.value, data.data(), data.size());
}
void Feed(std::monostate&, std::span<const std::uint8_t>) {}

template <typename State>
void Finish(State& state, std::span<std::uint8_t> digest) {
  state.Finish(digest);
}
void Finish(Crc32State& state, std::span<std::uint8_t> digest) {
  const std::array<std::uint32_t, 1> value = {haCRC32Final(state.value)};
  StoreWords(value, digest, std::endian::big);
}
void Finish(std::monostate&, std::span<std::uint8_t>) {}

}  // namespace

std::uint32_t haCRC32Init() {
  return 0xffffffff;
}

std::uint32_t haCRC32Update(std::uint32_t value, const void* data, std::size_t length) {
  return CRC32Buf(value, static_cast<const std::uint8_t*>(data), length);
}

std::uint32_t haCRC32Final(std::uint32_t value) {
  return ~value;
}

int haGetAlgorithm(const char* name, std::size_t length) {
  if (name == nullptr || length < 3) return 0;
  for (const Algorithm& algorithm : kAlgorithms) {
    if (IsNameOf({name, length}, algorithm)) return algorithm.id;
  }
  return 0;
}

const char* haGetAlgorithmName(int id) {
  const Algorithm* algorithm = FindAlgorithm(id);
  return algorithm == nullptr ? nullptr : algorithm->name.data();
}

std::size_t haGetDigestLength(int id) {
  const Algorithm* algorithm = FindAlgorithm(id);
  return algorithm == nullptr ? 0 : algorithm->digestLength;
}

int haInit(HaContext* context, int id) {
  if (context == nullptr) return HA_ENULL;
  *context = HaContext{};
  const Algorithm* algorithm = FindAlgorithm(id);
  if (algorithm == nullptr) return HA_EALGORITHM;
  context->algorithm = id;
  context->blockLength = algorithm->blockLength;
  context->digestLength = algorithm->digestLength;
  SetState(*context, id);
  return HA_OK;
}

int haUpdate(HaContext* context, const void* data, std::size_t length) {
  if (context == nullptr || (data == nullptr && length != 0)) return HA_ENULL;
  if (context->algorithm == 0 || context->finished) return HA_ESTATE;
  const std::span<const std::uint8_t> bytes(static_cast<const std::uint8_t*>(data), length);
  std::visit([bytes](auto& state) { Feed(state, bytes); }, context->state);
  return HA_OK;
}

int haFinal(HaContext* context) {
  if (context == nullptr) return HA_ENULL;
  if (context->algorithm == 0 || context->finished) return HA_ESTATE;
  const std::span<std::uint8_t> digest(context->digest.data(), context->digestLength);
  std::visit([digest](auto& state) { Finish(state, digest); }, context->state);
  context->finished = true;
  return HA_OK;
}

int haHashAll(HaContext* context, const void* data, std::size_t length, int id) {
  int result = haInit(context, id);
  if (result == HA_OK) result = haUpdate(context, data, length);
  if (result == HA_OK) result = haFinal(context);
  return result;
}

int haHexEncodeBlob(const void* data, std::size_t length, char* output, std::size_t outputSize,
                    std::size_t* written) {
  static constexpr std::string_view kDigits = "0123456789abcdef";
  if (output == nullptr || (data == nullptr && length != 0)) return HA_ENULL;
  if (outputSize == 0 || length > (outputSize - 1) / 2) return HA_ESIZE;
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  for (std::size_t i = 0; i < length; ++i) {
    output[2 * i] = kDigits[bytes[i] >> 4];
    output[2 * i + 1] = kDigits[bytes[i] & 15];
  }
  output[2 * length] = '\0';
  if (written != nullptr) *written = 2 * length;
  return HA_OK;
}

int haHexEncodeDigest(const HaContext* context, char* output, std::size_t outputSize, std::size_t* written) {
  if (context == nullptr) return HA_ENULL;
  if (!context->finished) return HA_ESTATE;
  return haHexEncodeBlob(context->digest.data(), context->digestLength, output, outputSize, written);
}

int haBase64EncodeDigest(const HaContext* context, char* output, std::size_t outputSize,
                         std::size_t* written) {
  if (context == nullptr || output == nullptr) return HA_ENULL;
  if (!context->finished) return HA_ESTATE;
  const int result = haEncBase64SB(context->digest.data(), context->digestLength, kHaBase64Pad, 0, nullptr,
                                   output, outputSize, written);
  return result == HA_CODEC_OK ? HA_OK : HA_ESIZE;
}

}  // namespace tolven
