// Two ends of the attribute log in one process. A test carries the bytes between them, reads them
// as lines of text, and forges them.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "Kiv/Log/Wire.h"
#include "Kiv/NboAttrLogSa.h"
#include "KivTest/SimulationTree.h"
#include "KivTest/TestTypes.h"
#include "KivTest/Witness.h"

namespace StreamTesting {

using Kiv::NboAttrLog::Hub;
using Kiv::NboAttrLog::Limits;
using Kiv::NboAttrLog::Mount;
using Kiv::NboAttrLog::MountMode;
using Kiv::NboAttrLog::Opcode;
using Kiv::NboAttrLog::Session;
using Kiv::NboAttrLog::SessionListener;
using KivTest::Stem;
using Bytes = std::vector<U8>;

/// Room for few messages, so that a reader is soon behind.
inline Limits narrow(std::size_t outputBuffer = 1200) {
   Limits limits;
   limits.outputBuffer = outputBuffer;
   return limits;
}

/// A clock for hubs, in nanoseconds, which a test sets.
inline U64 clockNow = 0;
inline U64 testClock() noexcept {
   return clockNow;
}

/// The id of an attribute of `Stem`, or of another type.
inline U16 idOf(Kiv::TypeImpl const& type, std::string_view name) {
   return type.field(name)->fieldId;
}
inline U16 idOf(std::string_view name) {
   return idOf(Stem::kivTypeImpl, name);
}

/// "set 01000000.258 01": opcode, handle, attribute and body of one message.
inline std::string line(U8 const* header, U8 const* body, std::size_t size) {
   static constexpr char const* digits = "0123456789abcdef";
   auto const hex = [](U8 v) { return std::string{digits[v >> 4], digits[v & 15]}; };
   std::string text(Kiv::NboAttrLog::opcodeName(static_cast<Opcode>(header[0])));
   text += " ";
   for (int i = 4; i != 8; ++i) {
      text += hex(header[i]);
   }
   text += "." + std::to_string(header[8] << 8 | header[9]);
   for (std::size_t i = 0; i != size; ++i) {
      text += (i == 0 ? " " : "") + hex(body[i]);
   }
   return text;
}

/// The complete messages in `bytes`, one per line.
inline std::vector<std::string> lines(Bytes const& bytes) {
   std::vector<std::string> all;
   for (std::size_t at = 0; at + 10 <= bytes.size();) {
      U8 const* const header = bytes.data() + at;
      std::size_t const size =
            std::size_t(header[1]) << 16 | std::size_t(header[2]) << 8 | header[3];
      EXPECT_LE(at + 10 + size, bytes.size());
      all.push_back(line(header, header + 10, size));
      at += 10 + size;
   }
   return all;
}

inline std::string joined(std::vector<std::string> const& all) {
   std::string text;
   for (std::string const& one : all) {
      text += (text.empty() ? "" : "; ") + one;
   }
   return text;
}

/// A message as sent over the wire.
inline Bytes message(Opcode opcode, U32 handle, U16 attribute, Bytes const& body) {
   Bytes bytes(10 + body.size());
   Kiv::NboAttrLog::Out out(bytes.data(), bytes.size());
   Kiv::NboAttrLog::writeHeader(out, {opcode, static_cast<U32>(body.size()), handle, attribute});
   out.writeBytes(body.data(), body.size());
   return bytes;
}

inline Bytes u32(U32 v) {
   return {static_cast<U8>(v >> 24), static_cast<U8>(v >> 16), static_cast<U8>(v >> 8),
           static_cast<U8>(v)};
}

/// The arguments' bytes, concatenated.
template <class... More>
Bytes concat(Bytes first, More const&... more) {
   (first.insert(first.end(), more.begin(), more.end()), ...);
   return first;
}

inline Bytes text(std::string_view v) {
   return concat(u32(static_cast<U32>(v.size())), Bytes(v.begin(), v.end()));
}

/// One end: a hub with one session, whose listener stores its notifications.
struct End : SessionListener {
   explicit End(Limits const& limits = {}) : hub(limits) { connect(); }
   virtual ~End() = default;

