#include "Kiv/Record/Recording.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef __x86_64__
#   include <cpuid.h>
#endif

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "Kiv/Log/Wire.h"
#include "Kiv/Printable.h"

namespace Kiv::NboAttrLog {
namespace {

/// `crcTables[k][b]`: the effect of byte b on the checksum if k more bytes follow it, so that one
/// step handles eight bytes.
constexpr std::array<std::array<U32, 256>, 8> makeCrcTables() {
   std::array<std::array<U32, 256>, 8> tables{};
   for (U32 b = 0; b != 256; ++b) {
      U32 crc = b;
      for (int bit = 0; bit != 8; ++bit) {
         crc = (crc & 1) != 0 ? crc >> 1 ^ 0x82f63b78U : crc >> 1;
      }
      tables[0][b] = crc;
   }
   for (U32 b = 0; b != 256; ++b) {
      for (std::size_t k = 1; k != 8; ++k) {
         U32 const before = tables[k - 1][b];
         tables[k][b] = before >> 8 ^ tables[0][before & 0xff];
      }
   }
   return tables;
}

constexpr std::array<std::array<U32, 256>, 8> crcTables = makeCrcTables();

#ifdef __x86_64__
/// With the processor's own instruction, which has this polynomial.
[[gnu::target("sse4.2")]] U32 crcByInstruction(U8 const* bytes, std::size_t size,
                                               U32 crc) noexcept {
   U64 wide = crc;
   for (; size >= 8; size -= 8, bytes += 8) {
      U64 next;
      std::memcpy(&next, bytes, 8);
      wide = __builtin_ia32_crc32di(wide, next);
   }
   crc = static_cast<U32>(wide);
   for (; size != 0; --size, ++bytes) {
      crc = __builtin_ia32_crc32qi(crc, *bytes);
   }
   return crc;
}

/// Asked when it is first needed: __builtin_cpu_supports would have every load ask.
bool hasCrcInstruction() noexcept {
   static bool const has = [] {
      unsigned a = 0;
      unsigned b = 0;
      unsigned c = 0;
      unsigned d = 0;
      return __get_cpuid(1, &a, &b, &c, &d) != 0 && (c & bit_SSE4_2) != 0;
   }();
   return has;
}
#endif

/// The bytes read at once, unless a frame is longer.
constexpr std::size_t windowSize = std::size_t(1) << 18;

Sarn::String noSnapshot(U64 offset) {
   return "the header of a block has the last snapshot at byte " + std::to_string(offset) +
          ", where none begins";
}

bool blockSizeIsValid(U32 size) {
   return size >= smallestBlock && size <= largestBlock;
}

}  // namespace

U32 crc32c(U8 const* bytes, std::size_t size, U32 before) noexcept {
#ifdef __x86_64__
   if (hasCrcInstruction()) {
      return ~crcByInstruction(bytes, size, ~before);
   }
#endif
   return crc32cByTables(bytes, size, before);
}

U32 crc32cByTables(U8 const* bytes, std::size_t size, U32 before) noexcept {
   U32 crc = ~before;
   for (; size >= 8; size -= 8, bytes += 8) {
      U32 const low =
            crc ^ (bytes[0] | U32(bytes[1]) << 8 | U32(bytes[2]) << 16 | U32(bytes[3]) << 24);
      crc = crcTables[7][low & 0xff] ^ crcTables[6][low >> 8 & 0xff] ^
            crcTables[5][low >> 16 & 0xff] ^ crcTables[4][low >> 24] ^ crcTables[3][bytes[4]] ^
            crcTables[2][bytes[5]] ^ crcTables[1][bytes[6]] ^ crcTables[0][bytes[7]];
   }
   for (; size != 0; --size, ++bytes) {
      crc = crc >> 8 ^ crcTables[0][(crc ^ *bytes) & 0xff];
   }
   return ~crc;
}

void writeBlockHeader(U8* to, BlockHeader const& header) noexcept {
   Out out(to, blockHeaderSize);
   out.writeBytes(recordingMagic, 8);
   out.writeU32(recordingVersion);
   out.writeU32(header.blockSize);
   out.writeU64(header.block);
   out.writeU64(header.file);
   out.writeU64(header.snapshot);
   out.writeU64(header.begun.steady);
   out.writeU64(header.begun.wall);
   out.writeU32(crc32c(to, blockHeaderSize - 4));
}

std::optional<BlockHeader> readBlockHeader(U8 const* at) noexcept {
   In in(at, at + blockHeaderSize);
   bool const magic = std::memcmp(in.nextBytes(8), recordingMagic, 8) == 0;
   bool const version = in.nextU32() == recordingVersion;
   BlockHeader header;
   header.blockSize = in.nextU32();
   header.block = in.nextU64();
   header.file = in.nextU64();
   header.snapshot = in.nextU64();
   header.begun.steady = in.nextU64();
   header.begun.wall = in.nextU64();
   bool const whole = in.nextU32() == crc32c(at, blockHeaderSize - 4);
   bool const valid = magic && version && whole && blockSizeIsValid(header.blockSize);
   return valid ? std::optional<BlockHeader>(header) : std::nullopt;
}

void writeFrameHeader(U8* to, FrameKind kind, Moment at, std::size_t bodySize) noexcept {
   Out out(to, frameHeaderSize);
   out.writeU32(static_cast<U32>(bodySize));
   out.writeU32(0);
   out.writeU8(static_cast<U8>(kind));
   out.writeU64(at.steady);
   out.writeU64(at.wall);
   U32 const checksum = crc32c(to + 8, frameHeaderSize - 8 + bodySize);
   Out(to + 4, 4).writeU32(checksum);
}

RecordingReader::RecordingReader(RecordingSource& source) : source_(source) {
   if (U8 const* const at = fetch(0, blockHeaderSize)) {
      header_ = readBlockHeader(at);
   }
   if (header_ && header_->block != 0) {
      header_.reset();
   }
   rewind();
}

void RecordingReader::rewind() {
   offset_ = from_ = 0;
   snapshots_.clear();
   ended_ = false;
   damage_.clear();
   if (!header_) {
      damage_ = "it does not begin as a recording of version " + std::to_string(recordingVersion);
   }
}

U8 const* RecordingReader::fetch(U64 offset, std::size_t size) {
   U64 const windowEnd = windowAt_ + window_.size();
   if (offset < windowAt_ || offset > windowEnd || windowEnd - offset < size) {
      // A damaged length must neither be read nor allocated.
      U64 const all = source_.size();
      if (offset > all || all - offset < size) {
         return nullptr;
      }
      window_.resize(
            static_cast<std::size_t>(std::min<U64>(std::max<U64>(size, windowSize), all - offset)));
      window_.resize(source_.readAt(offset, window_.data(), window_.size()));
      windowAt_ = offset;
      if (window_.size() < size) {
         return nullptr;
      }
   }
   return window_.data() + (offset - windowAt_);
}

bool RecordingReader::stop(Sarn::String damage) {
   damage_ = std::move(damage);
   return false;
}

/// Checks the header of the block that begins here. False at the end and at damage.
bool RecordingReader::enterBlock() {
   if (offset_ == source_.size() && offset_ != 0) {
      return false;
   }
   U8 const* const at = fetch(offset_, blockHeaderSize);
   if (at == nullptr) {
      return stop("it ends within the header of a block");
   }
   std::optional<BlockHeader> const header = readBlockHeader(at);
   if (!header || header->blockSize != header_->blockSize) {
      return stop("the header of a block is damaged");
   }
   if (header->file != header_->file) {
      return stop("a block of file " + std::to_string(header->file) + " stands in file " +
                  std::to_string(header_->file));
   }
   U64 const place = offset_ / header_->blockSize;
   if (header->block != place) {
      return stop("block " + std::to_string(header->block) + " stands in the place of block " +
                  std::to_string(place));
   }
   bool const begins = header->snapshot < from_ ||
                       std::binary_search(snapshots_.begin(), snapshots_.end(), header->snapshot);
   if (header->snapshot != 0 && !begins) {
      return stop(noSnapshot(header->snapshot));
   }
   offset_ += blockHeaderSize;
   return true;
}

bool RecordingReader::readFrame(Frame& frame) {
   U64 const left = header_->blockSize - offset_ % header_->blockSize;
   U8 const* at = fetch(offset_, frameHeaderSize);
   if (at == nullptr) {
      return offset_ >= source_.size() ? false : stop("it ends within the header of a frame");
   }
   In in(at, at + frameHeaderSize);
   std::size_t const size = in.nextU32();
   U32 const checksum = in.nextU32();
   if (size > left - frameHeaderSize) {
      return stop("a frame of " + std::to_string(size) + " bytes exceeds its block");
   }
   at = fetch(offset_, frameHeaderSize + size);
   if (at == nullptr) {
      return stop("it ends within a frame");
   }
   if (crc32c(at + 8, frameHeaderSize - 8 + size) != checksum) {
      return stop(std::all_of(at, at + frameHeaderSize, [](U8 byte) { return byte == 0; })
                        ? "there are zeros where a frame should begin"
                        : "the checksum of a frame does not fit");
   }
   In rest(at + 8, at + frameHeaderSize);
   U8 const kind = rest.nextU8();
   if (kind > static_cast<U8>(FrameKind::end)) {
      return stop("there is no frame of kind " + std::to_string(kind));
   }
   frame.kind = static_cast<FrameKind>(kind);
   frame.at.steady = rest.nextU64();
   frame.at.wall = rest.nextU64();
   frame.offset = offset_;
   frame.body = at + frameHeaderSize;
   frame.size = size;
   if (frame.kind == FrameKind::padding && size != left - frameHeaderSize) {
      return stop("padding ends before its block");
   }
   offset_ += frameHeaderSize + size;
   ended_ = frame.kind == FrameKind::end;
   return true;
}

bool RecordingReader::next(Frame& frame) {
   while (!damaged() && !ended_) {
      U64 const blockSize = header_->blockSize;
      if (offset_ % blockSize == 0 && !enterBlock()) {
         return false;
      }
      U64 const left = blockSize - offset_ % blockSize;
      if (left < frameHeaderSize) {  // too short for a frame: only zeros
         offset_ = std::min(offset_ + left, source_.size());
         if (offset_ % blockSize != 0) {
            return false;
         }
         continue;
      }
      if (!readFrame(frame)) {
         return false;
      }
      if (frame.kind == FrameKind::snapshot) {
         snapshots_.push_back(frame.offset);
      }
      if (frame.kind != FrameKind::padding) {
         return true;
      }
   }
   return false;
}

std::optional<U64> RecordingReader::seek(U64 wall) {
   rewind();
   if (!header_ || source_.size() == 0) {
      return std::nullopt;
   }
   U64 const blockSize = header_->blockSize;
   std::array<U8, blockHeaderSize> bytes;
   for (U64 block = (source_.size() - 1) / blockSize + 1; block-- != 0;) {
      U64 const begin = block * blockSize;
      if (source_.readAt(begin, bytes.data(), bytes.size()) != bytes.size()) {
         continue;  // the header of this block was cut
      }
      std::optional<BlockHeader> const at = readBlockHeader(bytes.data());
      bool const usable =
            at && at->blockSize == blockSize && at->block == block && at->file == header_->file;
      if (usable && at->begun.wall <= wall) {
         seekSnapshot(begin, at->snapshot);
         return begin;
      }
   }
   return std::nullopt;
}

/// Goes to the snapshot that the header of the block at `block` names.
void RecordingReader::seekSnapshot(U64 block, U64 snapshot) {
   if (snapshot == 0) {
      return;  // none was complete then: read from the beginning of the file
   }
   bool const frames = snapshot < block && snapshot % header_->blockSize >= blockHeaderSize &&
                       header_->blockSize - snapshot % header_->blockSize >= frameHeaderSize;
   offset_ = snapshot;
   Frame frame;
   bool const found = frames && readFrame(frame) && frame.kind == FrameKind::snapshot;
   offset_ = from_ = found ? snapshot : block;
   ended_ = false;
   if (!found) {
      damage_ = noSnapshot(snapshot);
   }
}

std::vector<OfferedRoot> snapshotRoots(RecordingReader::Frame const& frame) {
   In in(frame.body, frame.body + frame.size);
   std::vector<OfferedRoot> roots;
   for (U32 left = in.nextU32(); left != 0; --left) {
      OfferedRoot root{Sarn::String(in.nextValidString(longestName)), {}};
      root.name = in.nextValidString(longestName);
      roots.push_back(std::move(root));
   }
   in.expectEnd();
   return roots;
}

RecordingFile::RecordingFile(Sarn::String const& path)
      : fd_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
   struct stat file {};
   if (fd_ < 0 || ::fstat(fd_, &file) < 0 || S_ISDIR(file.st_mode)) {
      int const error = fd_ < 0 ? errno : EISDIR;
      if (fd_ >= 0) {
         ::close(fd_);
      }
      throw Exception(printable(path) + ": " + std::generic_category().message(error));
   }
}

RecordingFile::~RecordingFile() {
   ::close(fd_);
}

U64 RecordingFile::size() {
   struct stat file {};
   return ::fstat(fd_, &file) == 0 ? static_cast<U64>(file.st_size) : 0;
}

std::size_t RecordingFile::readAt(U64 offset, U8* to, std::size_t size) {
   std::size_t done = 0;
   while (done != size) {
      ssize_t const count = ::pread(fd_, to + done, size - done, static_cast<off_t>(offset + done));
      if (count > 0) {
         done += static_cast<std::size_t>(count);
      } else if (count == 0 || errno != EINTR) {
         break;
      }
   }
   return done;
}

}  // namespace Kiv::NboAttrLog
