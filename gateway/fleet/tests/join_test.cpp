// New doors at a real broker: the centre's side is achost-fleet, as a process.
#include "gateway/mqtt/join.h"

#include <fstream>

#include "cli/failure.h"
#include "gateway/fleet/authority.h"
#include "gateway/fleet/tests/fleet_fixture.h"
#include "gateway/mqtt/one_time_code.h"

namespace fleet::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;

class Joining : public Fleet {
 protected:
  void SetUp() override {
    centre_.emplace(ACHOST_FLEET,
                    words({"provision", "--ca-key", broker_.file("ca.key"), "--state", broker_.file("centre")}));
    // A stranger without an invitation is answered: from then on it listens.
    EXPECT_THAT(error_of("serial-0", mqtt::new_code(), std::chrono::seconds(1), true), HasSubstr("no invitation"));
  }

  std::string invited(const std::string& door, const std::string& serial) const {
    return Json::parse(output({"invite", door, "--serial", serial, "--state", broker_.file("centre")})).at("code");
  }

  mqtt::Joined join(const std::string& serial, const std::string& code,
                    std::chrono::seconds patience = refhost::test::kPatience) const {
    return mqtt::join({.broker = "localhost:" + std::to_string(broker_.strangers_port()),
                       .serial = serial,
                       .code = code,
                       .directory = broker_.file(serial),
                       .patience = patience});
  }

  // until_answered: also while nobody answers.
  std::string error_of(const std::string& serial, const std::string& code,
                       std::chrono::seconds patience = refhost::test::kPatience, bool until_answered = false) const {
    for (int tries = 0; tries < 60; ++tries) {
      try {
        join(serial, code, patience);
        return "";
      } catch (const cli::Failure& failure) {
        if (!until_answered || failure.status() != cli::kNoAnswer) {
          return failure.what();
        }
      }
    }
    return "nobody answers";
  }

  std::optional<achost::test::Achost> centre_;
};

TEST_F(Joining, AnInvitedDoorGetsItsNameAndACertificateThatTheBrokerTakes) {
  const auto code = invited("new-gate", "serial-1");
  const auto joined = join("serial-1", code);
  EXPECT_EQ(joined.door, "new-gate");
  EXPECT_EQ(joined.broker, broker_.address());
  EXPECT_EQ(content_of(broker_.file("serial-1/ca.pem")), content_of(broker_.file("ca.pem")));
  EXPECT_THAT(content_of(broker_.file("serial-1/achost-mqtt.conf")),
              AllOf(HasSubstr("door=new-gate\n"), HasSubstr("serial-1/key.pem\n")));
  std::filesystem::copy(broker_.file("serial-1/certificate.pem"), broker_.file("new-gate.pem"));
  std::filesystem::copy(broker_.file("serial-1/key.pem"), broker_.file("new-gate.key"));
  {
    const TestDoor door(broker_, "new-gate");
    EXPECT_THAT(output({"list"}), HasSubstr(R"("door":"new-gate","online":true)"));
  }
  // The code was for that key; who finds it gets nothing for his own.
  EXPECT_THAT(error_of("serial-1", code), "") << "its own key may ask again";
  std::filesystem::remove(broker_.file("serial-1/key.pem"));
  EXPECT_THAT(error_of("serial-1", code), HasSubstr("no invitation"));
}

TEST_F(Joining, WhatItWasInvitedForIsThereWhenItComes) {
  const auto code = invited("new-gate", "serial-1");
  output({"push", written("people.csv", "id,name,card\n7,Ana,33\n"), "--to", "new-gate", "--new"});
  join("serial-1", code);
  std::filesystem::copy(broker_.file("serial-1/certificate.pem"), broker_.file("new-gate.pem"));
  std::filesystem::copy(broker_.file("serial-1/key.pem"), broker_.file("new-gate.key"));
  const TestDoor door(broker_, "new-gate");
  EXPECT_TRUE(comes_true([&] { return door.document().users == user_lines("id,name,card\n7,Ana,33\n", ""); }));
}

