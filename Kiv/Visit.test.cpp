// Visitors of the parts of values and of the members of entities.
#include "Kiv/Visit.h"

#include <gtest/gtest.h>

#include "KivTest/TestTypes.h"

namespace {

using namespace KivTest;
using Kiv::FieldDescriptor;
using Kiv::ValueRef;

/// Writes down how a value is handed out, with its parts.
struct Told {
   std::string operator()(bool v) { return v ? "bool true" : "bool false"; }
   std::string operator()(U64 v) { return "unsigned " + std::to_string(v); }
   std::string operator()(S64 v) { return "signed " + std::to_string(v); }
   std::string operator()(float v) { return "float " + std::to_string(v); }
   std::string operator()(double v) { return "double " + std::to_string(v); }
   std::string operator()(Sarn::String const& v) { return "string " + v; }
   std::string operator()(Kiv::EnumRef v) {
      return "enumeration " + (v.name() != nullptr ? v.name() : std::to_string(v.value));
   }
   std::string operator()(Kiv::OptionalRef v) {
      return v.held.address != nullptr ? "optional of " + Kiv::visitValue(v.held, *this) : "none";
   }
   std::string operator()(Kiv::RecordRef v) {
      std::string parts = "{";
      Kiv::forEachPart(v, [&](FieldDescriptor const& field, ValueRef part) {
         parts += std::string(field.name) + ": " + Kiv::visitValue(part, *this) + "; ";
      });
      return parts + "}";
   }
   std::string operator()(Kiv::OpaqueRef v) {
      return "opaque " + v.value.type->genericIfStrRep(v.value.address);
   }
};

template <class T>
std::string told(T const& v) {
   return Kiv::visitValue(&v, Told());
}

TEST(VisitValue, HandsAValueOutAsWhatItIs) {
   EXPECT_EQ(told(true), "bool true");
   EXPECT_EQ(told(U8{200}), "unsigned 200");
   EXPECT_EQ(told(U16{60000}), "unsigned 60000");
   EXPECT_EQ(told(U32{4000000000}), "unsigned 4000000000");
   EXPECT_EQ(told(~U64{0}), "unsigned 18446744073709551615");
   EXPECT_EQ(told(S8{-5}), "signed -5");
   EXPECT_EQ(told(S16{-3}), "signed -3");
   EXPECT_EQ(told(S32{-2000000000}), "signed -2000000000");
   EXPECT_EQ(told(std::numeric_limits<S64>::min()), "signed -9223372036854775808");
   EXPECT_EQ(told(0.5F), "float 0.500000");
   EXPECT_EQ(told(0.5), "double 0.500000");
   EXPECT_EQ(told(Sarn::String("x")), "string x");
   EXPECT_EQ(told(Colour::blue), "enumeration blue");
   EXPECT_EQ(told(static_cast<Colour>(99)), "enumeration 99");
   EXPECT_EQ(told(Dorn::IntfId("Ethernet1")), "opaque Ethernet1");
}

TEST(VisitValue, GoesIntoOptionalsAndFields) {
   EXPECT_EQ(told(Kiv::Optional<Pair>()), "none");
   EXPECT_EQ(told(Kiv::Optional<Pair>(Pair(3, -4))),
             "optional of {first: unsigned 3; second: signed -4; }");
   EXPECT_EQ(told(Record(1, Pair(2, 3), U8{4}, "note", Colour::red, 5)),
             "{key: unsigned 1; pair: {first: unsigned 2; second: signed 3; }; "
             "mark: optional of unsigned 4; note: string note; colour: enumeration red; "
             "stamp: unsigned 5; }");
}

TEST(VisitValue, TellsTheFieldsOfATypeInTheOrderOfItsConstructor) {
   std::string names;
   Kiv::forEachPart(Record::kivTypeImpl,
                    [&](FieldDescriptor const& field) { names += std::string(field.name) + " "; });
   EXPECT_EQ(names, "key pair mark note colour stamp ");
   auto const refuse = [](FieldDescriptor const& field) { ADD_FAILURE() << field.name; };
   Kiv::forEachPart(Kiv::typeOf<U8>(), refuse);
   Kiv::forEachPart(Kiv::typeOf<Dorn::IntfId>(), refuse);
   Kiv::forEachPart(Stem::kivTypeImpl, refuse);
}

TEST(VisitValue, TellsTheEnumeratorsInTheOrderOfTheDeclaration) {
   std::string all;
   Kiv::forEachEnumerator(Kiv::typeOf<Colour>(), [&](U8 value, char const* name) {
      all += std::string(name) + "=" + std::to_string(value) + " ";
   });
   EXPECT_EQ(all, "red=0 green=1 blue=7 ");
   Kiv::forEachEnumerator(Kiv::typeOf<U8>(), [](U8, char const* name) { ADD_FAILURE() << name; });
}

/// Writes down members as they are handed out.
struct Members {
   std::string all;

