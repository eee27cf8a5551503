// A module record walked only by its layout: bytes, offsets and counts, as a program without the
// module's header would. The result is compared with the type data.
#include <gtest/gtest.h>

#include <algorithm>

#include "Kiv/AttrOps.h"
#include "KivTest/RecordWalk.test.h"
#include "KivTest/TestTypes.h"
#include "KivTest/TestTypesRecord.h"

namespace {

using KivTest::MemberBytes;
using KivTest::RecordWalk;
using KivTest::TypeBytes;

class ModuleRecord : public testing::Test {
protected:
   RecordWalk const walk{&_TestTypes_7e57ab1e_kivModule};
};

TEST_F(ModuleRecord, HasItsTypesInTheOrderOfTheirNames) {
   std::vector<std::string> names;
   for (U32 i = 0; i != walk.typeCount(); ++i) {
      names.push_back(walk.type(i).name);
   }
   EXPECT_EQ(names, (std::vector<std::string>{"KivTest::Badge", "KivTest::Colour", "KivTest::Core",
                                              "KivTest::Hedge", "KivTest::Leaf", "KivTest::Level",
                                              "KivTest::Opaque", "KivTest::Pair", "KivTest::Record",
                                              "KivTest::Stem", "KivTest::Twig", "KivTest::Weighing",
                                              "KivTest::WideLeaf", "KivTest::Withe"}));
}

TEST_F(ModuleRecord, NamesEveryTypeThatItDefinesOrRefersToInOrder) {
   auto const names = RecordWalk::names(walk.typeNames());
   EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
   for (char const* const name : {"Dorn::IntfId", "Kiv::Seconds", "Kiv::String", "KivTest::Stem",
                                  "S8", "U64", "bool", "double", "float"}) {
      EXPECT_TRUE(std::binary_search(names.begin(), names.end(), name)) << name;
   }
}

TEST_F(ModuleRecord, TheTableOfMemberNamesBeginsWithAnEmptyName) {
   EXPECT_EQ(*walk.memberNames(), '\0');
   auto const names = RecordWalk::names(walk.memberNames() + 1);
   EXPECT_EQ(std::count(names.begin(), names.end(), "mark"), 1) << "each name once";
   EXPECT_EQ(std::count(names.begin(), names.end(), "dial"), 1);
}

TEST_F(ModuleRecord, TellsKindSizeAndAlignmentOfEachType) {
   TypeBytes const colour = walk.type(1);
   EXPECT_EQ(colour.kind, 0x25u);
   EXPECT_EQ(colour.size, 1u);
   TypeBytes const core = walk.type(2);
   EXPECT_EQ(core.kind, 0x260u) << "an entity that needs no arguments";
   TypeBytes const leaf = walk.type(4);
   EXPECT_EQ(leaf.kind, 0x60u);
   EXPECT_EQ(leaf.size, sizeof(KivTest::Leaf));
   EXPECT_EQ(leaf.alignment, alignof(KivTest::Leaf));
   TypeBytes const pair = walk.type(7);
   EXPECT_EQ(pair.kind, 0x21u);
   EXPECT_EQ(pair.size, sizeof(KivTest::Pair));
   EXPECT_EQ(walk.type(9).flags, 2u) << "made with a name";
   EXPECT_EQ(walk.type(12).flags, 1u) << "derived";
}

TEST_F(ModuleRecord, GroupsMembersByTypeWithoutGaps) {
   U32 next = 0;
   for (U32 i = 0; i != walk.typeCount(); ++i) {
      EXPECT_EQ(walk.type(i).firstMember, next) << walk.type(i).name;
      next += walk.type(i).memberCount;
      EXPECT_EQ(walk.count(i, 0), walk.type(i).memberCount);
   }
}

TEST_F(ModuleRecord, EnumeratorsHaveARunningIndexTheirOwnerAndTheirValue) {
   struct Row {
      char const* name;
      U16 id;
      U16 owner;
      U16 value;
   };
   Row const rows[] = {{"red", 0, 1, 0}, {"green", 1, 1, 1},  {"blue", 2, 1, 7},
                       {"low", 3, 5, 0}, {"middle", 4, 5, 1}, {"high", 5, 5, 2}};
   for (Row const& row : rows) {
      TypeBytes const type = walk.type(row.owner);
      MemberBytes const member = walk.member(type.firstMember + (row.id - row.owner / 5 * 3u));
      EXPECT_EQ(member.name, row.name);
      EXPECT_EQ(member.id, row.id);
      EXPECT_EQ(member.owner, row.owner);
      EXPECT_EQ(member.value, row.value);
      EXPECT_TRUE(member.zeroAtTheEnd);
   }
}

/// Compares every member record of an entity or value type with the type's own rows.
TEST_F(ModuleRecord, AgreesWithWhatTheTypesSay) {
   for (U32 i = 0; i != walk.typeCount(); ++i) {
      TypeBytes const bytes = walk.type(i);
      Kiv::TypeImpl const* const type = Kiv::typeByName(bytes.name);
      ASSERT_NE(type, nullptr) << bytes.name;
      EXPECT_EQ(type->index, i);
      EXPECT_EQ(type->module(), &_TestTypes_7e57ab1e_kivModule);
      EXPECT_EQ(type->size, bytes.size);
      if (type->kind == Kiv::TypeKind::enumeration) {
         continue;
      }
      U32 member = bytes.firstMember;
      if (type->named) {
         MemberBytes const name = walk.member(member++);
         EXPECT_EQ(name.name, "nameString");
         EXPECT_EQ(name.id, 154);
         EXPECT_EQ(name.kind, 0x0810);
      }
      U32 streamed = 0;
      U32 collections = 0;
      U32 operations = 0;
      for (U16 row = 0; row != type->rowCount; ++row) {
         Kiv::FieldDescriptor const& field = type->rows[row];
         EXPECT_EQ(field.fieldId, type->firstId + row) << bytes.name;
         if (field.kind == Kiv::MemberKind::none) {
            continue;
         }
         MemberBytes const record = walk.member(member++);
         EXPECT_EQ(record.name, field.name);
         EXPECT_EQ(record.id, field.fieldId) << field.name;
         EXPECT_EQ(record.kind, field.kindWord) << field.name;
         EXPECT_TRUE(record.zeroAtTheEnd);
         streamed += field.has(Kiv::FieldDescriptor::streamed);
         operations += field.kind == Kiv::MemberKind::operation;
         collections += field.ops != nullptr &&
                        (field.ops->collection != nullptr || field.ops->queue != nullptr);
      }
      EXPECT_EQ(member, U32{bytes.firstMember} + bytes.memberCount) << bytes.name;
      EXPECT_EQ(walk.count(i, 1), streamed) << bytes.name;
      EXPECT_EQ(walk.count(i, 2), collections) << bytes.name;
      EXPECT_EQ(walk.count(i, 3), operations) << bytes.name;
   }
}

TEST_F(ModuleRecord, PointsToTheFunctionsOfEachType) {
   for (U32 i = 0; i != walk.typeCount(); ++i) {
      Kiv::TypeImpl const& type = *Kiv::typeByName(walk.type(i).name);
      void const* const functions = walk.functions(i);
      switch (type.kind) {
         case Kiv::TypeKind::entity: {
            EXPECT_EQ(functions, type.entity);
            auto const* const words = static_cast<void const* const*>(functions);
            EXPECT_NE(words[0], nullptr) << type.name;
            EXPECT_NE(words[1], nullptr) << type.name;
            EXPECT_EQ(words[2] != nullptr, walk.count(i, 2) != 0 || type.base != nullptr)
                  << "an iterator where there is a collection: " << type.name;
            auto const* const stream = static_cast<void const* const*>(words[3]);
            for (int const entry : {0, 1, 3, 4, 6, 8, 9}) {
               EXPECT_NE(stream[entry], nullptr) << type.name << " " << entry;
            }
            for (int const entry : {2, 5, 7}) {
               EXPECT_EQ(stream[entry], nullptr) << type.name << " " << entry;
            }
            break;
         }
         case Kiv::TypeKind::value: {
            EXPECT_EQ(functions, type.values);
            auto const* const words = static_cast<void const* const*>(functions);
            for (int const entry : {0, 1, 2, 3, 6, 7}) {
               EXPECT_NE(words[entry], nullptr) << type.name << " " << entry;
            }
            EXPECT_EQ(words[4], nullptr);
            EXPECT_EQ(words[5], nullptr);
            break;
         }
         default:
            EXPECT_EQ(functions, nullptr) << type.name;
      }
   }
}

TEST_F(ModuleRecord, SaysWhichModulesItDependsOn) {
   Kiv::ModuleData const& data = *_TestTypes_7e57ab1e_kivModule.data;
   EXPECT_STREQ(data.name, "TestTypes");
   EXPECT_EQ(data.hash, 0x7e57ab1eu);
   ASSERT_EQ(data.dependsOnCount, 1u);
   EXPECT_STREQ(data.dependsOn[0], "Dorn");
}

}  // namespace
