#include "Kiv/NboAttrLogRecorder.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "Kiv/Log/Closing.h"
#include "Kiv/Log/Wire.h"

namespace Kiv::NboAttrLog {
namespace {

/// The messages of a peer that has the session's own modules, as greeted in `hello`, and mounts all
/// roots, numbered from 1.
std::vector<U8> greeting(CircularBuffer::Piece hello, std::vector<NamedEntity*> const& roots) {
   std::size_t size = hello.size;
   auto const mountSize = [](NamedEntity const& root) {
      return 4 + 1 + 4 + std::string_view(root.kivType().name).size() + 4 +
             root.nameString().size();
   };
   for (NamedEntity const* const root : roots) {
      size += headerSize + mountSize(*root);
   }
   std::vector<U8> bytes(size);
   Out out(bytes.data(), bytes.size());
   out.writeBytes(hello.begin, hello.size);
   U32 mount = 0;
   for (NamedEntity const* const root : roots) {
      writeHeader(out, {Opcode::mount, static_cast<U32>(mountSize(*root)), 0, 0});
      out.writeU32(++mount);
      out.writeU8(static_cast<U8>(MountMode::reader));
      out.writeString(root->kivType().name);
      out.writeString(root->nameString());
   }
   return bytes;
}

/// Whether this message completes a change, which may be in parts.
bool endsChange(Header const& header, U8 const* body) {
   if (header.opcode != Opcode::part) {
      return isChange(header.opcode);
   }
   In in(body, body + header.bodySize);
   auto const opcode = static_cast<Opcode>(in.nextU8());
   U32 const total = in.nextU32();
   return isChange(opcode) && in.nextU32() + in.readableBytes() == total;
}

/// The most that two turns write: each at most a buffer's size, in blocks of which half may be
/// padding, and the beginning of a snapshot.
U64 reserveOf(Limits const& limits, U32 blockSize) noexcept {
   return 4 * U64(limits.outputBuffer) + 3 * U64(blockSize);
}

}  // namespace

Recorder::Recorder(Hub& hub, RecordSink& sink, RecorderOptions const& options)
      : hub_(hub), sink_(sink), options_(options) {
   std::size_t const overhead = blockHeaderSize + frameHeaderSize + headerSize;
   Limits const& limits = hub.limits();
   if (options.blockSize < smallestBlock || options.blockSize > largestBlock ||
       options.blockSize - overhead < limits.longestMessage) {
      throw Exception("blocks of " + std::to_string(options.blockSize) + " bytes: at least " +
                      std::to_string(limits.longestMessage + overhead) +
                      " are needed for the longest message, at most " +
                      std::to_string(largestBlock) + " are allowed");
   }
   if (options.fileSize != 0 && options.fileSize < smallestFile(limits, options.blockSize)) {
      throw Exception("files of " + std::to_string(options.fileSize) + " bytes: at least " +
                      std::to_string(smallestFile(limits, options.blockSize)) + " are needed");
   }
   frame_.resize(options.blockSize);
}

Recorder::~Recorder() = default;

U64 Recorder::smallestFile(Limits const& limits, U32 blockSize) noexcept {
   return 2 * reserveOf(limits, blockSize);
}

void Recorder::fail(Sarn::String const& reason) noexcept {
   if (reason_.empty()) {
      reason_ = copyOrOutOfMemory(reason);  // a copy, since it may belong to the session
      session_.reset();
   }
}

template <class Work>
void Recorder::work(Work&& doIt) {
   try {
      doIt();
   } catch (std::bad_alloc const&) {
      fail(outOfMemory());
   }
}

bool Recorder::writeOut(U8 const* bytes, std::size_t size) {
   if (!sink_.write(bytes, size)) {
      fail(sink_.reason());
      return false;
   }
   offset_ += size;
   stats_.bytes += size;
   return true;
}

bool Recorder::beginFile() {
   file_ = sink_.begin();
   if (file_ == 0) {
      fail(sink_.reason());
      return false;
   }
   ++stats_.files;
   offset_ = newSnapshot_ = snapshotOffset_ = 0;
   return true;
}

std::size_t Recorder::room(std::size_t atLeast, Moment now) {
   U64 const inBlock = offset_ % options_.blockSize;
   std::size_t left = inBlock == 0 ? 0 : static_cast<std::size_t>(options_.blockSize - inBlock);
   if (left >= frameHeaderSize + atLeast) {
      return left - frameHeaderSize;
   }
   // Padding has a header and a checksum, so that zeros that no recorder has written are damage.
   std::memset(frame_.data(), 0, left);
   if (left >= frameHeaderSize) {
      writeFrameHeader(frame_.data(), FrameKind::padding, now, left - frameHeaderSize);
   }
   if (left != 0 && !writeOut(frame_.data(), left)) {
      return 0;
   }
   std::array<U8, blockHeaderSize> header;
   writeBlockHeader(header.data(), {options_.blockSize, offset_ / options_.blockSize, file_,
                                    snapshotOffset_, now});
   if (!writeOut(header.data(), header.size())) {
      return 0;
   }
   return options_.blockSize - blockHeaderSize - frameHeaderSize;
}

bool Recorder::writeFrame(FrameKind kind, std::size_t bodySize, Moment now) {
   writeFrameHeader(frame_.data(), kind, now, bodySize);
   return writeOut(frame_.data(), frameHeaderSize + bodySize);
}

bool Recorder::beginSnapshot(Moment now) {
   if (session_ != nullptr) {
      stats_.changesCoalesced = coalescedBefore_ + session_->stats().changesCoalesced;
      coalescedBefore_ = stats_.changesCoalesced;
   }
   std::vector<NamedEntity*> const roots = hub_.roots();
   std::size_t size = 4;
   for (NamedEntity const* const root : roots) {
      size += 4 + std::string_view(root->kivType().name).size() + 4 + root->nameString().size();
   }
   if (size > options_.blockSize - blockHeaderSize - frameHeaderSize) {
      fail("the names of the roots do not fit a block of " + std::to_string(options_.blockSize) +
           " bytes");
      return false;
   }
   if (room(size, now) == 0) {
      return false;
   }
   newSnapshot_ = offset_;
   Out out(frame_.data() + frameHeaderSize, size);
   out.writeU32(static_cast<U32>(roots.size()));
   for (NamedEntity const* const root : roots) {
      out.writeString(root->kivType().name);
      out.writeString(root->nameString());
   }
   if (!writeFrame(FrameKind::snapshot, size, now)) {
      return false;
   }
   ++stats_.snapshots;
   rootsLeft_ = static_cast<U32>(roots.size());
   snapshotIsComplete_ = rootsLeft_ == 0;
   snapshotAsked_ = false;
   session_.reset();
   session_ = std::make_unique<Session>(hub_);
   session_->peerIs({static_cast<U32>(::getpid()), ::getuid(), ::getgid(), "recorder"});
   std::vector<U8> const bytes = greeting(session_->output(), roots);
   session_->received(bytes.data(), bytes.size());
   return true;
}

bool Recorder::snapshotIsDue() const noexcept {
   U64 const since = offset_ - newSnapshot_;
   return snapshotIsComplete_ && since > options_.snapshotEvery && since / 4 > snapshotBytes_;
}

/// Whether the file might be too small for the pending output and what may be added to it.
bool Recorder::fileIsFull() const noexcept {
   return options_.fileSize != 0 &&
          offset_ + reserveOf(hub_.limits(), options_.blockSize) > options_.fileSize;
}

void Recorder::turn(Moment now) {
   if (!failed() && !closed_) {
      work([&] { writeTurn(now); });
   }
}

void Recorder::writeTurn(Moment now) {
   bool const full = fileIsFull();
   bool const renew = snapshotAsked_ || full || snapshotIsDue();
   if (full && !snapshotIsComplete_) {
      fail("files of " + std::to_string(options_.fileSize) +
           " bytes are too small: they do not hold all that there is");
      return;
   }
   // While changes come faster than they are written, a snapshot never ends. So a turn writes more
   // than a small buffer holds.
   U64 const before = offset_;
   while (session_ != nullptr && drain(now) && waiting() && !renew && !fileIsFull() &&
          offset_ - before < turnBytes) {
   }
   if (failed()) {
      return;
   }
   if (renew && (session_ == nullptr || full) && !beginFile()) {
      return;
   }
   if (renew && !beginSnapshot(now)) {
      return;
   }
   stats_.changesCoalesced = coalescedBefore_ + session_->stats().changesCoalesced;
}

bool Recorder::drain(Moment now) {
   std::size_t const most = hub_.limits().outputBuffer;
   for (std::size_t done = 0; done < most;) {
      CircularBuffer::Piece const piece = session_->output();
      if (piece.size == 0) {
         break;
      }
      std::size_t const first = headerSize + readHeader(piece.begin).bodySize;
      std::size_t const space = room(first, now);
      if (space == 0) {
         return false;
      }
      std::size_t const wanted = std::max(first, std::min(space, most - done));
      std::size_t const size = wholeMessages(piece.begin, piece.size, wanted);
      std::memcpy(frame_.data() + frameHeaderSize, piece.begin, size);
      if (!writeFrame(FrameKind::log, size, now)) {
         return false;
      }
      session_->sent(size);
      done += size;
      if (rootsLeft_ == 0 && !snapshotIsComplete_) {
         snapshotIsComplete_ = true;
         snapshotOffset_ = newSnapshot_;
         snapshotBytes_ = offset_ - newSnapshot_;
      }
   }
   if (session_->closed()) {
      fail(session_->closeReason());
      return false;
   }
   return true;
}

std::size_t Recorder::wholeMessages(U8 const* bytes, std::size_t size, std::size_t room) {
   std::size_t taken = 0;
   while (taken != size) {
      Header const header = readHeader(bytes + taken);
      std::size_t const next = headerSize + header.bodySize;
      if (taken + next > room) {
         break;
      }
      bool const change = endsChange(header, bytes + taken + headerSize);
      taken += next;
      stats_.changes += rootsLeft_ == 0 && change ? 1 : 0;
      bool const ends = header.opcode == Opcode::replayEnd || header.opcode == Opcode::refused;
      rootsLeft_ -= ends && rootsLeft_ != 0 ? 1 : 0;
   }
   return taken;
}

void Recorder::sourceIs(bool there, Moment now) {
   turn(now);
   work([&] {
      if (!failed() && !closed_ && room(1, now) != 0) {
         writeFrame(there ? FrameKind::back : FrameKind::lost, 0, now);
      }
   });
}

void Recorder::close(Moment now) {
   turn(now);
   // Deferred changes enter the buffer while it drains. A turn is bounded, this loop is not.
   while (!failed() && !closed_ && waiting()) {
      turn(now);
   }
   work([&] {
      if (!failed() && !closed_ && room(1, now) != 0) {
         writeFrame(FrameKind::end, 0, now);
      }
   });
   closed_ = true;
   session_.reset();
}

}  // namespace Kiv::NboAttrLog
