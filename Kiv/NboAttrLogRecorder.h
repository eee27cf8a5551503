#pragma once

#include <memory>

#include "Kiv/NboAttrLogSession.h"
#include "Kiv/Record/Recording.h"

namespace Kiv::NboAttrLog {

/// Where a recorder writes: one file after the other.
class RecordSink {
public:
   virtual ~RecordSink() = default;
   /// Ends the file, if there is one, and begins the next. Its number, from 1; 0 if it cannot be.
   virtual U64 begin() = 0;
   /// Appends to the file. False if it cannot be: the recording ends there.
   virtual bool write(U8 const* bytes, std::size_t size) = 0;
   /// Why it cannot be.
   virtual Sarn::String reason() const = 0;
};

struct RecorderOptions {
   /// A reader needs so much memory at most. Must hold the longest message.
   U32 blockSize = U32(1) << 20;
   /// The most that a file may have; the next one then begins with all that there is. 0: no bound.
   /// At least `Recorder::smallestFile`.
   U64 fileSize = 0;
   /// After so many bytes, and four times the size of the last snapshot, comes another, so that a
   /// reader finds any moment without reading all before it.
   U64 snapshotEvery = U64(1) << 26;
};

struct RecorderStats {
   /// Changes that were recorded, those of snapshots left out.
   U64 changes = 0;
   U64 bytes = 0;
   U64 snapshots = 0;
   U64 files = 0;
   /// Changes that are not in the recording, since a later one of the same attribute or key came
   /// before `turn` was called.
   U64 changesCoalesced = 0;
};

/// Records the roots of a hub: a peer that mirrors them and writes what it is told, with the time,
/// into files. With a bound for the files it is a flight recorder, which keeps what happened last.
///
///     Kiv::NboAttrLog::RecordFiles files("/var/log/ptp/flight", 8);
///     Kiv::NboAttrLog::Recorder recorder(hub, files, {.fileSize = 64 << 20});
///     ... at the end of each turn of the loop:
///     recorder.turn({steadyNanoseconds(), wallNanoseconds()});
///
/// Its memory is that of a connection: a buffer, and a flag an attribute when that is full. It
/// never waits, has no clock, and prints nothing. What cannot be written, or want of memory, ends
/// the recording, and nothing else; `failed()` tells.
///
/// REQUIRES: destroyed before the hub and the sink.
class Recorder {
public:
   /// Records the roots that the hub offers at the first `turn`. Throws `Exception` if the options
   /// do not go together.
   Recorder(Hub& hub, RecordSink& sink, RecorderOptions const& options = {});
   /// What has not been written by then is lost; see `close`.
   ~Recorder();
   Recorder(Recorder const&) = delete;
   Recorder& operator=(Recorder const&) = delete;

   /// The least `fileSize` for a hub with these limits and blocks of this size.
   static U64 smallestFile(Limits const& limits, U32 blockSize) noexcept;

   /// Writes what has changed since the last turn, as of now: `turnBytes`, or what a connection's
   /// buffer holds, at most. Times of `now.steady` must not go back. Not to be called from inside
   /// an observer.
   void turn(Moment now);
   /// Whether there is more to be written at once, with the next `turn`.
   bool waiting() const noexcept { return session_ != nullptr && session_->output().size != 0; }
   /// Whether the file that is written now has a whole snapshot.
   bool complete() const noexcept { return snapshotIsComplete_ || snapshotOffset_ != 0; }

   /// Begins another snapshot with the next turn: roots that were offered meanwhile come in.
   void snapshotIs() noexcept { snapshotAsked_ = true; }
   /// Notes that the source of what is recorded is lost, or is back.
   void sourceIs(bool there, Moment now);
   /// Writes all that there is, and the end.
   void close(Moment now);

   /// Whether the recording has ended before `close`, for `reason()`.
   bool failed() const noexcept { return !reason_.empty(); }
   Sarn::String const& reason() const noexcept { return reason_; }
   RecorderStats const& stats() const noexcept { return stats_; }

   static constexpr std::size_t turnBytes = std::size_t(1) << 20;

private:
   void fail(Sarn::String const& reason) noexcept;
   /// Does a part of the work; without memory for it the recording ends.
   template <class Work>
   void work(Work&& doIt);
   void writeTurn(Moment now);
   bool beginFile();
   bool beginSnapshot(Moment now);
   bool snapshotIsDue() const noexcept;
   bool fileIsFull() const noexcept;
   /// Writes waiting messages, as much as a buffer holds.
   bool drain(Moment now);
   /// The whole messages at the beginning of `size` bytes that `room` bytes hold; counts them.
   std::size_t wholeMessages(U8 const* bytes, std::size_t size, std::size_t room);
   /// Writes a frame with what stands in the buffer behind the room for its header.
   bool writeFrame(FrameKind kind, std::size_t bodySize, Moment now);
   /// Room for a body in this block, after going to the next if there is none for so much.
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
   /// Where the snapshot begins that is written now, or was last.
   U64 newSnapshot_ = 0;
   /// Where the last complete one begins; 0 if there is none in this file.
   U64 snapshotOffset_ = 0;
   U64 snapshotBytes_ = 0;
   U32 rootsLeft_ = 0;
   U64 coalescedBefore_ = 0;
   bool snapshotIsComplete_ = false;
   bool snapshotAsked_ = true;
   bool closed_ = false;
};

/// Files on disk: one, or a ring of which the oldest is removed. A file is locked (`flock`) while
/// it is written: one that another process, or another `RecordFiles`, writes is refused.
class RecordFiles final : public RecordSink {
public:
   /// What becomes of a file that is there.
   enum class Existing : U8 { refuse, replace };

   /// One file.
   explicit RecordFiles(Sarn::String path, Existing existing = Existing::refuse);
   /// A ring of `count` files, `path` and a number of six digits or more: "flight.000001". It goes
   /// on behind the files of that name that are there, of which it keeps the newest. REQUIRES:
   /// count >= 2.
   RecordFiles(Sarn::String path, U32 count);
   ~RecordFiles() override;
   RecordFiles(RecordFiles const&) = delete;
   RecordFiles& operator=(RecordFiles const&) = delete;

   U64 begin() override;
   bool write(U8 const* bytes, std::size_t size) override;
   Sarn::String reason() const override { return reason_; }

   /// The file that is written now.
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

/// The files of a ring that are there, oldest first; or `path` alone, if it is a file.
std::vector<Sarn::String> recordingFiles(Sarn::String const& path);

}  // namespace Kiv::NboAttrLog
