#include "signing/crypto/dkv_table.h"

namespace tolven {

#define TOLVEN_ROW_INFO(name, level) DkvRowInfo{#name, level},
#define TOLVEN_ROW_NAME(name) #name,

const std::array<DkvRowInfo, kDkvRowCount> kDkvRows = {{TOLVEN_DKV_ROWS(TOLVEN_ROW_INFO)}};
const std::array<const char*, kQelSslRowCount> kQelSslRows = {{TOLVEN_QELSSL_ROWS(TOLVEN_ROW_NAME)}};

#undef TOLVEN_ROW_INFO
#undef TOLVEN_ROW_NAME

}  // namespace tolven
