#pragma once

#include "bench/BareIntf.h"
#include "bench/BareReader.h"

/// The bare mirror: plain structs that are changed in one process and sent by hand-written code to
/// another, which reads them into plain structs. Its records are identical to those of the
/// attribute log, byte for byte (`verifyBareMirror` in `processes.cpp` compares them).
namespace Baseline {

/// The structs that records are read into.
class Mirror {
public:
   explicit Mirror(U32 count) : intfs_(count) {}

   /// Applies one record; false if it is not valid.
   bool apply(U32 word, U32 handle, U16 attribute, U8 const* body) {
      U32 const size = word & 0xffffff;
      U32 const index = handle - handleOf(0);
      switch (word >> 24) {
         case setRecord:
            return index < intfs_.size() && getValue(intfs_[index], attribute, body, size);
         case eraseRecord:
            return index < intfs_.size();  // there is nothing to erase
         case createRecord: {
            U32 const created = get32(body) - handleOf(0);
            if (size != 14 || created >= intfs_.size()) {
               return false;
            }
            intfs_[created].intf = get64(body + 4);
            intfs_[created].enabled = body[12] != 0;
            intfs_[created].mpassEnabled = body[13] != 0;
            return true;
         }
         default:
            return false;
      }
   }

private:
   std::vector<Intf> intfs_;
};

/// Reads records into structs until the socket is closed; answers each mark with a byte.
inline void mirror(int fd, U32 count) {
   Mirror structs(count);
   readRecords(fd, structs);
}

/// The other end: structs whose changes are written by hand-written code.
class Writer {
public:
   explicit Writer(U32 count) : intfs_(count) {}

   void linkDelayThresholdIs(U32 index, U64 v) {
      Intf& intf = intfs_[index];
      if (intf.linkDelayThreshold != v) {
         intf.linkDelayThreshold = v;
         used_ += putRecord64(out_.data() + used_, handleOf(index), 284, v);
      }
   }
   void mark() { used_ += putRecord64(out_.data() + used_, markHandle, 0, 0); }
   void flush(std::vector<int> const& fds) {
      for (int const fd : fds) {
         Harness::writeAll(fd, out_.data(), used_);
      }
      used_ = 0;
   }
   /// Sends everything to a new mirror.
   void replay(int fd) {
      for (U32 i = 0; i != intfs_.size(); ++i) {
         if (out_.size() - used_ < 1024) {
            flush({fd});
         }
         U8* const begin = out_.data() + used_;
         used_ += static_cast<std::size_t>(putIntf(begin, handleOf(i), intfs_[i]) - begin);
      }
   }

private:
   std::vector<Intf> intfs_;
   std::vector<U8> out_ = std::vector<U8>(1 << 20);
   std::size_t used_ = 0;
};

}  // namespace Baseline
