// Service identifiers: null values, comparison, and the external byte form.
#include <gtest/gtest.h>

#include <vector>

#include "platform/service/QELSimIDExternal.h"
#include "platform/service/QELSimIDs.h"

namespace {

std::vector<unsigned char> Bytes(const QELSimIDExternal& e) {
  return std::vector<unsigned char>(e.Bytes(), e.Bytes() + e.Length());
}

TEST(QELSimIDs, DefaultsAreTheNullIdentifiers) {
  const QELSimContextID context;
  const QELSimCollectionID collection;
  const QELSimCSetID cset;
  const QELSimDistributionID distribution;
  const QELSimDSetID dset;
  EXPECT_EQ(context.Number(), -1);
  EXPECT_TRUE(context.IsNull());
  EXPECT_EQ(collection.ContextNumber(), -1);
  EXPECT_FALSE(collection.IsValid());
  EXPECT_FALSE(cset.IsValid());
  EXPECT_FALSE(distribution.IsValid());
  EXPECT_FALSE(dset.IsValid());
  // Missing is judged by the last word alone.
  EXPECT_FALSE(QELSimCSetID(4, 7, kQELSimNoMinor).IsValid());
  EXPECT_TRUE(QELSimCSetID(-1, kQELSimNoMinor, 0).IsValid());
  EXPECT_EQ(QELSimDistributionID(2, 5), QELSimDistributionID(2, 5));
  EXPECT_NE(QELSimDistributionID(2, 5), QELSimDistributionID(3, 5));
  EXPECT_EQ(sizeof(QELSimContextID), 8u);
}

TEST(QELSimIDExternal, FormsAreLittleEndianWordsWithoutContext) {
  QELSimIDExternal c(QELSimCollectionID(9, 0x01020304));
  EXPECT_EQ(Bytes(c), (std::vector<unsigned char>{1, 0, 0, 0, 1, 0, 0, 0, 4, 3, 2, 1}));
  EXPECT_EQ(c.CollectionIDMinor(), 0x01020304u);
  EXPECT_EQ(c.CSetIDMinor(), kQELSimNoMinor);

  QELSimIDExternal s(QELSimCSetID(9, 5, 6));
  EXPECT_EQ(Bytes(s), (std::vector<unsigned char>{2, 0, 0, 0, 1, 0, 0, 0, 5, 0, 0, 0, 6, 0, 0, 0}));
  EXPECT_EQ(s.CollectionIDMinor(), 5u);
  EXPECT_EQ(s.CSetIDMinor(), 6u);

  QELSimIDExternal d{QELSimDistributionID()};
  EXPECT_EQ(d.Length(), 12);
  EXPECT_EQ(d.DistributionIDMinor(), kQELSimNoMinor);
  EXPECT_EQ(QELSimIDExternal(QELSimDSetID(1, 8)).DSetIDMinor(), 8u);
}

TEST(QELSimIDExternal, ArbitraryBytesNeverReadPastTheForm) {
  QELSimIDExternal e;
  e.SetLength(1000);
  EXPECT_EQ(e.Length(), QELSimIDExternal::kMaxLength);
  e.SetLength(-3);
  EXPECT_EQ(e.Length(), 0);
  EXPECT_EQ(e.CollectionIDMinor(), kQELSimNoMinor);
  QELSimIDExternal shortSet(QELSimCSetID(1, 2, 3));
  shortSet.SetLength(12);  // the set word is cut off
  EXPECT_EQ(shortSet.CSetIDMinor(), kQELSimNoMinor);
  EXPECT_EQ(shortSet.CollectionIDMinor(), 2u);
  QELSimIDExternal wrongKind(QELSimDistributionID(1, 2));
  EXPECT_EQ(wrongKind.CollectionIDMinor(), kQELSimNoMinor);
}

}  // namespace
