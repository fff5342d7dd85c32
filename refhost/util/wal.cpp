#include "util/wal.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <fstream>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace refhost {
namespace {

// https://www.sqlite.org/fileformat2.html#walformat
constexpr std::size_t kHeader = 32;
constexpr std::size_t kHeaderSummed = 24;  // the bytes of the header that its checksum is over
constexpr std::size_t kFrameHeader = 24;
constexpr std::size_t kFrameSummed = 8;
constexpr std::uint32_t kMagic = 0x377f0682;  // one more: the checksums are over big-endian words
constexpr std::uint32_t kVersion = 3007000;
constexpr std::size_t kSmallestPage = 512;
constexpr std::size_t kLargestPage = 65536;
constexpr unsigned kWordBits = 32;

using Bytes = std::span<unsigned char>;

std::uint32_t word_at(std::span<const unsigned char> bytes, std::size_t at, bool is_big_endian) {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < sizeof word; ++i) {
    word |= std::uint32_t{bytes[at + i]} << (8 * (is_big_endian ? sizeof word - 1 - i : i));
  }
  return word;
}

struct Sum {
  std::uint32_t first = 0;
  std::uint32_t second = 0;
  bool operator==(const Sum&) const = default;
};

Sum sum_at(std::span<const unsigned char> bytes, std::size_t at) {
  return {word_at(bytes, at, true), word_at(bytes, at + 4, true)};
}

Sum sum_of(std::span<const unsigned char> bytes, bool is_big_endian, Sum sum) {
  for (std::size_t at = 0; at + 8 <= bytes.size(); at += 8) {
    sum.first += word_at(bytes, at, is_big_endian) + sum.second;
    sum.second += word_at(bytes, at + 4, is_big_endian) + sum.first;
  }
  return sum;
}

void flip(Bytes bytes, std::size_t bit) { bytes[bit / 8] ^= static_cast<unsigned char>(1U << (bit % 8)); }

// The bits of the summed bytes each of which, flipped, turns the sum found into the one wanted. Sums are linear: what a
// word adds to them is a factor for each of its places, counted from the end. For high bits the factors repeat
// themselves, so there may be many.
std::vector<std::size_t> bits_between(std::span<const unsigned char> bytes, bool is_big_endian, Sum found, Sum wanted) {
  const Sum missing{wanted.first - found.first, wanted.second - found.second};
  std::array<Sum, 2> factors{Sum{1, 1}, Sum{0, 1}};
  std::vector<std::size_t> bits;
  for (std::size_t at = bytes.size(); at >= 8; at -= 8) {
    for (std::size_t half = 0; half < 2; ++half) {
      const std::size_t place = at - 8 + 4 * half;
      const std::uint32_t word = word_at(bytes, place, is_big_endian);
      for (unsigned bit = 0; bit < kWordBits; ++bit) {
        const std::uint32_t change = (word >> bit & 1U) != 0 ? 0U - (1U << bit) : 1U << bit;
        if (factors[half].first * change == missing.first && factors[half].second * change == missing.second) {
          bits.push_back(8 * (place + (is_big_endian ? 3 - bit / 8 : bit / 8)) + bit % 8);
        }
      }
      factors[half].first += factors[half].second;
      factors[half].second += factors[half].first;
    }
  }
  return bits;
}

// The only bit by which the eight bytes at a place differ from these.
std::optional<std::size_t> bit_apart(std::span<const unsigned char> bytes, std::size_t at, Sum wanted) {
  const Sum there = sum_at(bytes, at);
  const std::uint64_t bits = std::uint64_t{there.first ^ wanted.first} << kWordBits | (there.second ^ wanted.second);
  if (!std::has_single_bit(bits)) {
    return std::nullopt;
  }
  const auto from_end = static_cast<std::size_t>(std::countr_zero(bits));
  return 8 * (at + 7 - from_end / 8) + from_end % 8;
}

struct Header {
  std::array<unsigned char, kHeader> bytes{};

  bool is_big_endian() const { return word_at(bytes, 0, true) != kMagic; }
  std::size_t page() const { return word_at(bytes, 8, true); }
  Sum salts() const { return sum_at(bytes, 16); }
  Sum sum() const { return sum_at(bytes, kHeaderSummed); }

  bool has_page() const { return page() >= kSmallestPage && page() <= kLargestPage && std::has_single_bit(page()); }
  bool is_good() const {
    const std::uint32_t magic = word_at(bytes, 0, true);
    return (magic == kMagic || magic == kMagic + 1) && word_at(bytes, 4, true) == kVersion && has_page() &&
           sum_of(std::span(bytes).first(kHeaderSummed), is_big_endian(), {}) == sum();
  }

