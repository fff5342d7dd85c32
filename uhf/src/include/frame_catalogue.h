// Every frame of the reader protocol: commands (names ending in Frame), responses and the notice.
//
//   code   type   class                       parameters
//   0x07   0      SetWorkAreaFrame            region code 1
//   0x07   1      SetWorkAreaResponse         status 1
//   0x22   0      InventoryCardFrame          none
//   0x22   2      InventoryCardNotice         RSSI 1, PC 2, EPC N - 5, CRC 2
//   0xA9   0      InsertWorkChannelFrame      count 1, then as many channels of 1
//   0xA9   1      InsertWorkChannelResponse   status 1
//   0xB6   0      SetTransmitPowerFrame       power 2
//   0xB6   1      SetTransmitPowerResponse    status 1
//   0xB7   0      GetTransmitPowerFrame       none
//   0xB7   1      GetTransmitPowerResponse    power 2
//   0xF0   0      SetRxSensitiveFrame         M 1, I 1, sensitivity 2
//   0xF0   1      SetRxSensitiveResponse      status 1
//   0xF1   0      GetRxSensitiveFrame         none
//   0xF1   1      GetRxSensitiveResponse      M 1, I 1, sensitivity 2
//   0xFF   1      CRCErrorResponse            status 1
//
// The numbers are bytes; N is the length that the frame says. Any other pair of code and type is no frame.
//
// Each class has a decoding constructor (checksum, parameters), for Frame::createFrame(): it keeps the received
// checksum and the received length, decodes its fields from the front of the parameters and ignores bytes after them.
// Too few bytes throw ac::ac_exception "Not enough bytes to parse type". Commands have a value constructor too, which
// sets length and checksum and cannot fail. Multi-byte fields are big-endian.
//
// Frames are values of one thread at a time, without locks; see Frame. Numbers are the module's own: nothing is
// converted, scaled or checked against a range here. parameterToData() writes the layout that stands beside each class.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "byte_reader.h"
#include "demod_sensitivity_info.h"
#include "frame.h"

namespace ac::UHF {

// A response whose parameter is one status byte, whose meaning is the module's. Nobody here asks for it: that an answer
// came is what counts.
//
//   7F 01 B6 00 01 00 B8 7E   the power is set
template <Frame::CommandType code>
class StatusResponse final : public Frame {
 public:
  // Decodes; further bytes are ignored.
  StatusResponse(unsigned char checksum, const std::vector<unsigned char>& parameters)
      : StatusResponse(checksum, ByteReader(parameters)) {}
  StatusResponse(unsigned char checksum, ByteReader parameters)
      : Frame(Type::Response, code, static_cast<unsigned short>(parameters.size()), checksum),
        status_(parameters.read<std::uint8_t>()) {}

  std::vector<unsigned char> parameterToData() const override { return {status_}; }

  // As received.
  unsigned char status() const { return status_; }

 private:
  unsigned char status_;
};

// The answers to the commands that set something, and the one when no tag could be read.
using SetWorkAreaResponse = StatusResponse<Frame::CommandType::SetWorkArea>;
using InsertWorkChannelResponse = StatusResponse<Frame::CommandType::InsertWorkChannel>;
using SetTransmitPowerResponse = StatusResponse<Frame::CommandType::SetTransmitPower>;
using SetRxSensitiveResponse = StatusResponse<Frame::CommandType::SetRxSensitive>;
using CRCErrorResponse = StatusResponse<Frame::CommandType::CRCError>;

// A command without parameters: seven bytes on the wire.
//
//   7F 00 22 00 00 22 7E   which tags are in the field?
//   7F 00 B7 00 00 B7 7E   which power?
//   7F 00 F1 00 00 F1 7E   which sensitivity?
template <Frame::CommandType code>
class PlainCommand final : public Frame {
 public:
  // To be sent.
  PlainCommand() : Frame(Type::Command, code, 0, 0) { updateChecksum(); }

  // Decodes; all bytes are ignored, their number is kept.
  PlainCommand(unsigned char checksum, const std::vector<unsigned char>& parameters)
      : PlainCommand(checksum, ByteReader(parameters)) {}
  PlainCommand(unsigned char checksum, ByteReader parameters)
      : Frame(Type::Command, code, static_cast<unsigned short>(parameters.size()), checksum) {}
};

// What asks for the tags in the field, the power and the sensitivity.
using InventoryCardFrame = PlainCommand<Frame::CommandType::InventoryCard>;
using GetTransmitPowerFrame = PlainCommand<Frame::CommandType::GetTransmitPower>;
using GetRxSensitiveFrame = PlainCommand<Frame::CommandType::GetRxSensitive>;

// Sets the regulatory work area. Parameters: the module's region code, 1 byte, which is not the Region of the settings.
//
//   7F 00 07 00 01 02 0A 7E   code 2: Brazil, or America
class SetWorkAreaFrame final : public Frame {
 public:
  // To be sent. region: the module's code.
  explicit SetWorkAreaFrame(unsigned char region);

  // Decodes.
  SetWorkAreaFrame(unsigned char checksum, const std::vector<unsigned char>& parameters);
  SetWorkAreaFrame(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;

  // The module's code.
  unsigned char region() const { return region_; }

 private:
  unsigned char region_;
};

// The fields of a notice as they stand in a buffer: RSSI 1 byte, PC 2 bytes, EPC all bytes between, CRC the last 2
// bytes. Valid as long as the buffer is.
struct CardNoticeView {
  // Received signal strength, as the module gives it.
  unsigned char rssi;
  // The tag's protocol control word.
  unsigned short pc;
  // The tag's electronic product code, in the order received; may be empty.
  std::span<const unsigned char> epc;
  // The tag's own checksum.
  unsigned short crc;

