// The frame classes, one by one.
#include "frame_catalogue.h"

#include <gmock/gmock.h>

#include <map>
#include <new>
#include <numeric>

#include "hex.h"
#include "vectors.h"

using namespace ac::UHF;

namespace {

template <class ConcreteFrame>
bool is(const Frame& frame) {
  return dynamic_cast<const ConcreteFrame*>(&frame) != nullptr;
}

const std::map<std::string, bool (*)(const Frame&)> CLASSES{
    {"SetWorkAreaFrame", is<SetWorkAreaFrame>},
    {"SetWorkAreaResponse", is<SetWorkAreaResponse>},
    {"InventoryCardFrame", is<InventoryCardFrame>},
    {"InventoryCardNotice", is<InventoryCardNotice>},
    {"InsertWorkChannelFrame", is<InsertWorkChannelFrame>},
    {"InsertWorkChannelResponse", is<InsertWorkChannelResponse>},
    {"SetTransmitPowerFrame", is<SetTransmitPowerFrame>},
    {"SetTransmitPowerResponse", is<SetTransmitPowerResponse>},
    {"GetTransmitPowerFrame", is<GetTransmitPowerFrame>},
    {"GetTransmitPowerResponse", is<GetTransmitPowerResponse>},
    {"SetRxSensitiveFrame", is<SetRxSensitiveFrame>},
    {"SetRxSensitiveResponse", is<SetRxSensitiveResponse>},
    {"GetRxSensitiveFrame", is<GetRxSensitiveFrame>},
    {"GetRxSensitiveResponse", is<GetRxSensitiveResponse>},
    {"CRCErrorResponse", is<CRCErrorResponse>},
};

// What the decoding constructor of a class throws for these parameters; "" for nothing.
template <class ConcreteFrame>
std::string failureOf(const std::string& parameters) {
  try {
    ConcreteFrame(0, hex(parameters));
  } catch (const std::exception& error) {
    return error.what();
  }
  return "";
}

constexpr auto NOT_ENOUGH = "Not enough bytes to parse type";
constexpr auto INVALID_LENGTH = "Invalid parameter length";

}  // namespace

TEST(Vectors, EveryClassHasOne) {
  std::map<std::string, bool (*)(const Frame&)> missing = CLASSES;
  for (const auto& vector : load_vectors(VECTORS_DIRECTORY)) {
    missing.erase(vector.class_name);
  }
  EXPECT_TRUE(missing.empty()) << missing.begin()->first;
}

TEST(Vectors, DecodeToTheirClassAndEncodeToTheSameBytes) {
  for (const auto& vector : load_vectors(VECTORS_DIRECTORY)) {
    const auto name = vector.file + ": " + Frame::printVector(vector.bytes);
    const auto [frame, consumed] = Frame::fromData(vector.bytes);
    ASSERT_NE(frame, nullptr) << name;
    EXPECT_EQ(consumed, vector.bytes.size()) << name;
    EXPECT_TRUE(CLASSES.at(vector.class_name)(*frame)) << name;
    EXPECT_TRUE(frame->validateCheckSum()) << name;
    EXPECT_EQ(frame->toData(), vector.bytes) << name;
  }
}

TEST(Commands, AreSentAsTheModuleKnowsThem) {
  EXPECT_EQ(SetWorkAreaFrame(0x02).toData(), hex("7F 00 07 00 01 02 0A 7E"));
  EXPECT_EQ(InventoryCardFrame().toData(), hex("7F 00 22 00 00 22 7E"));
  EXPECT_EQ(InsertWorkChannelFrame({1, 2, 3}).toData(), hex("7F 00 A9 00 04 03 01 02 03 B6 7E"));
  EXPECT_EQ(SetTransmitPowerFrame(2600).toData(), hex("7F 00 B6 00 02 0A 28 EA 7E"));
  EXPECT_EQ(GetTransmitPowerFrame().toData(), hex("7F 00 B7 00 00 B7 7E"));
  EXPECT_EQ(SetRxSensitiveFrame(2, 6, 160).toData(), hex("7F 00 F0 00 04 02 06 00 A0 9C 7E"));
  EXPECT_EQ(GetRxSensitiveFrame().toData(), hex("7F 00 F1 00 00 F1 7E"));
}