  // Each header that is good and one bit apart.
  std::vector<std::pair<std::size_t, Header>> flipped() const {
    std::vector<std::pair<std::size_t, Header>> good;
    for (std::size_t bit = 0; bit < 8 * kHeader; ++bit) {
      Header other = *this;
      flip(other.bytes, bit);
      if (other.is_good()) {
        good.emplace_back(bit, other);
      }
    }
    return good;
  }
};

struct Frame {
  std::vector<unsigned char> bytes;
  Sum sum_before{};  // as the frame before has it, or the header

  bool commits() const { return word_at(bytes, 4, true) != 0; }
  Sum salts() const { return sum_at(bytes, 8); }
  Sum sum() const { return sum_at(bytes, 16); }

  Sum computed(bool is_big_endian) const {
    const std::span all(bytes);
    return sum_of(all.subspan(kFrameHeader), is_big_endian, sum_of(all.first(kFrameSummed), is_big_endian, sum_before));
  }

  // The bits each of which, flipped, makes it one with these salts and a right checksum.
  std::vector<std::size_t> flipped(bool is_big_endian, Sum wanted_salts) const {
    const Sum found = computed(is_big_endian);
    if (salts() != wanted_salts) {
      const auto bit = found == sum() ? bit_apart(bytes, 8, wanted_salts) : std::nullopt;
      return bit.has_value() ? std::vector{*bit} : std::vector<std::size_t>();
    }
    std::vector<unsigned char> summed(bytes.begin(), bytes.begin() + kFrameSummed);
    summed.insert(summed.end(), bytes.begin() + kFrameHeader, bytes.end());
    auto bits = bits_between(summed, is_big_endian, found, sum());
    for (std::size_t& bit : bits) {
      bit += bit >= 8 * kFrameSummed ? 8 * (kFrameHeader - kFrameSummed) : 0;
    }
    if (const auto in_sum = bit_apart(bytes, 16, found)) {
      bits.push_back(*in_sum);
    }
    return bits;
  }
};

// The header of the index, as the machine has its numbers; there are two of them, in case that one is half written.
struct IndexHeader {
  std::uint32_t version;
  std::uint32_t unused;
  std::uint32_t change;
  std::uint16_t is_big_endian_and_ready;
  std::uint16_t page;
  std::uint32_t frames;
  std::uint32_t pages;
  std::array<std::uint32_t, 2> frame_sum;
  std::array<unsigned char, 8> salts;  // as in the log
  std::array<std::uint32_t, 2> sum;
  bool operator==(const IndexHeader&) const = default;
};
static_assert(sizeof(IndexHeader) == 48);

// How many frames of the log with these salts were acknowledged; 0 when nobody knows.
std::size_t acknowledged_frames(const std::filesystem::path& wal, Sum salts) {
  std::string index = wal;
  index.replace(index.size() - 3, 3, "shm");
  std::ifstream stream(index, std::ios::binary);
  std::array<IndexHeader, 2> headers{};
  if (!stream.read(reinterpret_cast<char*>(headers.data()), sizeof headers) || headers[0] != headers[1]) {
    return 0;
  }
  std::array<unsigned char, sizeof(IndexHeader)> bytes{};
  std::memcpy(bytes.data(), headers.data(), bytes.size());
  constexpr bool kIsBigEndian = std::endian::native == std::endian::big;
  const Sum sum = sum_of(std::span(bytes).first(bytes.size() - sizeof headers[0].sum), kIsBigEndian, {});
  const bool is_good = headers[0].version == kVersion && sum == Sum{headers[0].sum[0], headers[0].sum[1]} &&
                       sum_at(headers[0].salts, 0) == salts;
  return is_good ? headers[0].frames : 0;
}

// Goes through the file once.
class Examination {
 public:
  explicit Examination(const std::filesystem::path& wal) : stream_(wal, std::ios::binary) {
    if (read(header_.bytes)) {
      is_readable_ = has_good_header_ = header_.is_good() || find_header();
      acknowledged_ = acknowledged_frames(wal, header_.salts());
      examine_frames();
    }
  }

  const WalDamage& damage() const { return damage_; }

