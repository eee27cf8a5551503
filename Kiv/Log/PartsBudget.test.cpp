// What messages hold that travel in parts, of what all sessions of a hub may hold: up to the bound,
// and one byte beyond it.
#include "Kiv/Log/Parts.h"

#include "KivTest/Stream.test.h"

using namespace StreamTesting;
using Kiv::NboAttrLog::ByteBudget;
using Kiv::NboAttrLog::FaultException;
using Kiv::NboAttrLog::PartsIn;
using Kiv::NboAttrLog::PartsOut;

namespace {

constexpr std::size_t freeBytes = ByteBudget::freeOfCharge;

Bytes part(U32 total, U32 offset, std::size_t size) {
   return concat(Bytes{static_cast<U8>(Opcode::set)}, u32(total), u32(offset), Bytes(size));
}

/// Adds a part; returns "whole", "" if others are to come, or what is wrong with it.
std::string add(PartsIn& parts, U32 total, U32 offset, std::size_t size) {
   Bytes const bytes = part(total, offset, size);
   Kiv::NboAttrLog::In in(bytes.data(), bytes.data() + bytes.size());
   auto const noBound = [](void*, Opcode) { return ~std::size_t(0); };
   try {
      return parts.add({Opcode::part, static_cast<U32>(bytes.size()), 1, 1}, in, noBound, nullptr)
                   ? "whole"
                   : "";
   } catch (FaultException const& fault) {
      return fault.what();
   }
}

std::string noRoom(std::size_t size) {
   return "there is no room for the " + std::to_string(size) +
          " bytes of its parts: the connections hold as much as they may at offset 9";
}

TEST(PartsBudget, OfAMessageOnItsWayOutIsItsBodyUntilItIsGone) {
   ByteBudget budget{0, 1000};
   auto const make = [&budget](std::size_t size) {
      return PartsOut::make({Opcode::set, static_cast<U32>(size), 1, 1}, budget);
   };
   EXPECT_EQ(make(freeBytes + 1001), nullptr);
   EXPECT_EQ(budget.held, 0u);
   auto first = make(freeBytes + 1000);
   ASSERT_NE(first, nullptr);
   EXPECT_EQ(budget.held, 1000u);
   EXPECT_NE(make(freeBytes), nullptr) << "so much is free of charge";
   EXPECT_EQ(make(freeBytes + 1), nullptr);
   EXPECT_EQ(budget.held, 1000u);
   first.reset();
   EXPECT_EQ(budget.held, 0u);
}

TEST(PartsBudget, OfAMessageOnItsWayInIsTwiceWhatHasComeUpToTheWhole) {
   ByteBudget budget{0, 9000 - freeBytes};
   PartsIn parts(budget);
   EXPECT_EQ(add(parts, 9000, 0, 3000), "");
   EXPECT_EQ(budget.held, 6000 - freeBytes);
   EXPECT_EQ(add(parts, 9000, 3000, 3000), "");
   EXPECT_EQ(budget.held, 6000 - freeBytes);
   EXPECT_EQ(add(parts, 9000, 6000, 1), "");
   EXPECT_EQ(budget.held, 9000 - freeBytes);
   EXPECT_EQ(add(parts, 9000, 6001, 2999), "whole");
   EXPECT_EQ(parts.take().size(), 9000u);
   EXPECT_EQ(budget.held, 0u);
}

TEST(PartsBudget, OfAMessageOnItsWayInIsExceededByOneByte) {
   ByteBudget budget{0, 6000 - freeBytes - 1};
   PartsIn parts(budget);
   EXPECT_EQ(add(parts, 9000, 0, 3000), noRoom(6000));
   EXPECT_FALSE(parts.any());
   EXPECT_EQ(budget.held, 0u);
   budget.bound = 9000 - freeBytes - 1;
   EXPECT_EQ(add(parts, 9000, 0, 3000), "");
   EXPECT_EQ(add(parts, 9000, 3000, 3001), noRoom(9000));
   EXPECT_EQ(budget.held, 6000 - freeBytes) << "what has come is still there";
   parts.clear();
   EXPECT_EQ(budget.held, 0u);
}

/// A hub with a root, and peers whose bytes a test makes up.
class StreamPartsBudget : public testing::Test {
protected:
   /// Both sessions have mounted the root; all sessions may hold `bytes`.
   void connect(std::size_t bytes, MountMode mode) {
      second.reset();
      first.reset();
      Limits limits;
      limits.outputBuffer = freeBytes;
      limits.longestMessage = 3500;
      limits.longestValue = 60000;
      limits.sessionBytes = bytes;
      hub = std::make_unique<Hub>(limits);
      hub->rootIs(root);
      first = mounted(mode);
      second = mounted(mode);
      ASSERT_EQ(hub->heldBytes(), 0u);
   }
   std::unique_ptr<Session> mounted(MountMode mode) {
      auto session = std::make_unique<Session>(*hub);
      receive(*session, End().take());
      receive(*session, message(Opcode::mount, 0, 0,
                                concat(u32(1), Bytes{static_cast<U8>(mode)}, text("KivTest::Stem"),
                                       text("test"))));
      if (writesBack(mode)) {
         receive(*session, message(Opcode::bind, 0x01000000, 0, u32(root->streamHandle())));
      }
      drain(*session);
      return session;
   }
   static std::string receive(Session& session, Bytes const& bytes) {
      session.received(bytes.data(), bytes.size());
      return session.closeReason();
   }
   static void drain(Session& session) {
      while (session.output().size != 0) {
         session.sent(session.output().size);
      }
   }
   /// The first 3000 bytes of a text of 9000, for which room for 6000 is made.
   std::string begin(Session& session) {
      return receive(session,
                     message(Opcode::part, 0x01000000, Stem::kivTypeImpl.field("text")->fieldId,
                             part(9000, 0, 3000)));
   }