  // From the parameters of a notice, uncopied. Throws as a notice's decoding constructor does.
  static CardNoticeView read(ByteReader parameters);
};

// One tag read: a frame that the module sends by itself during an inventory. Parameters: those of CardNoticeView; how
// long the EPC is follows from the frame's length, not from the PC word. PC and CRC are carried, not checked.
//
//   7F 02 22 00 07 C8 30 01 E2 34 5A 3C D0 7E   RSSI 200, PC 0x3001, EPC E2 34, CRC 0x5A3C
class InventoryCardNotice final : public Frame {
 public:
  // Decodes. Throws std::bad_alloc for 3 or 4 parameter bytes, which leave no room for the CRC.
  InventoryCardNotice(unsigned char checksum, const std::vector<unsigned char>& parameters);
  InventoryCardNotice(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;

  // Received signal strength, as the module gives it.
  unsigned char rssi() const { return rssi_; }

  // The tag's protocol control word.
  unsigned short pc() const { return pc_; }

  // The tag's electronic product code, in the order received; given away by a notice that is no longer needed.
  const std::vector<unsigned char>& epc() const& { return epc_; }
  std::vector<unsigned char> epc() && { return std::move(epc_); }

  // The tag's own checksum.
  unsigned short crc() const { return crc_; }

 private:
  // Decodes fields that are read already.
  InventoryCardNotice(unsigned char checksum, ByteReader parameters, const CardNoticeView& fields);

  // Without the copy that parameterToData() makes.
  unsigned int parameterSum() const override;

  unsigned char rssi_;
  unsigned short pc_;
  std::vector<unsigned char> epc_;
  unsigned short crc_;
};

// Sets the working channels. Parameters: a count byte, then that many channel numbers of 1 byte. No channels clear the
// module's list.
//
//   7F 00 A9 00 01 00 AA 7E            none
//   7F 00 A9 00 04 03 01 02 03 B6 7E   1, 2 and 3
class InsertWorkChannelFrame final : public Frame {
 public:
  // To be sent. More than 255 channels are not refused: the count byte wraps, the length does not.
  explicit InsertWorkChannelFrame(std::vector<unsigned char> channels);

  // Decodes. Throws ac::ac_exception "Invalid parameter length" when fewer channels follow than counted.
  InsertWorkChannelFrame(unsigned char checksum, const std::vector<unsigned char>& parameters);
  InsertWorkChannelFrame(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;

  // Their numbers, in the order given.
  const std::vector<unsigned char>& channels() const { return channels_; }

 private:
  std::vector<unsigned char> channels_;
};

// Sets the transmit power. Parameters: the power, 2 bytes.
//
//   7F 00 B6 00 02 0A 28 EA 7E   2600
class SetTransmitPowerFrame final : public Frame {
 public:
  // To be sent. power: in the module's own unit.
  explicit SetTransmitPowerFrame(unsigned short power);

  // Decodes.
  SetTransmitPowerFrame(unsigned char checksum, const std::vector<unsigned char>& parameters);
  SetTransmitPowerFrame(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;

  // In the module's own unit.
  unsigned short power() const { return power_; }

 private:
  unsigned short power_;
};

// Tells the transmit power. Parameters: the power, 2 bytes.
//
//   7F 01 B7 00 02 0A 28 EC 7E   2600
class GetTransmitPowerResponse final : public Frame {
 public:
  // Decodes.
  GetTransmitPowerResponse(unsigned char checksum, const std::vector<unsigned char>& parameters);
  GetTransmitPowerResponse(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;

  // In the module's own unit.
  unsigned short power() const { return power_; }

 private:
  unsigned short power_;
};

// Sets the receive demodulator's sensitivity. Parameters: M 1 byte, I 1 byte, sensitivity 2 bytes.
//
//   7F 00 F0 00 04 02 06 00 A0 9C 7E   M 2, I 6, sensitivity 160
class SetRxSensitiveFrame final : public Frame {
 public:
  // To be sent; see DemodSensitivityInfo.
  SetRxSensitiveFrame(unsigned char m, unsigned char i, unsigned short sensitivity);

  // Decodes.
  SetRxSensitiveFrame(unsigned char checksum, const std::vector<unsigned char>& parameters);
  SetRxSensitiveFrame(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;

  // All three, as on the wire.
  const DemodSensitivityInfo& info() const { return info_; }

 private:
  DemodSensitivityInfo info_;
};

// Tells the receive demodulator's sensitivity. Parameters: as of the command that sets it.
//
//   7F 01 F1 00 04 02 06 00 A0 9E 7E   M 2, I 6, sensitivity 160
class GetRxSensitiveResponse final : public Frame {
 public:
  // Decodes.
  GetRxSensitiveResponse(unsigned char checksum, const std::vector<unsigned char>& parameters);
  GetRxSensitiveResponse(unsigned char checksum, ByteReader parameters);

  std::vector<unsigned char> parameterToData() const override;

  // All three, as on the wire.
  const DemodSensitivityInfo& info() const { return info_; }

 private:
  DemodSensitivityInfo info_;
};

}  // namespace ac::UHF
