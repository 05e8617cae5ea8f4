#include "signing/manifest/manifest_context.h"

#include <algorithm>

namespace tolven {
namespace {

constexpr std::size_t kFirstBufferSize = 65535;

}  // namespace

ManifestContext s_Manifest;

ManifestContext* ManifestNewContext() {
  return std::make_unique<ManifestContext>().release();
}

void ManifestFreeContext(ManifestContext* context) {
  std::unique_ptr<ManifestContext> owner(context);
}

void ManifestClose(ManifestContext* context) {
  ContextOf(context) = ManifestContext{};
}

void ResetDocument(ManifestContext& context) {
  ManifestContext fresh;
  fresh.library = context.library;
  fresh.hashAlgorithm = context.hashAlgorithm;
  fresh.digestLength = context.digestLength;
  fresh.signatureFormat = std::move(context.signatureFormat);
  fresh.signatureAlgorithm = std::move(context.signatureAlgorithm);
  context = std::move(fresh);
}

bool ExtendManifestBuffer(ManifestContext& context, std::size_t more) {
  std::string& text = context.text;
  if (more <= text.capacity() - text.size()) return true;
  if (more > text.max_size() / 2 - text.size()) return false;
  try {
    text.reserve(std::max({kFirstBufferSize, 2 * text.capacity(), text.size() + more}));
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

std::string_view ManifestGetText(const ManifestContext* context) {
  return ContextOf(context).text;
}

std::string_view ManifestGetSignedText(const ManifestContext* context) {
  return ContextOf(context).SignedText();
}

}  // namespace tolven