TEST(Commands, SurviveTheWayThroughTheWire) {
  const auto survives = [](const Frame& sent) {
    const auto received = Frame::fromData(sent.toData()).first;
    return received != nullptr && received->toData() == sent.toData() && received->validateCheckSum();
  };
  for (unsigned int value = 0; value <= 0xFFFF; value += 0x55) {
    const auto byte = static_cast<unsigned char>(value);
    const auto word = static_cast<unsigned short>(value);
    EXPECT_TRUE(survives(SetWorkAreaFrame(byte)));
    EXPECT_TRUE(survives(SetTransmitPowerFrame(word)));
    EXPECT_TRUE(survives(SetRxSensitiveFrame(byte, static_cast<unsigned char>(~byte), word)));
    EXPECT_TRUE(survives(InsertWorkChannelFrame(std::vector<unsigned char>(byte, byte))));
  }
  EXPECT_TRUE(survives(InventoryCardFrame()));
  EXPECT_TRUE(survives(GetTransmitPowerFrame()));
  EXPECT_TRUE(survives(GetRxSensitiveFrame()));
}

TEST(StatusResponse, WithoutParametersIsNotEnough) {
  EXPECT_EQ(failureOf<SetWorkAreaResponse>(""), NOT_ENOUGH);
  EXPECT_EQ(failureOf<InsertWorkChannelResponse>(""), NOT_ENOUGH);
  EXPECT_EQ(failureOf<SetTransmitPowerResponse>(""), NOT_ENOUGH);
  EXPECT_EQ(failureOf<SetRxSensitiveResponse>(""), NOT_ENOUGH);
  EXPECT_EQ(failureOf<CRCErrorResponse>(""), NOT_ENOUGH);
}

TEST(StatusResponse, KeepsTheFirstOfThreeBytesAndTheReceivedLength) {
  const auto frame = Frame::fromData(hex("7F 01 B6 00 03 05 06 07 BF 7E")).first;
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(dynamic_cast<SetTransmitPowerResponse&>(*frame).status(), 5);
  EXPECT_EQ(frame->parameterToData(), hex("05"));
  EXPECT_EQ(frame->toData(), hex("7F 01 B6 00 03 05 BF 7E"));
}

TEST(StatusResponse, OfThreeBytesIsValidOnlyWithTheChecksumOfItsFirst) {
  EXPECT_TRUE(Frame::fromData(hex("7F 01 B6 00 03 05 06 07 BF 7E")).first->validateCheckSum());
  EXPECT_FALSE(Frame::fromData(hex("7F 01 B6 00 03 05 06 07 CC 7E")).first->validateCheckSum());
}

TEST(PlainCommand, KeepsTheReceivedLengthAndNoParameters) {
  const auto frame = Frame::fromData(hex("7F 00 B7 00 02 01 02 B9 7E")).first;
  ASSERT_NE(frame, nullptr);
  EXPECT_EQ(frame->parameterToData(), hex(""));
  EXPECT_EQ(frame->toData(), hex("7F 00 B7 00 02 B9 7E"));
  EXPECT_TRUE(frame->validateCheckSum());
}

TEST(TransmitPowerFrames, CarryTwoBytes) {
  EXPECT_EQ(GetTransmitPowerResponse(0, hex("0A 28")).power(), 2600);
  EXPECT_EQ(SetTransmitPowerFrame(0, hex("0A 28 FF")).power(), 2600);
  EXPECT_EQ(failureOf<GetTransmitPowerResponse>("0A"), NOT_ENOUGH);
  EXPECT_EQ(failureOf<SetTransmitPowerFrame>("0A"), NOT_ENOUGH);
}

TEST(WorkAreaFrame, CarriesOneByte) {
  EXPECT_EQ(SetWorkAreaFrame(0, hex("06")).region(), 6);
  EXPECT_EQ(failureOf<SetWorkAreaFrame>(""), NOT_ENOUGH);
}

