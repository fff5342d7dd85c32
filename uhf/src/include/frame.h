// One frame of the reader protocol, and the codec between frames and wire bytes.
//
//   offset  0     1     2        3..4             5..4+N      5+N       6+N
//           0x7F  type  command  length N (big-e.) parameters  checksum  0x7E
//
// The checksum is the low byte of the sum of bytes 1 to 4+N. Nothing is escaped: 0x7F and 0x7E may stand anywhere
// between header and end. The codec is pure: no input or output, no threads, no log.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace ac::UHF {

class ByteReader;

// Base of the frame classes (frame_catalogue.h). A frame does not change after its construction; one thread at a time
// uses it.
class Frame {
 public:
  enum class Type : unsigned char {
    Command = 0x00,   // host to module
    Response = 0x01,  // the module's answer to a command
    Notice = 0x02,    // sent by the module during an inventory, one for each tag read
  };

  enum class CommandType : unsigned char {
    SetWorkArea = 0x07,
    InventoryCard = 0x22,
    InsertWorkChannel = 0xA9,
    SetTransmitPower = 0xB6,
    GetTransmitPower = 0xB7,
    SetRxSensitive = 0xF0,
    GetRxSensitive = 0xF1,
    CRCError = 0xFF,
  };

  // The result of decoding: the frame, or none, and the bytes consumed from the front.
  using Decoded = std::pair<std::unique_ptr<Frame>, unsigned int>;

  // Bytes of a frame without parameters.
  static constexpr unsigned int MIN_FRAME_SIZE = 7;

  // First and last byte of every frame.
  static constexpr unsigned char HEADER = 0x7F;
  static constexpr unsigned char END = 0x7E;

  // Stores the values; the checksum is not computed here.
  Frame(Type type, CommandType commandType, unsigned short parameterLength, unsigned char checksum);
  virtual ~Frame() = default;
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;

  // The parameter bytes in wire order; none here.
  virtual std::vector<unsigned char> parameterToData() const;

  // The whole frame as wire bytes, with the stored length and the stored checksum.
  std::vector<unsigned char> toData() const;

  // The checksum of the current contents: over the stored length and what parameterToData() yields.
  unsigned char calculateChecksum() const;

  // Whether the stored checksum is the calculated one.
  bool validateCheckSum() const;

  Type type() const { return type_; }
  CommandType command() const { return command_; }

  // Decodes the frame at the front of data. The outcomes, and the bytes consumed:
  //   fewer than MIN_FRAME_SIZE bytes     no frame, 0: wait for more
  //   the first byte is no header         no frame, 1: drop it and try again
  //   no end byte where it should stand   no frame, 7 + N
  //   otherwise                           the frame, 7 + N; its checksum is not checked here
  // Throws ac::ac_exception "Invalid parameter length" when the parameters run past data, "Not enough bytes to parse
  // type" when checksum or end byte do, and what createFrame() throws.
  static Decoded fromData(const std::vector<unsigned char>& data);

  // The same, from a view of a buffer.
  static Decoded decode(std::span<const unsigned char> data);

  // Builds the class for a command code, then a frame type, from its parameters. Throws ac::ac_exception "Unknown
  // Command Type: <code>" or "Unknown Frame Type: <type>", in decimal, and what the class throws when the parameters
  // do not fit it.
  static std::unique_ptr<Frame> createFrame(int commandType, int type, unsigned char checksum,
                                            const std::vector<unsigned char>& parameters);

  // For the log: each byte as two lower-case hexadecimal digits and a blank, then the count: "7f 00 b7 [3]".
  static std::string printVector(const std::vector<unsigned char>& bytes);

 protected:
  // For the constructors of frames that the host builds, once their parameters stand.
  void updateChecksum() { checksum_ = calculateChecksum(); }

 private:
  // The sum of what parameterToData() yields. A class of which there are many in an answer has it without the copy.
  virtual unsigned int parameterSum() const;

  static std::unique_ptr<Frame> create(int commandType, int type, unsigned char checksum, ByteReader parameters);

  unsigned char header_;
  Type type_;
  CommandType command_;
  unsigned short parameterLength_;
  unsigned char checksum_;
  unsigned char end_;
};

}  // namespace ac::UHF
