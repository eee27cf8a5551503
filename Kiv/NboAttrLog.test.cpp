#include "Kiv/NboAttrLog.h"

#include <cmath>
#include <limits>

#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Kiv::NboAttrLog::FaultException;
using Kiv::NboAttrLog::In;
using Kiv::NboAttrLog::Out;

namespace {

static_assert(Kiv::NboAttrLog::byteSwapped(U8{1}) == 1);

class NboAttrLogProperties : public SeededTest {};

template <class Act>
Bytes written(std::size_t size, Act act) {
   Bytes bytes(size);
   Out out(bytes.data(), bytes.size());
   act(out);
   EXPECT_EQ(out.room(), 0u);
   EXPECT_EQ(out.at(), bytes.data() + bytes.size());
   return bytes;
}

In over(Bytes const& bytes) {
   return In(bytes.data(), bytes.data() + bytes.size());
}

/// The message of the fault that `act` finds in `bytes`.
template <class Act>
Sarn::String fault(Bytes const& bytes, Act act) {
   In in = over(bytes);
   return messageOf<FaultException>([&] { act(in); });
}

TEST(Out, WritesBigEndian) {
   EXPECT_EQ(written(2, [](Out& out) { out.writeU16(0x0102); }), (Bytes{1, 2}));
   EXPECT_EQ(written(4, [](Out& out) { out.writeU32(0x01020304); }), (Bytes{1, 2, 3, 4}));
   EXPECT_EQ(written(8, [](Out& out) { out.writeU64(0x0102030405060708); }),
             (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
   EXPECT_EQ(written(7,
                     [](Out& out) {
                        out.writeS8(-1);
                        out.writeS16(-2);
                        out.writeS32(-3);
                     }),
             (Bytes{0xff, 0xff, 0xfe, 0xff, 0xff, 0xff, 0xfd}));
   EXPECT_EQ(written(2,
                     [](Out& out) {
                        out.writebool(true);
                        out.writebool(false);
                     }),
             (Bytes{1, 0}));
   EXPECT_EQ(written(8, [](Out& out) { out.writeS64(-2); }),
             (Bytes{0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xfe}));
}

TEST(Out, WritesFloatingPointAsItsBits) {
   EXPECT_EQ(written(8, [](Out& out) { out.writedouble(1.0); }),
             (Bytes{0x3f, 0xf0, 0, 0, 0, 0, 0, 0}));
   EXPECT_EQ(written(4, [](Out& out) { out.writefloat(-2.0f); }), (Bytes{0xc0, 0, 0, 0}));
   EXPECT_EQ(
         written(8, [](Out& out) { out.writeSeconds(std::numeric_limits<double>::infinity()); }),
         (Bytes{0x7f, 0xf0, 0, 0, 0, 0, 0, 0}));
}

TEST(Out, WritesStringsAsLengthAndBytes) {
   EXPECT_EQ(written(6, [](Out& out) { out.writeString("ab"); }), (Bytes{0, 0, 0, 2, 'a', 'b'}));
   EXPECT_EQ(written(4, [](Out& out) { out.writeString({}); }), (Bytes{0, 0, 0, 0}));
   EXPECT_EQ(written(3, [](Out& out) { out.writeBytes("xyz", 3); }), (Bytes{'x', 'y', 'z'}));
}

#ifndef NDEBUG
TEST(OutDeathTest, WritingPastTheReservedRoomIsAProgrammingError) {
   EXPECT_DEATH(
         {
            U8 bytes[1];
            Out(bytes, 1).writeU16(1);
         },
         "");
}
#endif

TEST(In, KeepsCountOfWhatIsLeft) {
   Bytes const bytes{1, 2, 3, 4, 5, 6, 7};
   In in = over(bytes);
   EXPECT_EQ(in.nextU8(), 1);
   EXPECT_EQ(in.offset(), 1u);
   EXPECT_EQ(in.nextU16(), 0x0203);
   EXPECT_EQ(in.readableBytes(), 4u);
   EXPECT_EQ(in.nextBytes(3), bytes.data() + 3);
   EXPECT_EQ(in.nextU8(), 7);
   in.expectEnd();
   EXPECT_EQ(in.nextBytes(0), bytes.data() + 7);
}

TEST(In, BoolIsZeroOrOne) {
   Bytes const good{0, 1};
   In in = over(good);
   EXPECT_FALSE(in.nextbool());
   EXPECT_TRUE(in.nextbool());
   for (int i = 2; i < 256; ++i) {
      EXPECT_EQ(fault({9, static_cast<U8>(i)},
                      [](In& bad) {
                         bad.nextU8();
                         bad.nextbool();
                      }),
                "a bool is neither 0 nor 1 at offset 1");
   }
}

TEST(In, ReadingPastTheEndIsAFaultThatMovesNothing) {
   Bytes const bytes(7);
   auto const short7 = [&](auto act, std::size_t wanted) {
      In in = over(bytes);
      EXPECT_EQ(messageOf<FaultException>([&] { act(in); }),
                "bytes <= readableBytes(): a value of " + std::to_string(wanted) +
                      " bytes stands where the message has 7 left at offset 0");
      EXPECT_EQ(in.offset(), 0u);
   };
   short7([](In& in) { in.nextU64(); }, 8);
   short7([](In& in) { in.nextS64(); }, 8);
   short7([](In& in) { in.nextdouble(); }, 8);
   short7([](In& in) { in.nextSeconds(); }, 8);
   short7([](In& in) { in.nextBytes(8); }, 8);
   short7([](In& in) { in.nextBytes(std::numeric_limits<std::size_t>::max()); },
          std::numeric_limits<std::size_t>::max());
}

TEST(In, EmptyMessageHasNothing) {
   In in(nullptr, nullptr);
   EXPECT_EQ(in.readableBytes(), 0u);
   in.expectEnd();
   EXPECT_THROW(in.nextU8(), FaultException);
   EXPECT_THROW(in.nextbool(), FaultException);
   EXPECT_THROW(in.nextU16(), FaultException);
   EXPECT_THROW(in.nextU32(), FaultException);
   EXPECT_THROW(in.nextfloat(), FaultException);
   EXPECT_THROW(in.nextString(), FaultException);
}

TEST(In, StringsAreCheckedAgainstMessageAndBound) {
   Bytes const bytes{0, 0, 0, 2, 'a', 'b', 'c'};
   In in = over(bytes);
   EXPECT_EQ(in.nextString(), "ab");
   EXPECT_EQ(in.nextU8(), 'c');
   In bounded = over(bytes);
   EXPECT_EQ(bounded.nextValidString(2), "ab");
   EXPECT_EQ(fault(bytes, [](In& bad) { bad.nextValidString(1); }),
             "a string of 2 bytes exceeds the bound of 1 at offset 0");
   EXPECT_EQ(fault({0, 0, 0, 3, 'a', 'b'}, [](In& bad) { bad.nextString(); }),
             "a string of 3 bytes exceeds the bound of 2 at offset 0");
   EXPECT_THROW(over({0, 0, 0}).nextString(), FaultException);
   for (U8 const first : Bytes{0x01, 0x7f, 0x80, 0xff}) {
      Bytes const huge{first, 0xff, 0xff, 0xff, 'a'};
      EXPECT_THROW(over(huge).nextString(), FaultException);
      EXPECT_THROW(over(huge).nextValidString(0xffffffff), FaultException);
   }
}

TEST(In, BytesAfterTheValueAreAFault) {
   EXPECT_EQ(fault({1, 2, 3},
                   [](In& in) {
                      in.nextU8();
                      in.expectEnd();
                   }),
             "2 bytes follow the value at offset 1");
   try {
      over({1}).expectEnd();
      FAIL();
   } catch (FaultException const& error) {
      EXPECT_EQ(error.offset(), 0u);
   }
}

TEST_F(NboAttrLogProperties, WhatIsWrittenIsReadBack) {
   for (int i = 0; i < 2000; ++i) {
      U64 const v = random() >> random() % 64;
      Sarn::String const text(random() % 20, static_cast<char>(v));
      Bytes const bytes =
            written(1 + 1 + 2 + 4 + 8 + 1 + 2 + 4 + 8 + 4 + 8 + 8 + 4 + text.size(), [&](Out& out) {
               out.writebool((v & 1) != 0);
               out.writeU8(static_cast<U8>(v));
               out.writeU16(static_cast<U16>(v));
               out.writeU32(static_cast<U32>(v));
               out.writeU64(v);
               out.writeS8(static_cast<S8>(v));
               out.writeS16(static_cast<S16>(v));
               out.writeS32(static_cast<S32>(v));
               out.writeS64(static_cast<S64>(v));
               out.writefloat(std::bit_cast<float>(static_cast<U32>(v)));
               out.writedouble(std::bit_cast<double>(v));
               out.writeSeconds(static_cast<double>(v));
               out.writeString(text);
            });
      In in = over(bytes);
      ASSERT_EQ(in.nextbool(), (v & 1) != 0);
      ASSERT_EQ(in.nextU8(), static_cast<U8>(v));
      ASSERT_EQ(in.nextU16(), static_cast<U16>(v));
      ASSERT_EQ(in.nextU32(), static_cast<U32>(v));
      ASSERT_EQ(in.nextU64(), v);
      ASSERT_EQ(in.nextS8(), static_cast<S8>(v));
      ASSERT_EQ(in.nextS16(), static_cast<S16>(v));
      ASSERT_EQ(in.nextS32(), static_cast<S32>(v));
      ASSERT_EQ(in.nextS64(), static_cast<S64>(v));
      ASSERT_EQ(std::bit_cast<U32>(in.nextfloat()), static_cast<U32>(v));
      ASSERT_EQ(std::bit_cast<U64>(in.nextdouble()), v);
      ASSERT_EQ(in.nextSeconds(), static_cast<double>(v));
      ASSERT_EQ(in.nextString(), text);
      in.expectEnd();
   }
}

}  // namespace