   Sarn::Ptr<Stem> root = KivTest::stemFactory("test");
   std::unique_ptr<Hub> hub;
   std::unique_ptr<Session> first;
   std::unique_ptr<Session> second;
};

TEST_F(StreamPartsBudget, IsSharedByAllWhoWrite) {
   std::size_t const each = 6000 - freeBytes;
   connect(2 * each, MountMode::writer);
   EXPECT_EQ(begin(*first), "");
   EXPECT_EQ(begin(*second), "");
   EXPECT_EQ(hub->heldBytes(), 2 * each);
   connect(2 * each - 1, MountMode::writer);
   EXPECT_EQ(begin(*first), "");
   EXPECT_EQ(begin(*second), "test.text (KivTest::Stem, 270): " + noRoom(6000));
   EXPECT_EQ(first->closeReason(), "");
   EXPECT_EQ(hub->heldBytes(), each);
   first.reset();
   EXPECT_EQ(hub->heldBytes(), 0u);
   EXPECT_EQ(begin(*(second = mounted(MountMode::writer))), "");
}

TEST_F(StreamPartsBudget, IsSharedByAllWhoAreToldOfALongValue) {
   std::size_t const each = 4 + 20000 - freeBytes;
   connect(2 * each, MountMode::reader);
   root->textIs(std::string(20000, 'a'));
   EXPECT_EQ(first->closeReason() + second->closeReason(), "");
   EXPECT_EQ(hub->heldBytes(), 2 * each);
   connect(2 * each - 1, MountMode::reader);
   root->textIs(std::string(20000, 'b'));
   EXPECT_EQ(first->closeReason(), "");
   EXPECT_EQ(second->closeReason(), "a message of 20004 bytes finds no memory");
   EXPECT_EQ(hub->heldBytes(), each);
   drain(*first);
   EXPECT_EQ(hub->heldBytes(), 0u);
}

}  // namespace
