#include <cstdio>
#include <cstdlib>

#include "Fleet/EntityText.h"
#include "Fleet/Message.h"
#include "Fleet/Names.h"
#include "Holt/Failure.h"
#include "KivTest/TestTypes/Stem.h"

// A message of a fleet: the input is a subject, a newline, and the data. Whatever it is, it is
// refused or applied; what is applied is written, and applied to another entity, with the same
// state.

namespace {

using namespace Fleet;

void expect(bool holds, char const* what) {
   if (!holds) {
      std::fprintf(stderr, "%s\n", what);
      std::abort();
   }
}

void names(std::string_view subject) {
   for (std::string_view const token : tokensOf(subject)) {
      if (auto const text = tokenText(token)) {
         std::string again;
         appendToken(again, *text);
         expect(again == token, "a token is written differently");
      }
      if (auto const name = rootName(token)) {
         expect(rootToken(*name) == token, "a root is written differently");
      }
   }
}

void heartbeat(std::string_view data) {
   try {
      std::string const text = metaText(readMeta(data));
      expect(metaText(readMeta(text)) == text, "a heartbeat is written differently");
   } catch (Holt::Failure const&) {
   }
}

void value(std::string_view text) {
   EntityText texts;
   ApplyProblems problems;
   auto const stem = KivTest::Stem::StemIs("ptp/stem");
   (void)texts.nameIn(text);
   if (!texts.apply(*stem, text, problems)) {
      expect(problems.count != 0, "refused without a reason");
      return;
   }
   std::string first;
   texts.write(*stem, first);
   auto const other = KivTest::Stem::StemIs("ptp/stem");
   ApplyProblems none;
   expect(texts.apply(*other, first, none) && none.count == 0, "cannot be applied again");
   std::string second;
   texts.write(*other, second);
   expect(first == second, "is applied differently");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(unsigned char const* data, std::size_t size) {
   std::string_view const text(reinterpret_cast<char const*>(data), size);
   std::size_t const end = std::min(text.find('\n'), text.size());
   names(text.substr(0, end));
   std::string_view const rest = text.substr(std::min(end + 1, text.size()));
   heartbeat(rest);
   EntityMessage message;
   if (readMessage(rest, message).empty() && !message.isDeleted()) {
      std::string again;
      writeMessage(message, again);
      EntityMessage second;
      expect(readMessage(again, second).empty() && second.value == message.value,
             "a message is written differently");
      value(message.value);
   }
   return 0;
}
