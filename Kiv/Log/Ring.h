#pragma once

#include <memory>
#include <vector>

#include "Kiv/Log/Wire.h"
#include "Kiv/NboAttrLogCircularBuffer.h"

namespace Kiv::NboAttrLog {

class Cursor;

/// The live changes of a hub's roots, each encoded once, for all readers that are up to date. Such
/// a reader is a position here, a `Cursor`, and costs a change nothing.
///
///     chunks   | free |   |  64 KiB              |  |  64 KiB            |
///                              ^ slow reader           ^ reader   ^ head
///     runs                | root 1 | root 2 | root 1 ............ |
///
/// A run is a piece of one chunk with the records of one root; a reader skips the runs of roots
/// that it does not mirror. A position counts all bytes ever written.
///
/// A reader that is too slow is overtaken: when it would have more unread bytes than it may have,
/// it leaves the ring at the head, and keeps what it has not read up to there.
///
/// Invariants:
/// - a record is contiguous;
/// - chunks that every cursor has read are free, and used again;
/// - `stop_` is no further than where the first reader is overtaken and than the chunk's end, so
///   only then does a change look at readers;
/// - a source's `limit_` is `stop_` if the current run is its own and it writes at once, else 0:
/// one
///   comparison tells whether there is space, and whose;
/// - a call that returns null has written nothing.
class Ring {
public:
   /// Messages and bytes.
   struct Written {
      U64 messages = 0;
      U64 bytes = 0;

      void operator+=(Written const& more) noexcept {
         messages += more.messages;
         bytes += more.bytes;
      }
      friend Written operator-(Written const& all, Written const& before) noexcept {
         return {all.messages - before.messages, all.bytes - before.bytes};
      }
   };

   /// Who writes the records of one root.
   class Source {
   public:
      explicit Source(Ring& ring) noexcept : ring_(ring), id_(++ring.sources_) {}
      Source(Source const&) = delete;
      Source& operator=(Source const&) = delete;

      /// Writes a message for all readers that follow. False, with no effect, if it is too long for
      /// one message or if there is no memory.
      template <class Body>
      bool write(Opcode opcode, std::size_t bodySize, U32 handle, AttributeId attribute,
                 Body const& body) {
         U8* const at = bodySize <= ring_.longestBody_ ? ring_.reserve(*this, headerSize + bodySize)
                                                       : nullptr;
         if (at == nullptr) {
            return false;
         }
         Out out(at + headerSize, bodySize);
         body(out);
         Out header(at, headerSize);
         writeHeader(header, {opcode, static_cast<U32>(bodySize), handle, attribute});
         ring_.write_ = at + headerSize + bodySize;
         ++ring_.messages_;
         return true;
      }
      /// As `write`, for a caller that writes the body itself, to the address that is returned.
      /// Null also if that would take more than a few instructions. REQUIRES: the body is no longer
      /// than a greeting, which fits into any message.
      U8* writeAtOnce(Opcode opcode, std::size_t bodySize, U32 handle,
                      AttributeId attribute) noexcept {
         Ring& ring = ring_;
         U8* const at = ring.write_;
         std::size_t const size = headerSize + bodySize;
         if (static_cast<std::ptrdiff_t>(limit_ - address(at)) < static_cast<std::ptrdiff_t>(size))
               [[unlikely]] {
            return nullptr;
         }
         ring.write_ = at + size;
         ++ring.messages_;
         Out out(at, headerSize);
         writeHeader(out, {opcode, static_cast<U32>(bodySize), handle, attribute});
         return at + headerSize;
      }
      /// No value is left out here: one that is too long is written to each reader by itself.
      static constexpr bool isLeftOut(std::size_t) noexcept { return false; }

      /// Its number in the ring; no other source ever has it.
      U32 id() const noexcept { return id_; }
      /// All that it has written.
      Written written() const noexcept {
         Written all = written_;
         all += runs() ? Written{ring_.messages_, ring_.runSize()} : Written{};
         return all;
      }

      /// A reader gets the changes through the ring from now on, or no longer does.
      virtual void onFollows(Cursor& cursor) noexcept = 0;
      virtual void onLeft(Cursor& cursor) noexcept = 0;

   protected:
      ~Source() { ring_.endRun(this); }

      /// Whether `writeAtOnce` may write.
      bool atOnce() const noexcept { return atOnce_; }
      void atOnceIs(bool atOnce) noexcept {
         atOnce_ = atOnce;
         renewLimit();
      }

   private:
      friend class Ring;
      static std::uintptr_t address(U8 const* at) noexcept {
         return reinterpret_cast<std::uintptr_t>(at);
      }
      void renewLimit() noexcept { limit_ = atOnce_ && runs() ? address(ring_.stop_) : 0; }
      bool runs() const noexcept { return ring_.source_ == this; }

