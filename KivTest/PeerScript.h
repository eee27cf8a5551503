// A peer that sends arbitrary bytes to a mirror or to a source that accepts writers.
#pragma once

#include <string>
#include <vector>

#include "Kiv/Log/Wire.h"
#include "Kiv/NboAttrLogSession.h"
#include "KivTest/TestTypes.h"

namespace KivTest {

/// Plays a script: what the peer sends, verbatim or as the fields of messages; changes on this
/// side; and reads. The peer may lose its connection; the tree stays intact, and a bystander that
/// mirrors the same tree sees nothing but changes.
///
///     byte 0             bit 0: the peer is a writer, not a source; bit 1: it has not greeted yet
///     then, repeated     0 length16 bytes...                             received verbatim
///                        1 opcode handle attribute length8 bytes...      a message
///                        2 seed16                                        a change on this side
///                        3                                               the peer reads
///                        4                                               the bystander reads
class PeerScript {
public:
   using Bytes = std::vector<U8>;

   explicit PeerScript(Bytes const& script);

   /// What is wrong at the end; empty if nothing is.
   std::string check();
   /// The number of messages from the peer, and why its session was closed, if it was.
   U64 messages() const noexcept { return session_.stats().messagesIn; }
   Sarn::String const& closeReason() const noexcept { return session_.closeReason(); }

private:
   class Input;

   void begin(U8 mode);
   void play(Input& in);
   void receive(Bytes const& bytes);
   void rest();

   Sarn::Ptr<Stem> root_;
   Sarn::Ptr<Stem> mirrored_;
   Kiv::NboAttrLog::Hub hub_;
   Kiv::NboAttrLog::Hub otherHub_;
   Kiv::NboAttrLog::Session session_;
   Kiv::NboAttrLog::Session server_;
   Kiv::NboAttrLog::Session bystander_;
};

}  // namespace KivTest