 private:
  bool read(Bytes bytes) {
    return static_cast<bool>(
        stream_.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size())));
  }

  void turn_back(Bytes bytes, std::size_t bit, std::uint64_t offset) {
    flip(bytes, bit);
    untold_.push_back({.offset = offset + bit / 8, .byte = static_cast<char>(bytes[bit / 8])});
  }

  Frame first_frame() const {
    constexpr std::size_t kUsualPage = 4096;
    const std::size_t page = header_.has_page() ? header_.page() : kUsualPage;
    return {.bytes = std::vector<unsigned char>(kFrameHeader + page), .sum_before = header_.sum()};
  }

  // Of the headers that are a bit apart from a bad one, that which the first frame follows.
  bool find_header() {
    const Header bad = header_;
    for (const auto& [bit, other] : bad.flipped()) {
      header_ = other;
      has_good_header_ = true;
      auto frame = first_frame();
      const bool fits = read(frame.bytes) && follows(frame);
      stream_.clear();
      stream_.seekg(kHeader);
      if (fits) {
        header_ = bad;
        turn_back(header_.bytes, bit, 0);
        return true;
      }
    }
    header_ = bad;
    return false;
  }

  void examine_frames() {
    auto frame = first_frame();
    for (std::uint64_t offset = kHeader; read(frame.bytes); offset += frame.bytes.size()) {
      examine(frame, offset);
      frame.sum_before = frame.sum();
      salts_before_ = frame.salts();
    }
    end_run();
  }

  // Where the header does not tell the salts, the frame before does.
  bool follows(const Frame& frame) const {
    return frame.salts() == (has_good_header_ ? header_.salts() : salts_before_) &&
           frame.computed(header_.is_big_endian()) == frame.sum();
  }

  void examine(Frame& frame, std::uint64_t offset) {
    bool is_right = follows(frame);
    if (is_readable_ && !is_right) {
      const auto bits = frame.flipped(header_.is_big_endian(), header_.salts());
      is_readable_ = is_right = bits.size() == 1;
      is_certain_ = offset < kHeader + acknowledged_ * frame.bytes.size();
      if (is_readable_) {
        turn_back(frame.bytes, bits[0], offset);
      } else if (is_certain_) {
        ++damage_.lost;  // its own
      }
    }
    if (!is_right) {
      end_run();
    } else if (frame.commits()) {
      is_readable_ ? pass_commit() : static_cast<void>(++run_);
    }
  }

  // That what is left of a transaction which a crash has cut off is one bit apart from the whole can be chance, and the
  // bit another one. A second commit behind it shows that it was no crash.
  void pass_commit() {
    hidden_ += untold_.empty() ? 0 : 1;
    if (hidden_ > 1 || is_certain_) {
      damage_.mends.insert(damage_.mends.end(), untold_.begin(), untold_.end());
      untold_.clear();
      is_certain_ = false;
    }
    if (untold_.empty()) {
      damage_.hidden += damage_.mends.empty() ? 0 : std::max<std::size_t>(hidden_, 1);
      hidden_ = 0;
    }
  }

  // Frames that follow each other with one commit among them may be left of a transaction that a crash has cut off, the
  // end of which has arrived and the beginning not.
  void end_run() {
    damage_.lost += run_ > 1 ? run_ : 0;
    run_ = 0;
  }

  std::ifstream stream_;
  Header header_;
  WalDamage damage_;
  std::vector<WalDamage::Mend> untold_;
  bool is_readable_ = false;  // up to here
  bool has_good_header_ = false;
  bool is_certain_ = false;       // that the latest wrong frame was acknowledged
  std::size_t acknowledged_ = 0;  // frames
  std::size_t hidden_ = 0;        // commits since the first bit that is not told
  Sum salts_before_;
  std::size_t run_ = 0;  // commits among the latest frames behind the damage that follow each other
};

}  // namespace

// A writer that goes on at the same time looks like damage once, not twice in the same log.
WalDamage find_damage(const std::filesystem::path& wal) {
  constexpr int kLooks = 3;
  WalDamage damage;
  for (int look = 0; look < kLooks; ++look) {
    damage = Examination(wal).damage();
    if (damage.mends.empty() && damage.lost == 0) {
      break;
    }
  }
  return damage;
}

bool mend(const std::filesystem::path& wal, const WalDamage& damage) {
  const int fd = open(wal.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
  if (fd < 0) {
    return false;
  }
  const bool done = std::ranges::all_of(damage.mends,
                                        [fd](const WalDamage::Mend& one) {
                                          return pwrite(fd, &one.byte, 1, static_cast<off_t>(one.offset)) == 1;
                                        }) &&
                    fdatasync(fd) == 0;
  close(fd);
  return done;
}

}  // namespace refhost
