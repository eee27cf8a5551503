// A mirror whose connection is full, so that changes at the source must wait.
#pragma once

#include <string>

#include "KivTest/Stream.test.h"

namespace StreamTesting {

class StreamStopTest : public StreamTest {
protected:
   explicit StreamStopTest(Limits const& limits = narrow()) : StreamTest(limits) { mount(); }

   /// Fills an end's output, so that nothing more can be written.
   static void fillUp(End& end, Stem& of) {
      while (end.session->upToDate()) {
         of.count8Is(static_cast<U8>(of.count8() + 1));
      }
   }
   void stop() {
      fillUp(source, *root);
      waiting = source.session->stats().messagesOut;
   }
   /// Carries one piece of the waiting bytes.
   std::string carryPiece() {
      auto const piece = source.session->output();
      Bytes const bytes(piece.begin, piece.begin + piece.size);
      mirror.receive(bytes);
      source.session->sent(bytes.size());
      EXPECT_EQ(mirror.session->closeReason(), "");
      return joined(lines(bytes));
   }
   /// Carries what was written before the stop, and returns what is written after it, except for
   /// the counter that has filled the output.
   std::string resume() {
      while (source.session->stats().messagesOut == waiting) {
         carryPiece();
      }
      Bytes const rest = source.take();
      mirror.receive(rest);
      EXPECT_EQ(mirror.session->closeReason(), "");
      expectEqual();
      EXPECT_EQ(source.session->dirtyEntities(), 0u);
      std::string text;
      for (std::string const& one : lines(rest)) {
         if (one.find("." + std::to_string(idOf("count8")) + " ") == one.npos) {
            text += (text.empty() ? "" : "; ") + one;
         }
      }
      return text;
   }
   static U16 idOf(std::string_view name) { return Stem::kivTypeImpl.field(name)->fieldId; }
   /// A message for the root.
   static std::string at(char const* opcode, char const* name, std::string const& body = "") {
      return std::string(opcode) + " 01000000." + std::to_string(idOf(name)) +
             (!body.empty() ? " " : "") + body;
   }

   /// The number of messages that had been written when it stopped.
   U64 waiting = 0;
};

}  // namespace StreamTesting
