// The generic interface: the table of op codes and statuses, row by row.
#include <gtest/gtest.h>

#include "Kiv/GenericIfImpl.h"
#include "KivTest/Observer.test.h"
#include "KivTest/TestTypes.h"
#include "KivTest/Witness.h"

namespace {

using namespace KivTest;
using Kiv::statusOk;
using Kiv::statusRefused;
using Kiv::statusUnknownField;

class GenericIf : public testing::Test {
protected:
   U8 op(U8 code, Kiv::AttributeId id, void* result = nullptr, Kiv::ValueRef argument = nullptr) {
      Kiv::FieldDescriptor wanted;
      wanted.fieldId = id;
      return Stem::kivTypeImpl.genericIfAttributeOp(result, root.get(), &wanted, code, nullptr,
                                                    argument);
   }
   /// The child that an op on a singleton child returns.
   Sarn::Ptr<Kiv::Entity> childOp(U8 code, Kiv::AttributeId id, Kiv::ValueRef argument = nullptr) {
      alignas(Sarn::Ptr<Kiv::Entity>) unsigned char room[sizeof(Sarn::Ptr<Kiv::Entity>)];
      EXPECT_EQ(op(code, id, room, argument), statusOk);
      auto* const child = reinterpret_cast<Sarn::Ptr<Kiv::Entity>*>(room);
      Sarn::Ptr<Kiv::Entity> taken = std::move(*child);
      std::destroy_at(child);
      return taken;
   }

