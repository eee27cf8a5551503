// Messages that arrive together are applied as if each had arrived alone, wherever the received
// bytes are cut and whatever observers do in between.
#include <functional>
#include <optional>

#include "Kiv/Exception.h"
#include "KivTest/Stream.test.h"

using namespace StreamTesting;
using KivTest::Core;
using KivTest::Leaf;
using KivTest::Opaque;

namespace {

/// Runs `act` at the first change of an entity, or of anything below it.
class AtFirstChange final : public Kiv::Observer {
public:
   AtFirstChange(Kiv::Entity& entity, std::function<void()> act,
                 Kiv::Scope scope = Kiv::Scope::entity)
         : entity_(&entity), scope_(scope), act_(std::move(act)) {
      entity.observerAdd(*this, scope);
   }
   ~AtFirstChange() { entity_->observerDel(*this, scope_); }
   void onChange(Kiv::Change const&) override {
      if (act_) {
         std::exchange(act_, nullptr)();
      }
   }

private:
   Sarn::Ptr<Kiv::Entity> entity_;
   Kiv::Scope scope_;
   std::function<void()> act_;
};

/// A complete mirror, to which a test sends several messages at once as its source.
class StreamRun : public StreamTest {
protected:
   StreamRun() {
      root->coreIs();
      root->leafIs(1, false, Opaque(1.0));
      mount();
      rootHandle = root->streamHandle();
      coreHandle = root->core()->streamHandle();
      leafHandle = root->leaf(1)->streamHandle();
      before = mirror.session->stats().messagesIn;
   }
   Bytes toRoot(char const* name, Bytes const& body, Opcode opcode = Opcode::set) const {
      return message(opcode, rootHandle, idOf(name), body);
   }
   Bytes toLeaf(char const* name, Bytes const& body) const {
      return message(Opcode::set, leafHandle, idOf(Leaf::kivTypeImpl, name), body);
   }
   Bytes toCore(char const* name, Bytes const& body) const {
      return message(Opcode::set, coreHandle, idOf(Core::kivTypeImpl, name), body);
   }
   U64 received() const { return mirror.session->stats().messagesIn - before; }