   void connect() {
      session.reset();
      session = std::make_unique<Session>(hub, this);
   }
   /// Takes all bytes that are waiting to be sent.
   Bytes take() {
      Bytes bytes;
      if (session->closed()) {
         session->close(session->closeReason());  // as a connection does
      }
      while (session->output().size != 0) {
         auto const piece = session->output();
         bytes.insert(bytes.end(), piece.begin, piece.begin + piece.size);
         session->sent(piece.size);
      }
      return bytes;
   }
   /// The same as one line of text.
   std::string sent() { return joined(lines(take())); }
   void receive(Bytes const& bytes) { session->received(bytes.data(), bytes.size()); }

   void onMount(Session&, Mount& mount) override {
      static constexpr char const* names[] = {"asked",   "replaying", "complete",
                                              "refused", "gone",      "lost"};
      events.push_back(names[static_cast<int>(mount.state())]);
   }
   void onClosed(Session&, Sarn::String const& reason) override {
      events.push_back("closed: " + reason);
   }
   void onLeftOut(Session&, Sarn::String const& what) override {
      events.push_back("left out: " + what);
   }
   void onLacking(Session&, std::span<Sarn::String const> lacking) override {
      events.push_back("lacking " + std::to_string(lacking.size()));
   }
   U64 onSyncAsked(Session&) override { return confirmations; }
   void onSynced(Session&, U32 token) override {
      events.push_back("synced " + std::to_string(token));
   }
   void onDecided(Session&, U32 transaction, Sarn::String const& reason) override {
      events.push_back("decided " + std::to_string(transaction) +
                       (reason.empty() ? "" : ": " + reason));
   }
   void onTorn(Session&, bool torn) override { events.push_back(torn ? "torn" : "whole"); }
   /// The listener's notifications since the last call.
   std::string told() {
      std::string const all = joined(events);
      events.clear();
      return all;
   }

   Hub hub;
   std::unique_ptr<Session> session;
   std::vector<std::string> events;
   /// What `onSyncAsked` returns.
   U64 confirmations = 0;
};

/// The same, one byte at a time; `afterEach` is called after each byte.
template <class Call>
void receiveBytewise(End& end, Bytes const& bytes, Call&& afterEach) {
   for (U8 const byte : bytes) {
      end.receive({byte});
      afterEach();
   }
}

/// Carries everything between two ends in both directions until nothing is left.
inline void exchange(End& source, End& mirror) {
   for (bool moved = true; moved;) {
      Bytes const forth = source.take();
      Bytes const back = mirror.take();
      moved = !forth.empty() || !back.empty();
      mirror.receive(forth);
      source.receive(back);
   }
}

/// A source that serves a root, and a mirror that may mount it.
template <class RootType>
class StreamOf : public testing::Test {
protected:
   using Factory = Sarn::Ptr<RootType> (*)(std::string_view name);
   explicit StreamOf(Factory make, std::string_view name, Limits const& limits = {})
         : root(make(name)), copy(make(name)), source(limits), mirror(limits) {
      source.hub.rootIs(root);
   }
   ~StreamOf() override {
      mirror.session.reset();
      source.session.reset();
   }

   void carry() { exchange(source, mirror); }
   Mount& mount(MountMode mode = MountMode::reader) {
      Mount& made = mirror.session->mountIs(copy, mode);
      carry();
      return made;
   }
   /// The piece that the source has ready reaches the mirror. Returns its bytes.
   Bytes carryPiece() {
      auto const piece = source.session->output();
      Bytes const bytes(piece.begin, piece.begin + piece.size);
      source.session->sent(bytes.size());
      mirror.receive(bytes);
      return bytes;
   }
   std::string difference() const { return KivTest::firstDifference(*root, *copy); }
   void expectEqual() { EXPECT_EQ(difference(), ""); }

   Sarn::Ptr<RootType> root;
   Sarn::Ptr<RootType> copy;
   End source;
   End mirror;
};

class StreamTest : public StreamOf<Stem> {
protected:
   explicit StreamTest(Limits const& limits = {})
         : StreamOf(KivTest::stemFactory, "test", limits) {}

   /// The reason why the mirror rejects a message that follows the other side's greeting.
   std::string fault(Bytes const& bytes) {
      mirror.receive(bytes);
      return mirror.session->closeReason();
   }
};

}  // namespace StreamTesting
