// One frame of the reader protocol, and the codec between frames and wire bytes.
//
//   offset  0     1     2        3..4             5..4+N      5+N       6+N
//           0x7F  type  command  length N (big-e.) parameters  checksum  0x7E
//
// The checksum is the low byte of the sum of bytes 1 to 4+N. Nothing is escaped: 0x7F and 0x7E may stand anywhere
// between header and end. The codec is pure: no input or output, no threads, no log.
//
// Whoever receives appends what comes to a buffer and takes frames off its front, until one is not there:
//
//   for (;;) {
//     const auto [frame, consumed] = Frame::fromData(buffer);
//     buffer.erase(buffer.begin(), buffer.begin() + consumed);
//     if (frame == nullptr || !frame->validateCheckSum()) { break; }
//     use(*frame);
//   }
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "byte_reader.h"

namespace ac::UHF {

// Base of the frame classes (frame_catalogue.h): a plain value, owned by one thread at a time, without a lock. A frame
// does not change after its construction but by assignment. Where the class behind it matters it is held by
// std::unique_ptr: a copy of the base alone has no parameters.
//
// Failures are ac::ac_exception with the texts below; nothing is half-built then, and nothing logged.
class Frame {
 public:
  // The second byte on the wire.
  enum class Type : unsigned char {
    Command = 0x00,   // host to module
    Response = 0x01,  // the module's answer to a command
    Notice = 0x02,    // sent by the module during an inventory, one for each tag read
  };

  // The third byte on the wire: a command, and whatever answers it. There are no others.
  enum class CommandType : unsigned char {
    SetWorkArea = 0x07,        // set the regulatory work area
    InventoryCard = 0x22,      // read the tags in the field
    InsertWorkChannel = 0xA9,  // set the list of working channels
    SetTransmitPower = 0xB6,   // set the transmit power
    GetTransmitPower = 0xB7,   // read it
    SetRxSensitive = 0xF0,     // set the receive demodulator's sensitivity
    GetRxSensitive = 0xF1,     // read it
    CRCError = 0xFF,           // the module's answer when no tag could be read
  };

  // The result of decoding: the frame, or none, and the bytes consumed from the front.
  using Decoded = std::pair<std::unique_ptr<Frame>, unsigned int>;

  // Bytes of a frame without parameters.
  static constexpr unsigned int MIN_FRAME_SIZE = 7;

  // First and last byte of every frame. Inside it they mean nothing.
  static constexpr unsigned char HEADER = 0x7F;
  static constexpr unsigned char END = 0x7E;

  // Stores the values; the checksum is not computed here. parameterLength: bytes, as the frame is to say, whatever
  // parameterToData() yields. checksum: the received one, or 0 until updateChecksum().
  Frame(Type type, CommandType commandType, unsigned short parameterLength, unsigned char checksum);

  // A value like others; what was moved from may be assigned to or destroyed.
  virtual ~Frame() = default;
  Frame(const Frame&) = default;
  Frame(Frame&&) noexcept = default;
  Frame& operator=(const Frame&) = default;
  Frame& operator=(Frame&&) noexcept = default;

  // The parameter bytes in wire order; none here. Of a received frame only those that its class knows.
  virtual std::vector<unsigned char> parameterToData() const;

  // The whole frame as wire bytes, N + 7 of them, with the stored length and the stored checksum, right or not.
  std::vector<unsigned char> toData() const;

  // The checksum of the current contents: over the stored length and what parameterToData() yields.
  unsigned char calculateChecksum() const;

  // Whether the stored checksum is the calculated one. Of a received frame with parameter bytes that its class ignores,
  // these do not count.
  bool validateCheckSum() const;

  // What the frame is.
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

  // A frame as it stands in a buffer, its class not known yet; valid as long as the buffer is.
  struct View {
    // As received: it may be no Type.
    unsigned char type;
    // As received: it may be no CommandType.
    unsigned char command;
    // As received: it may be wrong.
    unsigned char checksum;
    // The N bytes between head and checksum.
    std::span<const unsigned char> parameters;

    // Whether it is a frame of this kind.
    bool is(Type wanted, CommandType code) const {
      return type == static_cast<unsigned char>(wanted) && command == static_cast<unsigned char>(code);
    }

    // The checksum of what stands there. That of a frame's class (calculateChecksum()) leaves out bytes it ignores.
    unsigned char calculateChecksum() const;
  };

  // The first step of decode(), with its outcomes: the view, or none, and the bytes consumed. Throws what decode()
  // throws about lengths.
  static std::pair<std::optional<View>, unsigned int> cut(std::span<const unsigned char> data);

  // The second: builds the view's class. Throws what createFrame() throws.
  static std::unique_ptr<Frame> create(const View& view);

  // Builds the class for a command code, then a frame type, from its parameters. Throws ac::ac_exception "Unknown
  // Command Type: <code>" or "Unknown Frame Type: <type>", in decimal, and what the class throws when the parameters
  // do not fit it.
  static std::unique_ptr<Frame> createFrame(int commandType, int type, unsigned char checksum,
                                            const std::vector<unsigned char>& parameters);

  // For the log: each byte as two lower-case hexadecimal digits and a blank, then the count: "7f 00 b7 [3]".
  static std::string printVector(const std::vector<unsigned char>& bytes);

  // Appends the same to text, whose memory a caller with many lines keeps.
  static void printBytes(std::span<const unsigned char> bytes, std::string& text);

 protected:
  // For the constructors of frames that the host builds, once their parameters stand.
  void updateChecksum() { checksum_ = calculateChecksum(); }

 private:
  // The sum of what parameterToData() yields. A class of which there are many in an answer has it without the copy.
  virtual unsigned int parameterSum() const;

  // createFrame(), from bytes that stay where they are.
  static std::unique_ptr<Frame> create(int commandType, int type, unsigned char checksum, ByteReader parameters);

  // As on the wire; the parameters are the classes' own.
  unsigned char header_;
  Type type_;
  CommandType command_;
  unsigned short parameterLength_;
  unsigned char checksum_;
  unsigned char end_;
};

}  // namespace ac::UHF