   U32 rootHandle = 0;
   U32 coreHandle = 0;
   U32 leafHandle = 0;
   U64 before = 0;
};

TEST_F(StreamRun, ValuesAndEmptiedCollectionsOfSeveralEntitiesAreApplied) {
   copy->byNumberIs(1, "stays until it is emptied");
   mirror.receive(concat(toRoot("u8", {7}), toRoot("byText", {}, Opcode::erase), toLeaf("lit", {1}),
                         toLeaf("ticks", {0, 5}), toCore("label", text("x")),
                         toRoot("byNumber", {}, Opcode::erase), toRoot("dial", {11}),
                         toRoot("colour", u32(0))));
   EXPECT_EQ(mirror.session->closeReason(), "");
   EXPECT_EQ(copy->u8(), 7);
   EXPECT_TRUE(copy->leaf(1)->lit());
   EXPECT_EQ(copy->leaf(1)->ticks(), 5);
   EXPECT_EQ(copy->core()->label(), "x");
   EXPECT_EQ(copy->byNumberCount(), 0u);
   EXPECT_EQ(copy->dial(), 11);
   EXPECT_EQ(copy->colour(), KivTest::Colour::red);
   EXPECT_EQ(received(), 8u);
}

TEST_F(StreamRun, AFaultNamesItsMessageAndNothingBehindItIsApplied) {
   EXPECT_EQ(fault(concat(toRoot("u8", {7}), toLeaf("ticks", {0, 5}), toLeaf("lit", {2}),
                          toRoot("s8", {1}))),
             "test.leaf[1].lit (KivTest::Leaf, 259): a bool is neither 0 nor 1 at offset 0");
   EXPECT_EQ(copy->u8(), 7);
   EXPECT_EQ(copy->leaf(1)->ticks(), 5);
   EXPECT_FALSE(copy->leaf(1)->lit());
   EXPECT_EQ(copy->s8(), -5);
   EXPECT_EQ(received(), 3u);
}

TEST_F(StreamRun, AValueOutOfRangeAmongOthersIsNotStored) {
   EXPECT_NE(fault(concat(toRoot("u8", {7}), toRoot("dial", {99}), toRoot("dial", {12})))
                   .find("test.dial (KivTest::Stem, "),
             std::string::npos);
   EXPECT_EQ(copy->dial(), 15);
}

TEST_F(StreamRun, AMessageThatIsTooLongAmongOthersIsAFault) {
   Bytes const huge = toRoot("text", text(std::string(2'000'000, 'x')));
   for (std::size_t arrived : {std::size_t(10), huge.size()}) {
      SCOPED_TRACE(arrived);
      source.connect();
      mirror.connect();
      mount();
      before = mirror.session->stats().messagesIn;
      Bytes const begun(huge.begin(), huge.begin() + static_cast<std::ptrdiff_t>(arrived));
      EXPECT_NE(fault(concat(toRoot("u8", {7}), begun))
                      .find("a message of 2000004 bytes exceeds the bound"),
                std::string::npos)
            << mirror.session->closeReason();
      EXPECT_EQ(copy->u8(), 7);
      EXPECT_EQ(copy->text(), "none");
      EXPECT_EQ(received(), 1u);
   }
}

TEST_F(StreamRun, AnEntityThatAnObserverRemovesGetsNoMoreOfTheMessages) {
   Sarn::Ptr<Leaf> const leaf = copy->leaf(1);
   AtFirstChange const removal(*leaf, [this] { copy->leafDel(1); });
   mirror.receive(concat(toLeaf("ticks", {0, 5}), toLeaf("ticks", {0, 6}), toRoot("u8", {7})));
   EXPECT_EQ(mirror.session->closeReason(), "");
   EXPECT_EQ(copy->leafCount(), 0u);
   EXPECT_EQ(copy->u8(), 7);
   EXPECT_EQ(received(), 3u);
}

TEST_F(StreamRun, TheSessionMayEndInTheMiddle) {
   AtFirstChange const end(*copy->leaf(1), [this] { mirror.session->close("enough"); });
   mirror.receive(concat(toRoot("u8", {7}), toLeaf("ticks", {0, 5}), toLeaf("ticks", {0, 6}),
                         toRoot("u8", {8})));
   EXPECT_EQ(mirror.session->closeReason(), "enough");
   EXPECT_EQ(copy->u8(), 7);
   EXPECT_EQ(copy->leaf(1)->ticks(), 5);
   EXPECT_EQ(received(), 2u);
}

TEST_F(StreamRun, AnObserverThatIsAddedInTheMiddleHearsTheRest) {
   Sarn::Ptr<Leaf> const leaf = copy->leaf(1);
   std::optional<KivTest::Witness> heard;
   AtFirstChange const adder(*copy->core(), [&] { heard.emplace(*leaf); });
   mirror.receive(concat(toLeaf("ticks", {0, 5}), toCore("label", text("x")),
                         toLeaf("ticks", {0, 6}), toLeaf("lit", {1})));
   ASSERT_TRUE(heard.has_value());
   EXPECT_EQ(heard->changes(), "ticks was 5; lit was false");
}

TEST_F(StreamRun, AnObserverSeesTheCountOfTheMessagesUpToItsOwn) {
   U64 seen = 0;
   AtFirstChange const counter(*copy->core(), [&] { seen = received(); });
   mirror.receive(concat(toRoot("u8", {7}), toLeaf("ticks", {0, 5}), toCore("label", text("x")),
                         toRoot("u8", {8})));
   EXPECT_EQ(seen, 3u);
   EXPECT_EQ(received(), 4u);
}

TEST_F(StreamRun, AHandleThatIsGivenToAnotherEntityInTheMiddleMeansThatOne) {
   Bytes const other = concat(u32(leafHandle), u32(2), Bytes{0}, Bytes(8));
   mirror.receive(concat(toLeaf("ticks", {0, 5}), toRoot("leaf", other, Opcode::create),
                         toLeaf("ticks", {0, 6})));
   EXPECT_EQ(mirror.session->closeReason(), "");
   EXPECT_EQ(copy->leaf(1)->ticks(), 5);
   ASSERT_NE(copy->leaf(2), nullptr);
   EXPECT_EQ(copy->leaf(2)->ticks(), 6);
}

TEST_F(StreamRun, AnExceptionOfAnObserverComesOutInItsPlaceAndTheRestFollows) {
   AtFirstChange const thrower(*copy->leaf(1), [] { throw Kiv::Exception("the observer's own"); });
   EXPECT_THROW(mirror.receive(concat(toRoot("u8", {7}), toRoot("u8", {8}), toLeaf("ticks", {0, 5}),
                                      toRoot("s8", {1}), toLeaf("ticks", {0, 6}))),
                Kiv::Exception);
   EXPECT_TRUE(mirror.session->interrupted());
   EXPECT_EQ(copy->u8(), 8);
   EXPECT_EQ(copy->leaf(1)->ticks(), 5);
   EXPECT_EQ(copy->s8(), -5);
   EXPECT_EQ(received(), 3u);
   mirror.receive({});
   EXPECT_EQ(copy->s8(), 1);
   EXPECT_EQ(copy->leaf(1)->ticks(), 6);
   EXPECT_EQ(received(), 5u);
   EXPECT_EQ(mirror.session->closeReason(), "");
}

TEST_F(StreamRun, AFaultBehindAnExceptionThatAnObserverHasCaughtIsThePeers) {
   AtFirstChange const inner(*copy->core(), [] { throw Kiv::Exception("the observer's own"); });
   AtFirstChange const catcher(
         *copy->leaf(1), [this] { EXPECT_THROW(copy->core()->labelIs("caught"), Kiv::Exception); });
   EXPECT_NE(fault(concat(toLeaf("ticks", {0, 5}), toRoot("dial", {99}))).find("maxDial"),
             std::string::npos);
}

// Where the received bytes are cut.

class StreamCut : public StreamRun {
protected:
   Bytes const whole =
         concat(toRoot("u8", {7}), toLeaf("ticks", {0, 5}), toCore("label", text("a longer text")),
                toLeaf("lit", {1}), toRoot("byText", {}, Opcode::erase), toRoot("u8", {8}));