      Ring& ring_;
      /// How far `writeAtOnce` may write.
      std::uintptr_t limit_ = 0;
      bool atOnce_ = true;
      U32 const id_;
      /// Without the current run.
      Written written_;
   };

   /// `longestBody`: the longest body of a message.
   Ring(ByteBudget& budget, std::size_t longestBody) noexcept
         : budget_(budget), longestBody_(longestBody) {}
   ~Ring();
   Ring(Ring const&) = delete;
   Ring& operator=(Ring const&) = delete;

   /// The position behind the last record.
   U64 head() const noexcept { return base_ + static_cast<U64>(write_ - begin_); }
   /// Bytes of memory that it holds.
   std::size_t capacity() const noexcept { return capacity_; }
   /// Frees all memory that holds nothing unread. O(readers).
   void shrink() noexcept;

private:
   friend class Cursor;
   /// Records of one source, from here to the next run or the end of the chunk.
   struct Run {
      U32 begin;
      U32 source;
   };
   struct Chunk {
      std::unique_ptr<U8[]> bytes;
      std::size_t capacity = 0;
      U64 start = 0;
      /// What is written, once another chunk is written to.
      std::size_t size = 0;
      std::vector<Run> runs;
   };
   static constexpr std::size_t smallestChunk = ByteBudget::freeOfCharge;
   static constexpr std::size_t largestChunk = std::size_t(1) << 16;
   /// A chunk begins anew after this many bytes if they have been read, so that readers that keep
   /// up use memory that is in the cache, and only one chunk.
   static constexpr std::size_t cached = smallestChunk / 2;
   /// The most free chunks that are kept.
   static constexpr std::size_t mostFree = 16;

   U8* reserve(Source& source, std::size_t size) noexcept {
      bool const fits = static_cast<std::size_t>(stop_ - write_) >= size && source_ == &source;
      return fits ? write_ : reserveSlowly(source, size);
   }
   std::size_t runSize() const noexcept { return static_cast<std::size_t>(write_ - runBegin_); }

   U8* reserveSlowly(Source& source, std::size_t size) noexcept;
   void overtake(std::size_t size) noexcept;
   bool nextChunk(std::size_t size) noexcept;
   std::unique_ptr<Chunk> freeChunk(std::size_t capacity) noexcept;
   std::unique_ptr<Chunk> makeChunk(std::size_t capacity) noexcept;
   void release(std::unique_ptr<Chunk> chunk) noexcept;
   void discard(Chunk const& chunk) noexcept;
   void releaseRead(U64 oldest) noexcept;
   void writeTo(Chunk& chunk) noexcept;
   /// A reader has just read everything.
   void readToEnd() noexcept {
      if (readersAtEnd_ == 0 || endRead_ != head()) {
         endRead_ = head();
         readersAtEnd_ = 0;
      }
      if (++readersAtEnd_ >= cursors_.size() &&
          static_cast<std::size_t>(write_ - begin_) > cached) {
         beginAnew();
      }
   }
   void beginAnew() noexcept;
   bool beginRun(Source& source) noexcept;
   void endRun(Source const* source) noexcept;
   U64 oldestUnread() noexcept;
   /// No reader has more than `space` bytes of space from here on.
   void boundBy(std::size_t space) noexcept {
      if (static_cast<std::size_t>(stop_ - write_) > space) {
         stopIs(write_ + space);
      }
   }
   void stopIs(U8* stop) noexcept {
      stop_ = stop;
      if (source_ != nullptr) {
         source_->renewLimit();
      }
   }
   Chunk const* chunkAt(U64 position) const noexcept;

   // The chunk that is written to, and how far.
   U8* write_ = nullptr;
   U8* stop_ = nullptr;
   Source* source_ = nullptr;
   /// Messages in the current run, and where it began.
   U64 messages_ = 0;
   U8* runBegin_ = nullptr;
   U8* begin_ = nullptr;
   U64 base_ = 0;

   ByteBudget& budget_;
   std::size_t longestBody_;
   /// Of all chunks.
   std::size_t capacity_ = 0;
   /// Oldest first; the last one is written to.
   std::vector<std::unique_ptr<Chunk>> chunks_;
   std::vector<std::unique_ptr<Chunk>> free_;
   /// Those that follow, or have not read everything.
   std::vector<Cursor*> cursors_;
   /// How many of them have read everything up to this position, which may be the head.
   U64 endRead_ = 0;
   std::size_t readersAtEnd_ = 0;
   U32 sources_ = 0;
};

}  // namespace Kiv::NboAttrLog