   void value(FieldDescriptor const& field, ValueRef value) {
      all += std::string(field.name) + " = " + told(value) + "\n";
   }
   void child(FieldDescriptor const& field, Kiv::Entity const* child) {
      all += std::string(field.name) + ": " + (child != nullptr ? child->kivType().name : "none") +
             "\n";
   }
   void collection(FieldDescriptor const& field, Kiv::CollectionCursor& at) {
      for (; at->valid(); at->next()) {
         all += std::string(field.name) + "[" + told({*field.keyType, at->key()}) + "]: " +
                (at->child() != nullptr ? at->child()->kivType().name
                                        : told({*field.type, at->value()})) +
                "\n";
      }
   }
   void queue(FieldDescriptor const& field, Kiv::CollectionCursor& at, U32 next) {
      collection(field, at);
      all += std::string(field.name) + " next " + std::to_string(next) + "\n";
   }

   static std::string told(ValueRef value) { return Kiv::visitValue(value, Told()); }
};

TEST(VisitMembers, HandsEachMemberOutByItsKindInIdOrder) {
   auto const leaf = leafFactory(7, true, Opaque(0.5));
   leaf->twigIs(Level::high);
   Members members;
   Kiv::visitMembers(*leaf, members);
   EXPECT_EQ(members.all,
             "number = unsigned 7\n"
             "lit = bool true\n"
             "origin = {content: double 0.500000; }\n"
             "ticks = unsigned 0\n"
             "twig[enumeration high]: KivTest::Twig\n");
}

TEST(VisitMembers, HandsOutChildrenMapsAndQueues) {
   auto const root = stemFactory("root");
   root->recordIs(Record(5, Pair(), std::nullopt, "", Colour::red, 9));
   root->sortedIs(-2, "b");
   root->samplesEnq(1.5);
   root->samplesEnq(2.5);
   root->samplesDeq();
   Members members;
   for (char const* const name :
        {"core", "medal", "record", "sorted", "samples", "total", "above"}) {
      Kiv::visitMember(*root, *root->kivType().field(std::string_view(name)), members);
   }
   EXPECT_EQ(
         members.all,
         "core: none\n"
         "medal: KivTest::Badge\n"
         "record[unsigned 5]: {key: unsigned 5; pair: {first: unsigned 0; second: signed -1; }; "
         "mark: none; note: string ; colour: enumeration red; stamp: unsigned 9; }\n"
         "sorted[signed -2]: string b\n"
         "samples[unsigned 2]: double 2.500000\n"
         "samples next 3\n"
         "total = unsigned 0\n");
}

class PresentTest : public testing::Test {
protected:
   Kiv::Present present(char const* name, void const* key = nullptr) {
      return {*root, *root->kivType().field(std::string_view(name)), key};
   }
   Sarn::Ptr<Stem> root = stemFactory("root");
};

TEST_F(PresentTest, IsTheValueOfAnAttribute) {
   EXPECT_EQ(Members::told(present("u8").value()), "unsigned 200");
   EXPECT_EQ(present("u8").child(), nullptr);
}

TEST_F(PresentTest, IsASingletonChildOrNothing) {
   EXPECT_FALSE(present("core"));
   auto const core = root->coreIs();
   EXPECT_TRUE(present("core"));
   EXPECT_EQ(present("core").child(), core.get());
   EXPECT_EQ(present("core").value().address, nullptr);
}

TEST_F(PresentTest, IsTheElementUnderAKeyOrNothing) {
   U32 const seven = 7;
   EXPECT_FALSE(present("byNumber", &seven));
   root->byNumberIs(7, "seven");
   EXPECT_EQ(Members::told(present("byNumber", &seven).value()), "string seven");
   EXPECT_FALSE(present("byNumber")) << "a collection as a whole is no value";
   EXPECT_FALSE(present("leaf", &seven));
   auto const leaf = root->leafIs(7, false, Opaque());
   EXPECT_EQ(present("leaf", &seven).child(), leaf.get());
}

TEST_F(PresentTest, IsTheElementOfAQueueWithANumberOrNothing) {
   root->samplesEnq(1.5);
   root->samplesEnq(2.5);
   root->samplesDeq();
   U32 number = 1;
   EXPECT_FALSE(present("samples", &number));
   number = 2;
   EXPECT_EQ(Members::told(present("samples", &number).value()), "double 2.500000");
   number = 3;
   EXPECT_FALSE(present("samples", &number));
}

}  // namespace
