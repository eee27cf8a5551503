#pragma once

#include <memory>

#include "Kiv/NboAttrLogSession.h"
#include "Kiv/Record/Recording.h"

namespace Kiv::NboAttrLog {

/// Where a recorder writes: one file after another.
class RecordSink {
public:
   virtual ~RecordSink() = default;
   /// Ends the current file, if there is one, and begins the next. Returns its number, from 1, or 0
   /// on failure.
   virtual U64 begin() = 0;
   /// Appends to the file. False on failure: the recording ends there.
   virtual bool write(U8 const* bytes, std::size_t size) = 0;
   /// Why the last call failed.
   virtual Sarn::String reason() const = 0;
};

struct RecorderOptions {
   /// The size of a block in bytes; must hold the longest message. A reader needs this much memory,
   /// or 256 KiB if that is more.
   U32 blockSize = U32(1) << 20;
   /// The most bytes in a file; the next file then begins with a snapshot. 0: unbounded. Otherwise
   /// at least `Recorder::smallestFile`.
   U64 fileSize = 0;
   /// Another snapshot follows after this many bytes, and at least four times the size of the last
   /// one, so that a reader finds any moment without reading everything before it.
   U64 snapshotEvery = U64(1) << 26;
};

struct RecorderStats {
   /// Changes recorded, without those of snapshots.
   U64 changes = 0;
   U64 bytes = 0;
   U64 snapshots = 0;
   U64 files = 0;
   /// Changes missing from the recording because a later one of the same attribute or key was made
   /// before `turn` was called.
   U64 changesCoalesced = 0;
};

/// Records the roots of a hub: a peer that mirrors them and writes the bytes that it is sent, with
/// times, into files. With a bound for the files it is a flight recorder, which keeps the latest
/// history.
///
///     Kiv::NboAttrLog::RecordFiles files("/var/log/ptp/flight", 8);
///     Kiv::NboAttrLog::Recorder recorder(hub, files, {.fileSize = 64 << 20});
///     ... at the end of each turn of the loop:
///     recorder.turn({steadyNanoseconds(), wallNanoseconds()});
///
/// It needs the memory of a connection: a buffer and, when that is full, a flag per attribute. It
/// never waits, has no clock, and prints nothing. If a write fails, or memory runs out, only the
/// recording ends, with a `reason()`.
///
/// REQUIRES: destroyed before the hub and the sink.
class Recorder {
public:
   /// Records the roots that the hub offers at the first `turn`. Throws `Exception` if the options
   /// are inconsistent.
   Recorder(Hub& hub, RecordSink& sink, RecorderOptions const& options = {});
   /// Loses what has not been written; see `close`.
   ~Recorder();
   Recorder(Recorder const&) = delete;
   Recorder& operator=(Recorder const&) = delete;

   /// The smallest `fileSize` for a hub with these limits and blocks of this size.
   static U64 smallestFile(Limits const& limits, U32 blockSize) noexcept;

   /// Writes what has changed since the last turn, with the time `now`: at most `turnBytes`, or
   /// what a connection's buffer holds. `now.steady` must not go back. Must not be called from
   /// inside an observer.
   void turn(Moment now);
   /// Whether more is pending, which the next `turn` can write at once.
   bool waiting() const noexcept { return session_ != nullptr && session_->output().size != 0; }
   /// Whether the current file has a complete snapshot.
   bool complete() const noexcept { return snapshotIsComplete_ || snapshotOffset_ != 0; }

   /// Begins another snapshot with the next turn; it includes roots that were offered meanwhile.
   void snapshotIs() noexcept { snapshotAsked_ = true; }
   /// Notes that the source of what is recorded is lost, or is back.
   void sourceIs(bool there, Moment now);
   /// Writes everything that is pending, and the end.
   void close(Moment now);

   /// Whether the recording ended before `close`, for `reason()`.
   bool failed() const noexcept { return !reason_.empty(); }
   Sarn::String const& reason() const noexcept { return reason_; }
   RecorderStats const& stats() const noexcept { return stats_; }

   static constexpr std::size_t turnBytes = std::size_t(1) << 20;

private:
   void fail(Sarn::String const& reason) noexcept;
   /// Runs a part of the work; if there is no memory for it, the recording ends.
   template <class Work>
   void work(Work&& doIt);
   void writeTurn(Moment now);
   bool beginFile();
   bool beginSnapshot(Moment now);
   bool snapshotIsDue() const noexcept;
   bool fileIsFull() const noexcept;
   /// Writes pending messages, up to a buffer's size.
   bool drain(Moment now);
   /// The size of the complete messages at the beginning of `bytes` that fit into `room` bytes;
   /// counts them.
   std::size_t wholeMessages(U8 const* bytes, std::size_t size, std::size_t room);
   /// Writes a frame with the body that the buffer holds after the space for the frame's header.
   bool writeFrame(FrameKind kind, std::size_t bodySize, Moment now);
   /// The space for a body in this block; if that is less than `atLeast`, begins the next block
   /// first.
   std::size_t room(std::size_t atLeast, Moment now);
   bool writeOut(U8 const* bytes, std::size_t size);

   Hub& hub_;
   RecordSink& sink_;
   RecorderOptions options_;
   std::unique_ptr<Session> session_;
   std::vector<U8> frame_;
   Sarn::String reason_;
   RecorderStats stats_;
   U64 file_ = 0;
   U64 offset_ = 0;
   /// Where the snapshot in progress, or the last one, begins.
   U64 newSnapshot_ = 0;
   /// Where the last complete snapshot begins; 0 if there is none in this file.
   U64 snapshotOffset_ = 0;
   U64 snapshotBytes_ = 0;
   U32 rootsLeft_ = 0;
   U64 coalescedBefore_ = 0;
   bool snapshotIsComplete_ = false;
   bool snapshotAsked_ = true;
   bool closed_ = false;
};

/// Files on disk: one, or a ring whose oldest file is removed. A file is locked (`flock`) while it
/// is written. One that another process, or another `RecordFiles`, is writing is refused.
class RecordFiles final : public RecordSink {
public:
   /// What happens to an existing file.
   enum class Existing : U8 { refuse, replace };

   /// One file.
   explicit RecordFiles(Sarn::String path, Existing existing = Existing::refuse);
   /// A ring of `count` files named `path` and a number of six digits or more: "flight.000001". It
   /// continues after the existing files of that name and keeps the newest of them. REQUIRES: count
   /// >= 2.
   RecordFiles(Sarn::String path, U32 count);
   ~RecordFiles() override;
   RecordFiles(RecordFiles const&) = delete;
   RecordFiles& operator=(RecordFiles const&) = delete;

   U64 begin() override;
   bool write(U8 const* bytes, std::size_t size) override;
   Sarn::String reason() const override { return reason_; }

   /// The file being written.
   Sarn::String const& current() const noexcept { return current_; }

private:
   bool fail(Sarn::String const& what);
   bool ringIsFree();
   int open();
   void removeOld() noexcept;

   Sarn::String path_;
   Sarn::String current_;
   Sarn::String reason_;
   U32 count_ = 0;
   U64 number_ = 0;
   Existing existing_ = Existing::refuse;
   int fd_ = -1;
};

/// The existing files of a ring, oldest first; or only `path`, if that exists.
std::vector<Sarn::String> recordingFiles(Sarn::String const& path);

}  // namespace Kiv::NboAttrLog