TEST_F(Joining, AnotherSerialNumberOrCodeIsRefused) {
  const auto code = invited("new-gate", "serial-1");
  EXPECT_THAT(error_of("serial-2", code), HasSubstr("no invitation"));
  EXPECT_THAT(error_of("serial-1", mqtt::new_code()), HasSubstr("no invitation"));
  EXPECT_THAT(error_of("serial-1", "12345"), HasSubstr("is no code"));
  EXPECT_THAT(error_of("Serial 1", code), HasSubstr("is no serial number"));
  EXPECT_FALSE(std::filesystem::exists(broker_.file("serial-1/certificate.pem")));
  EXPECT_EQ(join("serial-1", code).door, "new-gate");
}

TEST_F(Joining, WhoDoesNotKnowTheCodeIsNotTheCentre) {
  const auto code = invited("new-gate", "serial-1");
  centre_->signal(SIGINT);
  EXPECT_EQ(centre_->wait().status, 0);
  // Somebody who may write there answers first: retained, so that the door has it as soon as it listens.
  broker_.stranger("mosquitto_pub", "centre",
                   {"-r", "-t", "provision/new-serial-1/answer", "-m",
                    R"({"door":"new-gate","certificate":"x","ca":"x","broker":"evil:8883","proof":"00"})"});
  EXPECT_THAT(error_of("serial-1", code), HasSubstr("does not know the code"));
  EXPECT_FALSE(std::filesystem::exists(broker_.file("serial-1/achost-mqtt.conf")));
  broker_.stranger("mosquitto_pub", "centre", {"-r", "-t", "provision/new-serial-1/answer", "-m", "x"});
  EXPECT_THAT(error_of("serial-1", code), HasSubstr("no JSON"));
}

TEST_F(Joining, NobodyWhoAnswersIsSaid) {
  centre_->signal(SIGINT);
  centre_->wait();
  EXPECT_THAT(error_of("serial-1", mqtt::new_code(), std::chrono::seconds(1)), HasSubstr("achost-fleet provision"));
  try {
    mqtt::join({.broker = "localhost:1", .serial = "s", .code = mqtt::new_code(), .directory = broker_.file("s")});
    ADD_FAILURE() << "there is a broker";
  } catch (const cli::Failure& failure) {
    EXPECT_THAT(failure.what(), HasSubstr("localhost:1"));
  }
}

TEST_F(Joining, WithoutTheAuthoritysKeyNobodyIsLetIn) {
  const auto other = run({"provision", "--ca-key", broker_.file("gate-1.key"), "--state", broker_.file("centre")});
  EXPECT_EQ(other.status, 2);
  EXPECT_THAT(other.err, HasSubstr("is not the key of"));
}

TEST_F(Joining, OnlyWhatIsSignedByItsOwnKeyIsSigned) {
  const Authority authority(broker_.file("ca.pem"), broker_.file("ca.key"));
  EXPECT_THROW(authority.sign("x", "gate-1", 1), cli::Failure);
  achost::test::run_program("/usr/bin/openssl", {"req", "-new", "-newkey", "rsa:1024", "-nodes", "-subj", "/CN=x",
                                                 "-keyout", broker_.file("weak.key"), "-out", broker_.file("weak")});
  EXPECT_THROW(authority.sign(content_of(broker_.file("weak")), "gate-1", 1), cli::Failure);
  achost::test::run_program("/usr/bin/openssl",
                            {"req", "-new", "-newkey", "rsa:2048", "-nodes", "-subj", "/CN=operator", "-keyout",
                             broker_.file("good.key"), "-out", broker_.file("good")});
  std::ofstream(broker_.file("made")) << authority.sign(content_of(broker_.file("good")), "gate-1", 30);
  const auto look =
      achost::test::run_program("/usr/bin/openssl", {"x509", "-in", broker_.file("made"), "-noout", "-subject"});
  EXPECT_THAT(look.out, HasSubstr("CN = gate-1"));
  const auto check = achost::test::run_program(
      "/usr/bin/openssl", {"verify", "-purpose", "sslserver", "-CAfile", broker_.file("ca.pem"), broker_.file("made")});
  EXPECT_NE(check.status, 0) << "a door cannot be the broker";
}

}  // namespace
}  // namespace fleet::test
