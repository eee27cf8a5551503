#pragma once

#include <optional>
#include <vector>

#include "Kiv/NboAttrLogMount.h"

/// Recordings: files with the attribute log of a hub's roots, with times. `docs/recording.md` has
/// the grammar and worked bytes.
namespace Kiv::NboAttrLog {

/// A moment by the clocks of the recording program, in nanoseconds.
struct Moment {
   /// A monotonic clock, for the time between two moments.
   U64 steady = 0;
   /// The time of day, since 1970; the clock may be set.
   U64 wall = 0;

   bool operator==(Moment const&) const = default;
};

/// CRC-32C (Castagnoli) of bytes; `before` is the CRC of the bytes that precede them.
U32 crc32c(U8 const* bytes, std::size_t size, U32 before = 0) noexcept;
/// The same on a processor without an instruction for it.
U32 crc32cByTables(U8 const* bytes, std::size_t size, U32 before = 0) noexcept;

enum class FrameKind : U8 {
   /// Zeros up to the end of the block.
   padding = 0,
   /// A new stream begins: U32 count, then type and name of each root.
   snapshot = 1,
   /// Complete messages of the stream.
   log = 2,
   /// The recorded roots lost their source; the state stands still.
   lost = 3,
   /// The source is back.
   back = 4,
   /// The recorder was closed.
   end = 5,
};

inline constexpr char recordingMagic[9] = "KivNboRc";
inline constexpr U32 recordingVersion = 2;
/// Magic, version, block size, block, file, snapshot, two times, checksum.
inline constexpr std::size_t blockHeaderSize = 8 + 4 + 4 + 5 * 8 + 4;
/// Size, checksum, kind, two times.
inline constexpr std::size_t frameHeaderSize = 4 + 4 + 1 + 8 + 8;
inline constexpr U32 smallestBlock = 512;
inline constexpr U32 largestBlock = U32(1) << 26;

/// The header of each block. It lets a reader find its way in a file that was cut or is still being
/// written.
struct BlockHeader {
   U32 blockSize = 0;
   /// The number of the block in its file, from 0.
   U64 block = 0;
   /// The number of the file among the recorder's files, from 1.
   U64 file = 0;
   /// Offset of the last snapshot that was complete when the block began; 0 if there is none.
   U64 snapshot = 0;
   Moment begun;
};

/// Writes `blockHeaderSize` bytes.
void writeBlockHeader(U8* to, BlockHeader const& header) noexcept;
/// Nothing if the bytes are not the header of a block, or damaged.
std::optional<BlockHeader> readBlockHeader(U8 const* at) noexcept;
/// Writes `frameHeaderSize` bytes before a body that has been written already.
void writeFrameHeader(U8* to, FrameKind kind, Moment at, std::size_t bodySize) noexcept;

/// Where the bytes of a recording come from.
class RecordingSource {
public:
   virtual ~RecordingSource() = default;
   virtual U64 size() = 0;
   /// Reads `size` bytes from `offset` on. Returns fewer only at the end, or if reading fails.
   virtual std::size_t readAt(U64 offset, U8* to, std::size_t size) = 0;
};

/// Reads a recording frame by frame, up to its end or the first damage. Needs memory for one frame,
/// or for 256 KiB if that is more.
///
///     RecordingReader reader(source);
///     for (RecordingReader::Frame frame; reader.next(frame);) { player.apply(frame); }
///     if (reader.damaged()) { ... reader.damage(), reader.offset() ... }
class RecordingReader {
public:
   struct Frame {
      FrameKind kind = FrameKind::padding;
      Moment at;
      /// The offset of the frame in the file.
      U64 offset = 0;
      /// Valid until the next call.
      U8 const* body = nullptr;
      std::size_t size = 0;
   };

   explicit RecordingReader(RecordingSource& source);

   /// The header of the first block; nothing if the file does not begin with one.
   std::optional<BlockHeader> const& header() const noexcept { return header_; }
   /// Reads the next frame that is not padding. False at the end and at damage.
   bool next(Frame& frame);
   /// Whether the reader has found damage.
   bool damaged() const noexcept { return !damage_.empty(); }
   /// What is wrong there.
   Sarn::String const& damage() const noexcept { return damage_; }
   /// The current offset; if there is damage, where it begins.
   U64 offset() const noexcept { return offset_; }
   /// Whether the reader has reached the recorder's end frame. Without one, the file may still be
   /// growing.
   bool ended() const noexcept { return ended_; }

   /// Goes to the snapshot from which the state at a time of day is reached. Returns an offset: the
   /// first frame at or after it that is later than `wall` ends that state. Returns nothing if the
   /// recording begins later. Reads one header per block, backwards: O(blocks). If there is no
   /// complete snapshot at the offset that the block's header names, that is damage, and `next`
   /// returns false.
   std::optional<U64> seek(U64 wall);
   /// Goes back to the beginning.
   void rewind();

private:
   /// `size` bytes at `offset`, or null if there are fewer.
   U8 const* fetch(U64 offset, std::size_t size);
   bool stop(Sarn::String damage);
   bool enterBlock();
   /// Reads the frame at `offset_`, even padding, and advances past it.
   bool readFrame(Frame& frame);
   void seekSnapshot(U64 block, U64 snapshot);

   RecordingSource& source_;
   std::optional<BlockHeader> header_;
   U64 offset_ = 0;
   /// Where reading began, and the snapshots found since.
   U64 from_ = 0;
   std::vector<U64> snapshots_;
   std::vector<U8> window_;
   U64 windowAt_ = 0;
   Sarn::String damage_;
   bool ended_ = false;
};

/// The roots that a snapshot frame names. Throws `FaultException`.
std::vector<OfferedRoot> snapshotRoots(RecordingReader::Frame const& frame);

/// A file on disk as a source.
class RecordingFile final : public RecordingSource {
public:
   /// Throws `Exception` if it cannot be opened.
   explicit RecordingFile(Sarn::String const& path);
   ~RecordingFile() override;
   RecordingFile(RecordingFile const&) = delete;
   RecordingFile& operator=(RecordingFile const&) = delete;

   U64 size() override;
   std::size_t readAt(U64 offset, U8* to, std::size_t size) override;

private:
   int fd_;
};

}  // namespace Kiv::NboAttrLog