   Bytes part(std::size_t from, std::size_t to) const {
      return {whole.begin() + static_cast<std::ptrdiff_t>(from),
              whole.begin() + static_cast<std::ptrdiff_t>(to)};
   }
   void expectAll() {
      EXPECT_EQ(mirror.session->closeReason(), "");
      EXPECT_EQ(copy->u8(), 8);
      EXPECT_EQ(copy->leaf(1)->ticks(), 5);
      EXPECT_TRUE(copy->leaf(1)->lit());
      EXPECT_EQ(copy->core()->label(), "a longer text");
   }
   void start() {
      copy->u8Is(0);
      copy->leaf(1)->ticksIs(0);
      copy->leaf(1)->litIs(false);
      copy->core()->labelIs("");
      before = mirror.session->stats().messagesIn;
   }
};

TEST_F(StreamCut, MessagesMayArriveInAnyTwoPieces) {
   for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
      SCOPED_TRACE(cut);
      start();
      mirror.receive(part(0, cut));
      mirror.receive(part(cut, whole.size()));
      expectAll();
      EXPECT_EQ(received(), 6u);
   }
}

TEST_F(StreamCut, MessagesMayArriveByteByByte) {
   start();
   for (std::size_t at = 0; at != whole.size(); ++at) {
      mirror.receive(part(at, at + 1));
   }
   expectAll();
   EXPECT_EQ(received(), 6u);
}

TEST_F(StreamCut, OnlyTheIncompleteMessageIsCopied) {
   start();
   Bytes many = part(0, 5);
   for (int i = 0; i != 1000; ++i) {
      many = concat(many, part(5, whole.size()), part(0, 5));
   }
   mirror.receive(part(0, 5));
   std::size_t const held = mirror.session->heldBytes();
   mirror.receive(Bytes(many.begin() + 5, many.end()));
   mirror.receive(part(5, whole.size()));
   expectAll();
   EXPECT_EQ(received(), 6006u);
   EXPECT_LE(mirror.session->heldBytes(), held + 256);
}

TEST_F(StreamCut, WhatAnObserverInterruptsGoesOnInOrderWhereverItWasCut) {
   for (std::size_t cut = 0; cut <= whole.size(); ++cut) {
      for (std::size_t second : {cut, (cut + whole.size()) / 2, whole.size()}) {
         SCOPED_TRACE(std::to_string(cut) + ", " + std::to_string(second));
         start();
         AtFirstChange const thrower(
               *copy, [] { throw Kiv::Exception("the observer's own"); }, Kiv::Scope::subtree);
         int thrown = 0;
         for (Bytes const& piece :
              {part(0, cut), part(cut, second), part(second, whole.size()), Bytes()}) {
            try {
               mirror.receive(piece);
            } catch (Kiv::Exception const&) {
               ++thrown;
            }
         }
         EXPECT_EQ(thrown, 1);
         expectAll();
         EXPECT_EQ(received(), 6u);
      }
   }
}

}  // namespace