TEST(SensitivityFrames, CarryFourBytes) {
  const GetRxSensitiveResponse response(0, hex("02 06 00 A0"));
  EXPECT_EQ(response.info().m, 2);
  EXPECT_EQ(response.info().i, 6);
  EXPECT_EQ(response.info().sensitivity, 160);
  EXPECT_EQ(SetRxSensitiveFrame(0, hex("02 06 01 A0")).info().sensitivity, 416);
  for (const auto* tooFew : {"", "02", "02 06", "02 06 00"}) {
    EXPECT_EQ(failureOf<GetRxSensitiveResponse>(tooFew), NOT_ENOUGH) << tooFew;
    EXPECT_EQ(failureOf<SetRxSensitiveFrame>(tooFew), NOT_ENOUGH) << tooFew;
  }
}

TEST(WorkChannelFrame, FewerChannelsThanCountedAreInvalid) {
  EXPECT_EQ(failureOf<InsertWorkChannelFrame>("05 01 02"), INVALID_LENGTH);
  EXPECT_EQ(failureOf<InsertWorkChannelFrame>("01"), INVALID_LENGTH);
  EXPECT_EQ(failureOf<InsertWorkChannelFrame>(""), NOT_ENOUGH);
}

TEST(WorkChannelFrame, MoreBytesThanCountedAreIgnored) {
  EXPECT_EQ(InsertWorkChannelFrame(0, hex("02 01 02 09")).channels(), hex("01 02"));
  EXPECT_EQ(InsertWorkChannelFrame(0, hex("00 09")).channels(), hex(""));
}

TEST(WorkChannelFrame, TheCountOf256ChannelsWraps) {
  const auto data = InsertWorkChannelFrame(std::vector<unsigned char>(256, 7)).toData();
  EXPECT_EQ(data.size(), 257U + 7U);
  EXPECT_EQ(data[3] << 8 | data[4], 257);
  EXPECT_EQ(data[5], 0x00);
}

TEST(CardNotice, SplitsItsParametersByTheirLength) {
  const InventoryCardNotice notice(0, hex("C8 30 00 01 02 03 04 05 06 07 08 09 0A 0B 0C 5A 3C"));
  EXPECT_EQ(notice.rssi(), 200);
  EXPECT_EQ(notice.pc(), 0x3000);
  EXPECT_EQ(notice.epc(), hex("01 02 03 04 05 06 07 08 09 0A 0B 0C"));
  EXPECT_EQ(notice.crc(), 0x5A3C);
}

TEST(CardNotice, ChecksumIsFormedOverEveryByte) {
  for (const auto& parameters :
       {hex("C8 30 00 95 1D"), hex("FF FF FE E2 00 68 0A FF 80 7F"), hex("01 00 02 03 04 00 05")}) {
    const InventoryCardNotice notice(0, parameters);
    const auto wire = notice.toData();
    EXPECT_EQ(notice.calculateChecksum(),
              static_cast<unsigned char>(std::accumulate(wire.begin() + 1, wire.end() - 2, 0U)));
  }
}

TEST(CardNotice, GivesItsEpcAwayWhenItIsNoLongerNeeded) {
  InventoryCardNotice notice(0, hex("C8 30 00 E2 00 95 1D"));
  const auto* const bytes = notice.epc().data();
  const auto epc = std::move(notice).epc();
  EXPECT_EQ(epc, hex("E2 00"));
  EXPECT_EQ(epc.data(), bytes) << "without a copy";
}

TEST(CardNotice, OfFiveBytesHasNoEpc) {
  const InventoryCardNotice notice(0, hex("C8 30 00 5A 3C"));
  EXPECT_TRUE(notice.epc().empty());
  EXPECT_EQ(notice.crc(), 0x5A3C);
}

TEST(CardNotice, OfThreeOrFourBytesEndsInBadAlloc) {
  EXPECT_THROW(InventoryCardNotice(0, hex("C8 30 00")), std::bad_alloc);
  EXPECT_THROW(InventoryCardNotice(0, hex("C8 30 00 5A")), std::bad_alloc);
  EXPECT_THROW(Frame::fromData(hex("7F 02 22 00 04 C8 30 00 5A 7A 7E")), std::bad_alloc);
}

TEST(CardNotice, OfFewerThanThreeBytesIsNotEnough) {
  for (const auto* tooFew : {"", "C8", "C8 30"}) {
    EXPECT_EQ(failureOf<InventoryCardNotice>(tooFew), NOT_ENOUGH) << tooFew;
  }
}
