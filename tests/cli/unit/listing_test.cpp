#include "cli/commands/listing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <vector>

namespace cardcert::cli {
namespace {

using testing::SizeIs;

pkcs11_certificate Record(const std::string& serial) {
  pkcs11_certificate record;
  record.serial = serial;
  return record;
}

std::vector<ComponentEvent> Events(const std::vector<std::pair<int, std::string>>& lines) {
  std::vector<ComponentEvent> events;
  for (const auto& [level, message] : lines)
    events.push_back(ParseComponentEvent(message, level));
  return events;
}

TEST(ListingTest, KnowsSlotsAndCertificatesThatAreLeftOut) {
  const Listing listing =
      MakeListing({Record("01"), Record("03")},
                  Events({{5, "Getting token for slot 4 on 'Reader'"},
                          {5, "Found certificate for \"CN=A\""},
                          {5, "Serial: 01"},
                          {5, "Key length: 2048 bits"},
                          {5, "Getting token for slot 9 on 'Reader'"},
                          {3, "Unable to read subject from certificate for token \"T\""},
                          {5, "Found certificate for \"CN=B\""},
                          {5, "Serial: 02"},
                          {3, "Unable to read public key from certificate for token \"T\""},
                          {5, "Found certificate for \"CN=C\""},
                          {5, "Serial: 03"},
                          {5, "Key length: 2048 bits"}}));
  ASSERT_TRUE(listing.walk);
  const std::vector<WalkedCertificate>& walk = *listing.walk;
  ASSERT_THAT(walk, SizeIs(4));
  EXPECT_EQ(walk[0].slot, 4U);
  EXPECT_EQ(walk[0].record, &listing.records.front());
  EXPECT_EQ(walk[1].slot, 9U);
  EXPECT_EQ(walk[1].subject, std::nullopt);
  EXPECT_EQ(walk[1].serial, std::nullopt);
  EXPECT_EQ(walk[1].record, nullptr);
  EXPECT_EQ(walk[2].subject, "CN=B");
  EXPECT_EQ(walk[2].serial, "02");
  EXPECT_EQ(walk[2].record, nullptr);
  EXPECT_EQ(walk[3].slot, 9U);
  EXPECT_EQ(walk[3].record, &listing.records.back());
}

TEST(ListingTest, HasNoWalkIfEventsDoNotFitTheRecords) {
  EXPECT_FALSE(MakeListing({Record("01")}, {}).walk);
  const std::vector<ComponentEvent> one = Events({{5, "Serial: 01"}, {5, "Key length: 8 bits"}});
  EXPECT_TRUE(MakeListing({Record("01")}, one).walk);
  EXPECT_FALSE(MakeListing({Record("02")}, one).walk);
  EXPECT_FALSE(MakeListing({}, one).walk);
  EXPECT_FALSE(MakeListing({Record("01"), Record("01")}, one).walk);
}

}  // namespace
}  // namespace cardcert::cli