   Sarn::Ptr<Stem> root = stemFactory("test");
};

TEST_F(GenericIf, Op0ReadsAnAttribute) {
   U8 u8 = 0;
   EXPECT_EQ(op(0, 259, &u8), statusOk);
   EXPECT_EQ(u8, 200);
   double wait = 0;
   EXPECT_EQ(op(0, 269, &wait), statusOk);
   EXPECT_EQ(wait, std::numeric_limits<double>::infinity());
   Kiv::Optional<U8> mark = U8{1};
   std::destroy_at(&mark);
   EXPECT_EQ(op(0, 284, &mark), statusOk);
   EXPECT_FALSE(mark);
}

TEST_F(GenericIf, Op0ReadsConstantsAndDerivedMembersToo) {
   S8 knob = 0;
   EXPECT_EQ(op(0, 277, &knob), statusOk);
   EXPECT_EQ(knob, -2);
   root->count8Is(4);
   U64 total = 0;
   EXPECT_EQ(op(0, 299, &total), statusOk);
   EXPECT_EQ(total, 4u);
   U32 left = 0;
   EXPECT_EQ(op(0, 300, &left), statusOk);
   EXPECT_EQ(left, 3u);
   EXPECT_EQ(attributeText(*root, 280), "\"/run/test\"");
}

TEST_F(GenericIf, Op1WritesAnAttributeThroughItsSetter) {
   Witness published(*root);
   U32 const v = 17;
   EXPECT_EQ(op(1, 263, nullptr, &v), statusOk);
   EXPECT_EQ(op(1, 263, nullptr, &v), statusOk);
   EXPECT_EQ(root->u32(), 17u);
   EXPECT_EQ(published.changes(), "u32 was 4000000000");
   Sarn::String const text = "x";
   EXPECT_EQ(op(1, 270, nullptr, &text), statusOk);
   EXPECT_EQ(root->text(), "x");
}

TEST_F(GenericIf, Op1OutOfRangeThrowsAsTheSetterDoes) {
   U8 const v = 9;
   EXPECT_EQ(
         thrown<Kiv::RangeException>([&] { op(1, 275, nullptr, &v); }),
         "KivTest::Stem::dial < KivTest::TestLimits::minDial or > KivTest::TestLimits::maxDial not "
         "allowed");
   EXPECT_EQ(root->dial(), 15);
}

TEST_F(GenericIf, Op1WithoutAValueIsATypeError) {
   EXPECT_EQ(thrown<Kiv::TypeException>([&] { op(1, 263); }),
             "U32: a value of another type was given");
   EXPECT_EQ(root->u32(), 4000000000u);
}

TEST_F(GenericIf, Op1WithAValueOfAnotherTypeThrows) {
   U8 const narrow = 1;
   S32 const isSigned = 1;
   Sarn::String const text = "1";
   for (Kiv::ValueRef const value :
        {Kiv::ValueRef(&narrow), Kiv::ValueRef(&isSigned), Kiv::ValueRef(&text)}) {
      EXPECT_EQ(thrown<Kiv::TypeException>([&] { op(1, 263, nullptr, value); }),
                "U32: a value of another type was given")
            << value.type->name;
   }
   EXPECT_EQ(root->u32(), 4000000000u);
   Kiv::Optional<U8> const mark = U8{1};
   EXPECT_EQ(thrown<Kiv::TypeException>([&] { op(1, 284, nullptr, &narrow); }),
             "Kiv::Optional<U8>: a value of another type was given");
   EXPECT_EQ(op(1, 284, nullptr, &mark), statusOk);
   unsigned char room[16];
   EXPECT_EQ(thrown<Kiv::TypeException>([&] { op(1, 287, room, &narrow); }),
             "Kiv::String: a value of another type was given")
         << "the name of a named child";
   EXPECT_EQ(root->badge(), nullptr);
}

TEST_F(GenericIf, Op12WithAValueOfAnotherTypeThrows) {
   Pair pair;
   Record const record;
   U8 result = 77;
   EXPECT_EQ(thrown<Kiv::TypeException>([&] {
                Pair::kivTypeImpl.genericIfAttributeOp(&result, &pair, nullptr, 12, &record,
                                                       nullptr);
             }),
             "KivTest::Pair: a value of another type was given");
   EXPECT_EQ(result, 77);
}

TEST_F(GenericIf, Op1OnAConstOrDerivedMemberIsRefused) {
   U32 const v = 1;
   for (Kiv::AttributeId const id : {Kiv::AttributeId(277), Kiv::AttributeId(280),
                                     Kiv::AttributeId(299), Kiv::AttributeId(300)}) {
      EXPECT_EQ(op(1, id, nullptr, &v), statusRefused) << id;
   }
   Sarn::Ptr<Leaf> const leaf = leafFactory(1, true, Opaque(1));
   for (char const* const key : {"number", "origin"}) {
      EXPECT_EQ(leaf->kivType().genericIfAttributeOp(nullptr, leaf.get(),
                                                     leaf->kivType().field(key), 1, nullptr, &v),
                statusRefused);
   }
   EXPECT_EQ(leaf->number(), 1u);
}

TEST_F(GenericIf, AnyOtherOpOnAnAttributeIsRefused) {
   unsigned char room[64];
   for (int code = 0; code != 256; ++code) {
      if (code != 0 && code != 1) {
         EXPECT_EQ(op(static_cast<U8>(code), 259, room, &code), statusRefused) << code;
      }
      if (code > 2) {
         EXPECT_EQ(op(static_cast<U8>(code), 286, room, &code), statusRefused) << code;
      }
   }
}

TEST_F(GenericIf, CollectionsQueuesAndOperationsRefuseEveryOp) {
   unsigned char room[64];
   U32 const v = 1;
   for (int id : {289, 290, 294, 295, 298, 303, 304}) {
      for (int code = 0; code != 256; ++code) {
         EXPECT_EQ(op(static_cast<U8>(code), static_cast<Kiv::AttributeId>(id), room, &v),
                   statusRefused)
               << id << " op " << code;
      }
   }
}

TEST_F(GenericIf, AnIdThatTheTypeDoesNotHaveGives2) {
   unsigned char room[64];
   U32 const v = 1;
   for (int id : {0, 1, 2, 153, 155, 257, 297, 301, 302, 306, 386, 65535}) {
      for (U8 const code : {U8{0}, U8{1}, U8{2}, U8{10}, U8{11}, U8{12}, U8{255}}) {
         EXPECT_EQ(op(code, static_cast<Kiv::AttributeId>(id), room, &v), statusUnknownField)
               << id << " op " << int{code};
      }
   }
}

TEST_F(GenericIf, ASingletonChildIsReadMadeAndRemoved) {
   EXPECT_EQ(childOp(0, 286), nullptr);
   EXPECT_EQ(childOp(2, 286), nullptr) << "op 2 without a child gives 0 and null";
   Sarn::Ptr<Kiv::Entity> const made = childOp(1, 286);
   ASSERT_TRUE(made);
   EXPECT_EQ(made, root->core());
   EXPECT_EQ(made->userCount(), 2u) << "the result is a user of its own";
   EXPECT_EQ(childOp(1, 286), made);
   EXPECT_EQ(childOp(0, 286), made);
   EXPECT_EQ(childOp(2, 286), made);
   EXPECT_EQ(root->core(), nullptr);
   EXPECT_EQ(made->parent(), nullptr);
}

TEST_F(GenericIf, Op1OnANamedChildTakesItsName) {
   Sarn::String const name = "gold";
   Sarn::Ptr<Kiv::Entity> const badge = childOp(1, 287, &name);
   EXPECT_EQ(root->badge()->nameString(), "gold");
   EXPECT_EQ(badge, root->badge());
   unsigned char room[16];
   EXPECT_EQ(op(1, 287, room), statusRefused) << "without a name";
   EXPECT_EQ(root->badge()->nameString(), "gold");
}

TEST_F(GenericIf, FieldId154AnswersOp10Alone) {
   Sarn::String name;
   std::destroy_at(&name);
   ASSERT_EQ(op(10, 154, &name), statusOk);
   EXPECT_EQ(name, "test");
   unsigned char room[64];
   for (int code = 0; code != 256; ++code) {
      if (code != 10) {
         EXPECT_EQ(op(static_cast<U8>(code), 154, room, &name), statusRefused) << code;
      }
   }
}

TEST_F(GenericIf, FieldId154IsUnknownToATypeWithoutName) {
   Sarn::Ptr<Core> const core = coreFactory();
   Kiv::FieldDescriptor wanted;
   wanted.fieldId = Kiv::nameFieldId;
   unsigned char room[64];
   EXPECT_EQ(core->kivType().genericIfAttributeOp(room, core.get(), &wanted, 10, nullptr, nullptr),
             statusUnknownField);
}

TEST_F(GenericIf, Op11TellsWhetherAValueDiffersFromItsDefault) {
   auto differs = [](auto const& v) {
      U8 result = 77;
      EXPECT_EQ(Kiv::typeOf<std::remove_cvref_t<decltype(v)>>().genericIfAttributeOp(
                      &result, const_cast<void*>(static_cast<void const*>(&v)), nullptr, 11,
                      nullptr, nullptr),
                statusOk);
      return result;
   };
   EXPECT_EQ(differs(Opaque()), 0);
   EXPECT_EQ(differs(Opaque(0.5)), 1);
   EXPECT_EQ(differs(Pair()), 0) << "its default is not all zero";
   EXPECT_EQ(differs(Pair(0, 0)), 1);
   EXPECT_EQ(differs(Record()), 0);
   EXPECT_EQ(differs(Record(0, Pair(), U8{0}, "", Colour::blue, 9)), 1);
   EXPECT_TRUE(Pair().isDefault());
   EXPECT_FALSE(Pair(0, 0).isDefault());
   EXPECT_EQ(differs(U32{0}), 0);
   EXPECT_EQ(differs(U32{3}), 1);
}

TEST_F(GenericIf, Op12ComparesTwoValues) {
   Kiv::TypeImpl const& type = Pair::kivTypeImpl;
   Pair a(1, 2);
   Pair const same(1, 2);
   Pair const other(1, 3);
   U8 result = 77;
   EXPECT_EQ(type.genericIfAttributeOp(&result, &a, nullptr, 12, &same, nullptr), statusOk);
   EXPECT_EQ(result, 1);
   EXPECT_EQ(type.genericIfAttributeOp(&result, &a, nullptr, 12, &other, nullptr), statusOk);
   EXPECT_EQ(result, 0);
   EXPECT_EQ(thrown<Kiv::TypeException>(
                   [&] { type.genericIfAttributeOp(&result, &a, nullptr, 12, nullptr, nullptr); }),
             "KivTest::Pair: a value of another type was given");
}

TEST_F(GenericIf, AnyOtherOpOnAWholeValueIsRefused) {
   Pair pair;
   U8 result = 0;
   for (int code = 0; code != 256; ++code) {
      U8 const expected = code == 11 || code == 12 ? statusOk : statusRefused;
      EXPECT_EQ(Pair::kivTypeImpl.genericIfAttributeOp(&result, &pair, nullptr,
                                                       static_cast<U8>(code), &pair, nullptr),
                expected)
            << code;
      EXPECT_EQ(Stem::kivTypeImpl.genericIfAttributeOp(&result, root.get(), nullptr,
                                                       static_cast<U8>(code), root.get(), nullptr),
                statusRefused)
            << "an entity is no value, op " << code;
   }
}

TEST_F(GenericIf, FieldsOfAValueAreReadAndWritten) {
   Kiv::TypeImpl const& type = Record::kivTypeImpl;
   Record record;
   U32 const key = 5;
   U32 read = 0;
   EXPECT_EQ(type.genericIfAttributeOp(nullptr, &record, type.field(2), 1, nullptr, &key),
             statusOk);
   EXPECT_EQ(type.genericIfAttributeOp(&read, &record, type.field(2), 0, nullptr, nullptr),
             statusOk);
   EXPECT_EQ(record.key(), 5u);
   EXPECT_EQ(read, 5u);
   Sarn::String const note = "n";
   EXPECT_EQ(type.genericIfAttributeOp(nullptr, &record, type.field("note"), 1, nullptr, &note),
             statusOk);
   EXPECT_EQ(record.note(), "n");
}

TEST_F(GenericIf, AConstFieldOfAValueRefusesAWrite) {
   Record record;
   U64 const stamp = 1;
   EXPECT_EQ(Record::kivTypeImpl.genericIfAttributeOp(
                   nullptr, &record, Record::kivTypeImpl.field("stamp"), 1, nullptr, &stamp),
             statusRefused);
   EXPECT_EQ(record.stamp(), 9u);
   EXPECT_EQ(Record::kivTypeImpl.field("stamp")->kindWord, 0x2c00);
   EXPECT_EQ(Record::kivTypeImpl.field("note")->kindWord, 0x9c00);
}

TEST_F(GenericIf, EntitiesAreMadeFromTheirArguments) {
   U32 const number = 6;
   bool const lit = true;
   Opaque const origin(4.5);
   std::array<Kiv::ValueRef, 3> const args{&number, &lit, &origin};
   Sarn::Ptr<Kiv::Entity> made;
   std::destroy_at(&made);
   Leaf::kivTypeImpl.genericIfConstructFromCtorArgs(&made, args);
   ASSERT_TRUE(made);
   auto const& leaf = static_cast<Leaf const&>(*made);
   EXPECT_EQ(&leaf.kivType(), &Leaf::kivTypeImpl);
   EXPECT_EQ(leaf.number(), 6u);
   EXPECT_TRUE(leaf.lit());
   EXPECT_EQ(leaf.origin(), origin);
   EXPECT_EQ(leaf.userCount(), 1u);
}

TEST_F(GenericIf, ARootIsMadeFromItsName) {
   Sarn::String const name = "generic";
   std::array<Kiv::ValueRef, 1> const args{&name};
   Sarn::Ptr<Kiv::Entity> const made =
         Stem::kivTypeImpl.entity->genericIfConstructFromCtorArgs(args);
   EXPECT_EQ(*Kiv::entityName(*made), "generic");
   Sarn::Ptr<Kiv::Entity> const core = Core::kivTypeImpl.entity->genericIfConstructFromCtorArgs({});
   EXPECT_EQ(Kiv::entityName(*core), nullptr);
}

TEST_F(GenericIf, ArgumentsOfTheWrongKindOrNumberThrow) {
   auto const fault = [](Kiv::TypeImpl const& type, std::vector<Kiv::ValueRef> const& args) {
      alignas(Record) unsigned char room[sizeof(Record)];
      return thrown<Kiv::NewEntityArgsException>(
            [&] { type.genericIfConstructFromCtorArgs(room, args); });
   };
   U32 const number = 6;
   U8 const byte = 6;
   bool const lit = true;
   Opaque const origin(4.5);
   Sarn::String const name = "n";
   std::string const wrong = ": constructor arguments of the wrong kind or number: ";
   EXPECT_EQ(fault(Leaf::kivTypeImpl, {}), "KivTest::Leaf" + wrong + "takes 3, was given 0");
   EXPECT_EQ(fault(Leaf::kivTypeImpl, {&number, &lit}),
             "KivTest::Leaf" + wrong + "takes 3, was given 2");
   EXPECT_EQ(fault(Leaf::kivTypeImpl, {&number, &lit, &origin, &origin}),
             "KivTest::Leaf" + wrong + "takes 3, was given 4");
   EXPECT_EQ(fault(Leaf::kivTypeImpl, {&byte, &lit, &origin}),
             "KivTest::Leaf" + wrong + "argument 1 is a U32, not U8");
   EXPECT_EQ(fault(Leaf::kivTypeImpl, {&number, &lit, &number}),
             "KivTest::Leaf" + wrong + "argument 3 is a KivTest::Opaque, not U32");
   EXPECT_EQ(fault(Leaf::kivTypeImpl, {&number, nullptr, &origin}),
             "KivTest::Leaf" + wrong + "argument 2 is a bool, not nothing");
   EXPECT_EQ(fault(Stem::kivTypeImpl, {}), "KivTest::Stem" + wrong + "takes 1, was given 0");
   EXPECT_EQ(fault(Stem::kivTypeImpl, {&number}),
             "KivTest::Stem" + wrong + "argument 1 is a Kiv::String, not U32");
   EXPECT_EQ(fault(Core::kivTypeImpl, {&name}), "KivTest::Core" + wrong + "takes 0, was given 1");
   EXPECT_EQ(fault(Pair::kivTypeImpl, {&number, &number}),
             "KivTest::Pair" + wrong + "argument 2 is a S16, not U32");
   EXPECT_EQ(fault(Pair::kivTypeImpl, {&number}), "KivTest::Pair" + wrong + "takes 2, was given 1");
   EXPECT_EQ(fault(Kiv::typeOf<U8>(), {&number}), "U8" + wrong + "argument 1 is a U8, not U32");
   EXPECT_EQ(fault(Kiv::typeOf<U8>(), {}), "U8" + wrong + "takes 1, was given 0");
}

TEST_F(GenericIf, ConstructorArgumentsAreThoseThatTheTypeItselfTakes) {
   auto const names = [](Kiv::TypeImpl const& type) {
      std::string all;
      for (Kiv::AttributeId const id : type.ctorArgs) {
         EXPECT_TRUE(type.isCtorArg(id));
         all += std::string(all.empty() ? "" : " ") +
                (id == Kiv::nameFieldId ? "(name)" : type.field(id)->name);
      }
      return all;
   };
   EXPECT_EQ(names(Stem::kivTypeImpl), "(name)");
   EXPECT_EQ(names(Core::kivTypeImpl), "");
   EXPECT_EQ(names(Leaf::kivTypeImpl), "number lit origin");
   EXPECT_EQ(names(WideLeaf::kivTypeImpl), "number lit") << "it gives its base the origin itself";
   EXPECT_FALSE(WideLeaf::kivTypeImpl.isCtorArg(Leaf::kivTypeImpl.field("origin")->fieldId));
}

TEST_F(GenericIf, ValuesAreMadeFromTheirFields) {
   U32 const first = 1;
   S16 const second = 2;
   std::array<Kiv::ValueRef, 2> const args{&first, &second};
   Pair pair;
   Pair::kivTypeImpl.genericIfConstructFromCtorArgs(&pair, args);
   EXPECT_EQ(pair, Pair(1, 2));
}

TEST_F(GenericIf, ValuesAreCopiedAssignedAndHashed) {
   Kiv::ValueFunctions const& functions = *Record::kivTypeImpl.values;
   Record const source(1, Pair(2, 3), std::nullopt, "a note that lies outside of its string",
                       Colour::red, 4);
   alignas(Record) unsigned char room[sizeof(Record)];
   functions.genericIfConstruct(room, &source);
   auto* const copy = reinterpret_cast<Record*>(room);
   EXPECT_EQ(*copy, source);
   EXPECT_EQ(functions.genericIfHash(copy, 7), source.hash(7));
   EXPECT_NE(functions.genericIfHash(copy, 7), functions.genericIfHash(copy, 8));
   Record const other;
   functions.genericIfVoidPtrIs(copy, &other);
   EXPECT_EQ(*copy, other);
   functions.genericIfDestruct(copy);
}

TEST_F(GenericIf, ATypeWithoutHashThrows) {
   Opaque const opaque(1);
   EXPECT_EQ(
         thrown<Kiv::UnhashableException>([&] { Opaque::kivTypeImpl.genericIfHash(&opaque, 1); }),
         "KivTest::Opaque: values of this type have no hash");
}

}  // namespace
