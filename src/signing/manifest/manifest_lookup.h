#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "signing/manifest/manifest_context.h"

namespace tolven {

std::string NotFoundText(std::string_view name, bool partialSearch);

// The n-th (from 0) record of exactly that name. With partialSearch, when there is none, the first record
// whose name ends in "/" and the wanted one. Null when not found; nothing is recorded.
const ManifestFile* FindFileInBody(const ManifestContext& context, std::string_view name, std::size_t n,
                                   bool partialSearch);

}  // namespace tolven
