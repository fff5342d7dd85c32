#include "gateway/web/options.h"

#include <gmock/gmock.h>

#include "cli/failure.h"

namespace web {
namespace {

using testing::ElementsAre;

Options listening(const std::string& place) {
  Options options;
  options.listen = place;
  return options;
}

Options safe(const std::string& place) {
  Options options = listening(place);
  options.certificate = "door.pem";
  options.key = "door.key";
  return options;
}

TEST(OptionsTest, AnAddressOthersReachNeedsACertificate) {
  EXPECT_EQ(place_of(listening("127.0.0.1:80")).port(), 80);
  EXPECT_EQ(place_of(listening("[::1]:80")).port(), 80);
  for (const char* place : {"0.0.0.0:80", "[::]:80", "192.168.1.5:80", "[::ffff:192.168.1.5]:80"}) {
    EXPECT_THROW(place_of(listening(place)), cli::Failure) << place;
    EXPECT_EQ(place_of(safe(place)).port(), 80) << place;
  }
}

TEST(OptionsTest, WhatIsNoAddressIsRefused) {
  for (const char* place : {"", "8080", "127.0.0.1", "127.0.0.1:", "127.0.0.1:70000", "127.0.0.1:-1", "door.local:80",
                            "127.0.0.1:80x", ":80"}) {
    EXPECT_THROW(place_of(listening(place)), cli::Failure) << place;
  }
}

TEST(OptionsTest, ACertificateWithoutItsKeyIsRefused) {
  Options options = safe("0.0.0.0:80");
  options.key.clear();
  EXPECT_THROW(place_of(options), cli::Failure);
}

TEST(OptionsTest, TheNamesOfThisMachineAloneCountWithoutOthers) {
  EXPECT_THAT(names_of(listening("127.0.0.1:80")), ElementsAre("localhost", "127.0.0.1", "[::1]"));
  EXPECT_THAT(names_of(safe("192.168.1.5:80")), ElementsAre("192.168.1.5"));
}

TEST(OptionsTest, WhereAnyAddressLeadsHereANameIsNeeded) {
  Options options = safe("0.0.0.0:8443");
  EXPECT_THROW(names_of(options), cli::Failure);
  options.names = {"door.local"};
  EXPECT_THAT(names_of(options), ElementsAre("door.local"));
  EXPECT_EQ(base_of(options, 8443), "https://door.local:8443");
}

}  // namespace
}  // namespace web
