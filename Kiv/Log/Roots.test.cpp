#include <gtest/gtest.h>

#include <algorithm>

#include "Kiv/Log/Wire.h"
#include "Kiv/NboAttrLogSession.h"
#include "KivTest/TestTypes/Hedge.h"
#include "KivTest/TestTypes/Stem.h"

namespace Kiv::NboAttrLog {
namespace {

struct Roots : SessionListener {
   void onRoots(Session&, std::vector<OfferedRoot> const& roots) override {
      ++answers;
      for (OfferedRoot const& root : roots) {
         text += root.type + "=" + root.name + " ";
      }
   }
   int answers = 0;
   Sarn::String text;
};

/// Carries all pending bytes from one session to another.
void carry(Session& from, Session& to) {
   while (from.output().size != 0) {
      std::vector<U8> const bytes(from.output().begin, from.output().begin + from.output().size);
      from.sent(bytes.size());
      to.received(bytes.data(), bytes.size());
   }
}

struct Ends {
   explicit Ends(Limits const& limits = {}) : client(limits), server(limits) {}
   void run() {
      while (a.output().size != 0 || b.output().size != 0) {
         carry(a, b);
         carry(b, a);
      }
   }
   Hub client;
   Hub server;
   Roots listener;
   Session a{client, &listener};
   Session b{server};
};

TEST(Session, TellsWhatRootsThePeerOffersInTheirOrder) {
   Ends pair;
   pair.server.rootIs(KivTest::stemFactory("b/root"));
   pair.server.rootIs(KivTest::hedgeFactory("a/hedge"));
   pair.a.rootsAsk();
   pair.run();
   EXPECT_EQ(pair.listener.answers, 1);
   EXPECT_EQ(pair.listener.text, "KivTest::Stem=b/root KivTest::Hedge=a/hedge ");
}

TEST(Session, TellsThatThePeerOffersNoRoots) {
   Ends pair;
   pair.a.rootsAsk();
   pair.a.rootsAsk();
   pair.run();
   EXPECT_EQ(pair.listener.answers, 2);
   EXPECT_EQ(pair.listener.text, "");
   EXPECT_FALSE(pair.a.closed()) << pair.a.closeReason();
}

TEST(Session, TellsOfAsManyRootsAsALongestValueOrMessageHolds) {
   auto const told = [](std::size_t longestMessage, std::size_t longestValue) {
      Limits limits;
      limits.longestMessage = longestMessage;
      limits.longestValue = longestValue;
      Ends pair(limits);
      for (int i = 0; i != 50; ++i) {  // 30 bytes each in the answer
         pair.server.rootIs(KivTest::stemFactory("root/" + std::to_string(1000 + i)));
      }
      pair.a.rootsAsk();
      pair.run();
      EXPECT_EQ(pair.listener.answers, 1);
      EXPECT_EQ(pair.a.closeReason() + pair.b.closeReason(), "");
      return std::count(pair.listener.text.begin(), pair.listener.text.end(), '=');
   };
   EXPECT_EQ(told(1000, 1204), 40);
   EXPECT_EQ(told(1000, 1203), 39);
   EXPECT_EQ(told(1204, 1000), 40);
   EXPECT_EQ(told(1203, 1000), 39);
}

TEST(Session, RootsThatAreOnlyMirroredAreNotOffered) {
   Ends pair;
   pair.server.rootIs(KivTest::stemFactory("root"));
   pair.run();
   pair.a.mountIs(KivTest::stemFactory("root"), MountMode::writer);
   pair.a.rootsAsk();
   pair.run();
   Roots atServer;
   Session fromServer(pair.server, &atServer);
   Session toClient(pair.client);
   fromServer.rootsAsk();
   for (int i = 0; i != 3; ++i) {
      carry(fromServer, toClient);
      carry(toClient, fromServer);
   }
   EXPECT_EQ(atServer.answers, 1);
   EXPECT_EQ(atServer.text, "");
}

std::vector<U8> rootsMessage(U32 count, std::vector<Sarn::String> const& strings) {
   std::size_t body = 4;
   for (Sarn::String const& text : strings) {
      body += 4 + text.size();
   }
   std::vector<U8> bytes(headerSize + body);
   Out out(bytes.data(), bytes.size());
   writeHeader(out, {Opcode::roots, static_cast<U32>(body), 0, 0});
   out.writeU32(count);
   for (Sarn::String const& text : strings) {
      out.writeString(text);
   }
   return bytes;
}

struct BadAnswer {
   char const* what;
   U32 asked;
   U32 count;
   std::vector<Sarn::String> strings;
   char const* reason;
};

TEST(Session, RefusesAListOfRootsThatIsNotAsItShouldBe) {
   BadAnswer const cases[] = {
         {"not asked for", 0, 0, {}, "nobody has asked for the roots"},
         {"count beyond the message", 1, 0xffffffff, {"T", "n"}, "exceed the bound of 1"},
         {"name missing", 1, 1, {"T::TTTTTTTTTTTTTTTTTT"}, "message"},
         {"more strings than counted", 1, 1, {"T", "n", "rest"}, "message"},
   };
   for (BadAnswer const& bad : cases) {
      Ends pair;
      pair.run();
      for (U32 i = 0; i != bad.asked; ++i) {
         pair.a.rootsAsk();
      }
      std::vector<U8> const bytes = rootsMessage(bad.count, bad.strings);
      pair.a.received(bytes.data(), bytes.size());
      EXPECT_TRUE(pair.a.closed()) << bad.what;
      EXPECT_NE(pair.a.closeReason().find(bad.reason), Sarn::String::npos)
            << bad.what << ": " << pair.a.closeReason();
      EXPECT_EQ(pair.listener.answers, 0) << bad.what;
   }
}

TEST(Session, TakesAListOfAsManyRootsAsItsBytesHoldAndNotOfOneMore) {
   Ends pair;
   pair.run();
   pair.a.rootsAsk();
   pair.a.rootsAsk();
   std::vector<U8> const fits = rootsMessage(2, {"", "", "", ""});
   pair.a.received(fits.data(), fits.size());
   EXPECT_EQ(pair.a.closeReason(), "");
   EXPECT_EQ(pair.listener.text, "= = ");
   std::vector<U8> const exceeds = rootsMessage(3, {"", "", "", ""});
   pair.a.received(exceeds.data(), exceeds.size());
   EXPECT_EQ(pair.a.closeReason(),
             "message 21 for entity 0, attribute 0: 3 roots exceed the bound of 2 in the message "
             "at offset 0");
   EXPECT_EQ(pair.listener.answers, 1);
}

TEST(Session, RefusesAPeerThatAsksForRootsWithoutEverReading) {
   Limits limits;
   limits.nesting = 4;
   limits.outputBuffer = 4096;
   Hub client;
   Hub server(limits);
   Session a(client);
   Session b(server);
   for (int i = 0; i != 4096 && !b.closed(); ++i) {
      a.rootsAsk();
      carry(a, b);
   }
   EXPECT_TRUE(b.closed());
   EXPECT_NE(b.closeReason().find("more than 4 requests wait for an answer"), Sarn::String::npos)
         << b.closeReason();
}

}  // namespace
}  // namespace Kiv::NboAttrLog
