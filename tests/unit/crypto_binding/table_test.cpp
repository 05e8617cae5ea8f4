#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

#include "signing/crypto/dkv_loader.h"
#include "signing/crypto/dkv_table.h"
#include "signing/crypto/dkv_wrappers.h"

namespace tolven {
namespace {

TEST(Table, SeventyTwoRowsInFourLevels) {
  std::map<unsigned, int> levels;
  std::set<std::string> names;
  for (const DkvRowInfo& row : kDkvRows) {
    levels[row.level] += 1;
    names.insert(row.name);
  }
  EXPECT_EQ(levels, (std::map<unsigned, int>{{0x001, 15}, {0x002, 17}, {0x102, 6}, {0x103, 34}}));
  EXPECT_EQ(names.size(), 72U);
  // The ends of each group, so that no row has changed its place.
  EXPECT_STREQ(kDkvRows[0].name, "DkvVersion");
  EXPECT_STREQ(kDkvRows[14].name, "DkvQueryProperties");
  EXPECT_STREQ(kDkvRows[31].name, "DkvPutCertificateResponse");
  EXPECT_STREQ(kDkvRows[37].name, "qel_save_memory_PSE");
  EXPECT_STREQ(kDkvRows[71].name, "qelcr_done");
  EXPECT_STREQ(kDkvRows[static_cast<std::size_t>(DkvRow::DkvSign)].name, "DkvSign");
}

TEST(Table, WhichLevelsAreAdmitted) {
  struct Row {
    unsigned requested;
    int rows;
  };
  for (const Row& row : {Row{0x000, 0}, Row{0x001, 15}, Row{0x002, 32}, Row{0x003, 32}, Row{0x101, 15},
                         Row{0x102, 38}, Row{0x103, 72}, Row{0x100, 0}, Row{0x203, 72}}) {
    int admitted = 0;
    for (const DkvRowInfo& info : kDkvRows) admitted += DkvLevelAdmits(row.requested, info.level) ? 1 : 0;
    EXPECT_EQ(admitted, row.rows) << row.requested;
  }
}

TEST(Wrappers, NothingToCall) {
  const DkvTable empty;
  SigRcpDkvInfo* info = nullptr;
  EXPECT_EQ(DkvLibNEWSigRcpDkvInfo(nullptr, "a", "b", &info), 1);
  EXPECT_EQ(DkvLibNEWSigRcpDkvInfo(&empty, "a", "b", &info), 16);
  EXPECT_EQ(DkvLibEnvelope(&empty, nullptr, nullptr, nullptr, nullptr), 16);
  EXPECT_EQ(DkvLibReadPSEFromFile(&empty, nullptr, nullptr), 16);
  EXPECT_EQ(QelLibSSLDone(nullptr, nullptr), 1);
  EXPECT_EQ(QelLibSSLDone(&empty, nullptr), 16);
}

TEST(Wrappers, ForwardTheirArguments) {
  DkvTable table;
  ASSERT_EQ(DkvSupInitEx(tiny_foreign_FILE, &table, nullptr, nullptr, kDkvLevelAll), 5);
  const char profile[] = "profile";
  const char password[] = "password";
  SigRcpDkvInfo* info = nullptr;
  EXPECT_EQ(DkvLibNEWSigRcpDkvInfo(&table, profile, password, &info), 1234);
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->profile, profile);
  EXPECT_EQ(info->password, password);
  DkvSupEnd(&table);
}

}  // namespace
}  // namespace tolven
