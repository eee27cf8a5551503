#pragma once

#include "bench/BarePortRecords.h"
#include "bench/BareReader.h"

/// Plain structs of a clock's ports in one process, sent by hand-written code to another, which
/// reads them into plain structs.
namespace BarePorts {

/// Structs that records are read into.
class Mirror {
public:
   explicit Mirror(U32 ports) : statuses_(ports), ports_(ports) {}

   /// Applies one record; false if it is not valid.
   bool apply(U32 word, U32 handle, U16 attribute, U8 const* body) {
      U32 const size = word & 0xffffff;
      switch (word >> 24) {
         case setRecord:
            return set(handle, attribute, body, size);
         case createRecord:
            return create(body, size);
         case eraseRecord:
         case beginRecord:
         case endRecord:
            return handle - rootHandle <= ports_.size() * handlesAPort;
         default:
            return false;
      }
   }

private:
   struct Place {
      U32 port;
      U32 part;
   };
   static Place placeOf(U32 handle) {
      U32 const index = handle - rootHandle - 1;
      return {index / handlesAPort, index % handlesAPort};
   }
   bool set(U32 handle, U16 attribute, U8 const* body, U32 size) {
      Place const place = placeOf(handle);
      if (place.port >= ports_.size()) {
         return false;
      }
      if (place.part == handlesAPort - 1) {
         return getValue(ports_[place.port], attribute, body, size);
      }
      return place.part == 0
                   ? getValue(statuses_[place.port], attribute, body, size)
                   : getValue(statuses_[place.port].masters[place.part - 1], attribute, body, size);
   }
   bool create(U8 const* body, U32 size) {
      Place const place = placeOf(get32(body));
      if (place.port >= ports_.size()) {
         return false;
      }
      bool const isPort = place.part == handlesAPort - 1;
      if (size != (isPort ? 24 : 14)) {
         return false;
      }
      U8* const key = isPort ? ports_[place.port].key.data()
                      : place.part == 0
                            ? statuses_[place.port].key.data()
                            : statuses_[place.port].masters[place.part - 1].identity.data();
      std::memcpy(key, body + 4, 10);
      if (isPort) {
         std::memcpy(ports_[place.port].portIdentity.data(), body + 14, 10);
      }
      return true;
   }

   std::vector<PortStatus> statuses_;
   std::vector<Port> ports_;
};

/// Reads records into structs until the socket is closed; answers each mark with a byte.
inline void mirror(int fd, U32 ports) {
   Mirror structs(ports);
   Baseline::readRecords(fd, structs);
}

/// The bytes that are waiting to be written, and the socket for them.
struct Output {
   int fd;
   std::vector<U8> bytes = std::vector<U8>(1 << 20);
   std::size_t used = 0;
   U64 total = 0;

   std::size_t room() const { return bytes.size() - used; }
   U8* end() { return bytes.data() + used; }
   void endIs(U8* end) { used = static_cast<std::size_t>(end - bytes.data()); }
   void flush() {
      Harness::writeAll(fd, bytes.data(), used);
      total += used;
      used = 0;
   }
   /// Asks the reader to answer when it has read everything so far, and waits for the answer.
   void sync() {
      endIs(putHeader(end(), setRecord, 0, Baseline::markHandle, 0));
      flush();
      U8 mark;
      Harness::readAll(fd, &mark, 1);
   }
};

}  // namespace BarePorts
