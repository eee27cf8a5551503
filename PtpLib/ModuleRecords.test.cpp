// The records of the five modules as seen by a program that was built without their headers: found
// by symbol and read as bytes. Their content is compared with the declarations, using the
// checked-in lists of ids, and with the answers of the generic interface.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>

#include "Kiv/AttrOps.h"
#include "Kiv/Entity.h"
#include "Kiv/Glue/EnumType.h"
#include "Kiv/Module.h"
#include "Kiv/Types.h"
#include "KivTest/RecordWalk.test.h"

namespace {

using KivTest::MemberBytes;
using KivTest::RecordWalk;
using KivTest::TypeBytes;
using Names = std::vector<std::string>;

struct ModuleCase {
   char const* name;
   char const* symbol;
   /// The namespace of the types, which are listed in the order of the record.
   char const* nameSpace;
   Names types;
   /// Some types that the module only refers to.
   Names mentioned;
};

std::vector<ModuleCase> const& modules() {
   static std::vector<ModuleCase> const all = {
         {"PtpMib", "_PtpMib_b0acfc69_kivModule", "PtpMib::", {"ClockRoleType", "RxTxMode"}, {}},
         {"PtpMpassStatedbTypes",
          "_PtpMpassStatedbTypes_fbc0540_kivModule",
          "Ptp::Mpass::",
          {"DisabledReason", "Status"},
          {}},
         {"PtpOpenConfig",
          "_PtpOpenConfig_3a9966ae_kivModule",
          "Openconfig::Ptp::",
          {"ClockQuality", "ClockQualityState", "CurrentDS", "CurrentDSState", "DefaultDS",
           "DefaultDSState", "Instance", "InstanceType", "TimePropertiesDS",
           "TimePropertiesDSState", "TransparentClockDefaultDS", "TransparentClockDefaultDSState"},
          {"U16", "U8"}},
         {"PtpStatusStatedbTypes",
          "_PtpStatusStatedbTypes_298ecaeb_kivModule",
          "Ptp::",
          {"Config",
           "CurrentDS",
           "DefaultDS",
           "DomainNumberInfo",
           "ForeignMasterDS",
           "FpgaAndSystemTime",
           "HwConfig",
           "HwIntfConfig",
           "HwIntfStatus",
           "HwStatus",
           "HwTime",
           "IntfConfig",
           "IntfDomainNumberInfo",
           "IntfStatus",
           "LinuxTsOptions",
           "ManagementIntfConfig",
           "ParentDS",
           "ParentSourceAddresses",
           "PortDS",
           "PortDS_G8275_2",
           "PtpMibData",
           "PtpMibPortData",
           "RegionBoundaryIntfConfig",
           "Status",
           "SystemClockConfig",
           "TimePropertiesDS",
           "VlanConfig",
           "VlanStatus"},
          {"Bridging::VlanIdOrNone", "Dorn::EthAddr", "Dorn::IntfId", "Dorn::IpGenAddr",
           "Kiv::Seconds", "Kiv::String", "Ptp::MessageTypeNumber", "Ptp::PortDSKey",
           "Ptp::PortIdentity", "U64", "U8", "bool"}},
         {"PtpUcastNegConfig",
          "_PtpUcastNegConfig_89e06b96_kivModule",
          "Ptp::",
          {"UcastNegMsgProfile", "UcastNegProfile"},
          {"S8", "U32"}},
   };
   return all;
}

void PrintTo(ModuleCase const& module, std::ostream* out) {
   *out << module.name;
}

/// A declared type, as described by the checked-in list.
struct Declared {
   /// "name id kind", or "name value" for an enumerator.
   Names members;
   Names keywords;

   bool isEnumeration() const { return keywords.front() == "enumerator"; }
   bool isValue() const { return members.front().find(" 2 ") != std::string::npos; }
   U32 count(Names const& wanted) const {
      return static_cast<U32>(std::count_if(keywords.begin(), keywords.end(), [&](auto const& k) {
         return std::count(wanted.begin(), wanted.end(), k) != 0;
      }));
   }
};

std::map<std::string, Declared> declaredTypes(std::string const& module) {
   std::ifstream file(PTPLIB_SOURCE_DIR "/tests/golden/" + module + ".ids");
   std::map<std::string, Declared> all;
   for (std::string line; std::getline(file, line);) {
      std::istringstream words(line);
      std::string ofModule, type, name, id, keyword, kind;
      words >> ofModule >> type >> name >> id >> keyword >> kind;
      Declared& declared = all[type];
      declared.members.push_back(name + " " + id + (kind.empty() ? "" : " " + kind));
      declared.keywords.push_back(keyword);
   }
   return all;
}

std::string hex(U32 number) {
   char text[12];
   std::snprintf(text, sizeof text, "0x%04x", number);
   return text;
}

class ModuleRecords : public testing::TestWithParam<ModuleCase> {
protected:
   void SetUp() override {
      ASSERT_NE(walk.record(), nullptr);
      ASSERT_EQ(walk.typeCount(), GetParam().types.size());
      ASSERT_EQ(declared.size(), GetParam().types.size());
   }

   RecordWalk const walk{dlsym(RTLD_DEFAULT, GetParam().symbol)};
   std::map<std::string, Declared> const declared = declaredTypes(GetParam().name);
};

TEST_P(ModuleRecords, HaveTheirTypesInTheOrderOfTheirNames) {
   for (U32 i = 0; i != walk.typeCount(); ++i) {
      EXPECT_EQ(walk.type(i).name, GetParam().nameSpace + GetParam().types[i]);
   }
}

TEST_P(ModuleRecords, NameEveryTypeThatTheyDefineOrReferToOnceAndInOrder) {
   Names const names = RecordWalk::names(walk.typeNames());
   EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
   EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
   auto const has = [&](std::string const& name) {
      return std::binary_search(names.begin(), names.end(), name);
   };
   for (std::string const& type : GetParam().types) {
      EXPECT_TRUE(has(GetParam().nameSpace + type)) << type;
   }
   for (std::string const& type : GetParam().mentioned) {
      EXPECT_TRUE(has(type)) << type;
   }
   // The table contains the type names of all members.
   for (std::string const& type : GetParam().types) {
      auto const& impl = *Kiv::typeByName(GetParam().nameSpace + type);
      for (U16 row = 0; row != impl.rowCount && impl.kind != Kiv::TypeKind::enumeration; ++row) {
         Kiv::FieldDescriptor const& field = impl.rows[row];
         if (field.type != nullptr && std::strncmp(field.type->name, "Kiv::Optional<", 14) != 0) {
            // A time is its own type in a declaration and a double in C++.
            std::string const name = field.type->name;
            EXPECT_TRUE(has(name) || (name == "double" && has("Kiv::Seconds")))
                  << type << "." << field.name << " : " << name;
         }
         if (field.keyType != nullptr) {
            EXPECT_TRUE(has(field.keyType->name)) << type << "." << field.name;
         }
      }
   }
}

TEST_P(ModuleRecords, HaveATableOfMemberNamesThatBeginsWithAnEmptyOne) {
   EXPECT_EQ(*walk.memberNames(), '\0');
   Names names = RecordWalk::names(walk.memberNames() + 1);
   std::sort(names.begin(), names.end());
   EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end()) << "each name once";
   Names wanted;
   for (auto const& [type, members] : declared) {
      for (std::string const& member : members.members) {
         wanted.push_back(member.substr(0, member.find(' ')));
      }
   }
   std::sort(wanted.begin(), wanted.end());
   wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());
   EXPECT_EQ(names, wanted);
}

TEST_P(ModuleRecords, HaveTheMembersIdsAndKindsOfTheDeclarations) {
   U32 next = 0;
   U32 enumerators = 0;
   U32 index = 0;
   for (auto const& [name, type] : declared) {  // a map is sorted by name
      TypeBytes const bytes = walk.type(index);
      ASSERT_EQ(bytes.name, name);
      EXPECT_EQ(bytes.firstMember, next) << name;
      EXPECT_EQ(bytes.memberCount, type.members.size()) << name;
      Names found;
      for (U32 i = 0; i != bytes.memberCount; ++i) {
         MemberBytes const member = walk.member(next + i);
         EXPECT_TRUE(member.zeroAtTheEnd) << name << "." << member.name;
         if (type.isEnumeration()) {
            EXPECT_EQ(member.id, enumerators++) << name << "." << member.name;
            EXPECT_EQ(member.owner, index) << name << "." << member.name;
            found.push_back(member.name + " " + std::to_string(member.value));
         } else {
            EXPECT_EQ(member.value, 0) << name << "." << member.name;
            found.push_back(member.name + " " + std::to_string(member.id) + " " + hex(member.kind));
         }
      }
      EXPECT_EQ(found, type.members) << name;
      next += bytes.memberCount;
      ++index;
   }
}

TEST_P(ModuleRecords, CountMembersCollectionsAndOperations) {
   for (U32 i = 0; i != walk.typeCount(); ++i) {
      TypeBytes const bytes = walk.type(i);
      Declared const& type = declared.at(bytes.name);
      EXPECT_EQ(walk.count(i, 0), type.members.size()) << bytes.name;
      EXPECT_EQ(walk.count(i, 2), type.count({"children", "map", "ordered", "queue"}))
            << bytes.name;
      EXPECT_EQ(walk.count(i, 3), type.count({"op"})) << bytes.name;
   }
}

TEST_P(ModuleRecords, TellTheKindOfEachType) {
   for (U32 i = 0; i != walk.typeCount(); ++i) {
      TypeBytes const bytes = walk.type(i);
      Declared const& type = declared.at(bytes.name);
      if (type.isEnumeration()) {
         EXPECT_EQ(bytes.kind, 0x25u) << bytes.name;
         EXPECT_EQ(bytes.size, 1u) << bytes.name;
      } else if (type.isValue()) {
         EXPECT_EQ(bytes.kind, 0x21u) << bytes.name;
      } else {
         bool const isPlain = type.count({"name", "key", "const"}) == 0;
         EXPECT_EQ(bytes.kind & 0xff, 0x60u) << bytes.name;
         EXPECT_EQ(bytes.flags >> 1 & 1, type.count({"name"})) << bytes.name;
         EXPECT_EQ(bytes.flags & 1, bytes.name == "Ptp::ManagementIntfConfig" ? 1u : 0u);
         EXPECT_EQ(bytes.kind, isPlain && (bytes.flags & 1) == 0 ? 0x260u : 0x60u) << bytes.name;
      }
   }
}

TEST_P(ModuleRecords, AgreeWithTheGenericInterface) {
   for (U32 i = 0; i != walk.typeCount(); ++i) {
      TypeBytes const bytes = walk.type(i);
      Kiv::TypeImpl const* const type = Kiv::typeByName(bytes.name);
      ASSERT_NE(type, nullptr) << bytes.name;
      EXPECT_EQ(static_cast<void const*>(type->module()), walk.record());
      EXPECT_EQ(type->index, i);
      EXPECT_EQ(type->name, bytes.name);
      EXPECT_EQ(type->size, bytes.size) << bytes.name;
      EXPECT_EQ(type->alignment, bytes.alignment) << bytes.name;
      if (type->kind == Kiv::TypeKind::enumeration) {
         for (U32 m = 0; m != bytes.memberCount; ++m) {
            MemberBytes const member = walk.member(bytes.firstMember + m);
            U8 const value = static_cast<U8>(member.value);
            EXPECT_EQ(type->genericIfStrRep(&value), member.name) << bytes.name;
            U8 parsed = 0xff;
            Kiv::CharRange text(member.name);
            type->genericIfStrepToValue(&parsed, text);
            EXPECT_EQ(parsed, value) << bytes.name << "::" << member.name;
         }
         continue;
      }
      U32 member = bytes.firstMember;
      if (type->named) {
         EXPECT_EQ(walk.member(member).name, "nameString");
         EXPECT_EQ(walk.member(member).id, 154);
         EXPECT_EQ(walk.member(member++).kind, 0x0810);
      }
      U32 streamed = 0;
      for (U16 row = 0; row != type->rowCount; ++row) {
         if (type->rows[row].kind == Kiv::MemberKind::none) {
            continue;
         }
         MemberBytes const record = walk.member(member++);
         // The id and the name both lead to the member that the record describes.
         Kiv::FieldDescriptor const* const field = type->field(record.id);
         ASSERT_NE(field, nullptr) << bytes.name << "." << record.name;
         EXPECT_EQ(type->field(std::string_view(record.name)), field);
         EXPECT_EQ(field->name, record.name) << bytes.name;
         EXPECT_EQ(field->kindWord, record.kind) << bytes.name << "." << record.name;
         streamed += field->has(Kiv::FieldDescriptor::streamed);
      }
      EXPECT_EQ(member, U32{bytes.firstMember} + bytes.memberCount) << bytes.name;
      EXPECT_EQ(walk.count(i, 1), streamed) << bytes.name;
   }
}

/// Copies, prints, reads back, assigns and destroys values using only the eight words of the
/// function tables of their types.
TEST_P(ModuleRecords, DriveValuesThroughTheirFunctionTables) {
   for (U32 i = 0; i != walk.typeCount(); ++i) {
      TypeBytes const bytes = walk.type(i);
      if (bytes.kind != 0x21) {
         continue;
      }
      auto const* const words = static_cast<void const* const*>(walk.functions(i));
      for (int const entry : {0, 1, 2, 3, 6, 7}) {
         ASSERT_NE(words[entry], nullptr) << bytes.name << " " << entry;
      }
      EXPECT_EQ(words[4], nullptr);
      EXPECT_EQ(words[5], nullptr);
      auto const construct = KivTest::at<void (*)(void*, void const*)>(words, 0);
      auto const destruct = KivTest::at<void (*)(void*)>(words, 8);
      auto const parse = KivTest::at<void (*)(void*, Kiv::CharRange&)>(words, 16);
      auto const print = KivTest::at<void (*)(Sarn::String&, void const*)>(words, 24);
      auto const hash = KivTest::at<U32 (*)(void const*, U32)>(words, 48);
      auto const assign = KivTest::at<void (*)(void*, void const*)>(words, 56);

      Kiv::TypeImpl const& type = *Kiv::typeByName(bytes.name);
      std::size_t const units = bytes.size / sizeof(std::max_align_t) + 1;
      auto const original = std::make_unique<std::max_align_t[]>(units);
      auto const copy = std::make_unique<std::max_align_t[]>(units);
      auto const parsed = std::make_unique<std::max_align_t[]>(units);
      type.support->construct(original.get());
      construct(copy.get(), original.get());
      Sarn::String text;
      print(text, copy.get());
      bool const isTransparent = bytes.name == "Openconfig::Ptp::ClockQuality";
      EXPECT_EQ(text.rfind(bytes.name + (isTransparent ? "State(" : "("), 0), 0u) << text;
      EXPECT_EQ(text, type.genericIfStrRep(original.get()));
      Kiv::CharRange range(text);
      parse(parsed.get(), range);
      range.expectEnd();
      EXPECT_TRUE(type.support->isEq(parsed.get(), original.get())) << text;
      assign(copy.get(), parsed.get());
      EXPECT_TRUE(type.support->isEq(copy.get(), original.get())) << text;
      try {
         EXPECT_EQ(hash(copy.get(), 7), hash(original.get(), 7)) << text;
      } catch (Kiv::UnhashableException const&) {
         EXPECT_TRUE(bytes.name == "Ptp::LinuxTsOptions" ||
                     bytes.name == "Ptp::ParentSourceAddresses")
               << bytes.name;
      }
      for (auto const* const value : {&original, &copy, &parsed}) {
         destruct(value->get());
      }
   }
}

/// Creates roots using the first words of their tables, and reads their names.
TEST_P(ModuleRecords, DriveEntitiesThroughTheirFunctionTables) {
   for (U32 i = 0; i != walk.typeCount(); ++i) {
      TypeBytes const bytes = walk.type(i);
      if ((bytes.kind & 0xff) == 0x25) {
         EXPECT_EQ(walk.functions(i), nullptr) << "an enumeration has none: " << bytes.name;
      }
      if ((bytes.kind & 0xff) != 0x60) {
         continue;
      }
      auto const* const words = static_cast<void const* const*>(walk.functions(i));
      ASSERT_NE(words[0], nullptr) << bytes.name;
      ASSERT_NE(words[1], nullptr) << bytes.name;
      EXPECT_EQ(words[2] != nullptr, walk.count(i, 2) != 0 || (bytes.flags & 1) != 0)
            << "an iterator where there is a collection, its own or its base's: " << bytes.name;
      auto const* const stream = static_cast<void const* const*>(words[3]);
      for (int const entry : {0, 1, 3, 4, 6, 8, 9}) {
         EXPECT_NE(stream[entry], nullptr) << bytes.name << " " << entry;
      }
      for (int const entry : {2, 5, 7}) {
         EXPECT_EQ(stream[entry], nullptr) << bytes.name << " " << entry;
      }
      auto const make = KivTest::at<Sarn::Ptr<Kiv::Entity> (*)(Kiv::CtorArgs)>(words, 0);
      using Operation =
            U8(void*, void*, Kiv::FieldDescriptor const*, U8, Kiv::ValueRef, Kiv::ValueRef);
      auto const operation = KivTest::at<Operation*>(words, 8);
      bool const isNamed = (bytes.flags & 2) != 0;
      if (!isNamed && bytes.kind != 0x260) {
         continue;
      }
      Sarn::String const name = "made by hand";
      std::array<Kiv::ValueRef, 1> const arguments{&name};
      Sarn::Ptr<Kiv::Entity> const entity = make(Kiv::CtorArgs(arguments).first(isNamed ? 1 : 0));
      EXPECT_EQ(entity->kivType().name, bytes.name);
      Kiv::FieldDescriptor wanted;
      wanted.fieldId = 65535;
      EXPECT_EQ(operation(nullptr, entity.get(), &wanted, 0, nullptr, nullptr), 2) << bytes.name;
      if (isNamed) {
         wanted.fieldId = 154;
         Sarn::String read;
         EXPECT_EQ(operation(&read, entity.get(), &wanted, 10, nullptr, nullptr), 0);
         EXPECT_EQ(read, name) << bytes.name;
      }
   }
}

INSTANTIATE_TEST_SUITE_P(All, ModuleRecords, testing::ValuesIn(modules()),
                         [](auto const& module) { return std::string(module.param.name); });

TEST(ModuleRecordsTogether, Define46Types) {
   std::size_t count = 0;
   for (ModuleCase const& module : modules()) {
      count += RecordWalk(dlsym(RTLD_DEFAULT, module.symbol)).typeCount();
   }
   EXPECT_EQ(count, 46u);
}

/// The kind words of members of each kind, as other programs in the system expect them.
TEST(ModuleRecordsTogether, MarkTheKindsOfMembersAsOtherProgramsExpect) {
   struct {
      char const* member;
      U16 kind;
   } const cases[] = {
         {"Ptp::Config.nameString", 0x0810},
         {"Ptp::HwTime.nameString", 0x0810},
         {"Openconfig::Ptp::Instance.nameString", 0x0810},
         {"Ptp::CurrentDS.pathTraceLen", 0x0810},
         {"Ptp::PortDS.getLogMessageInterval", 0x0810},
         {"Ptp::PortDS.isManagementPktForwardingState", 0x0810},
         {"Ptp::CurrentDS.reset", 0x0811},
         {"Ptp::PortDS.maybeClearCounters", 0x0811},
         {"Ptp::PortDS.receiveSyncMessage", 0x0811},
         {"Ptp::VlanConfig.vlanId", 0x2c00},
         {"Ptp::FpgaAndSystemTime.fpgaTime", 0x2c00},
         {"Ptp::LinuxTsOptions.enabled", 0x9c00},
         {"Ptp::Config.driftLimit", 0xdc00},
         {"Ptp::Config.missingSequenceThresholds", 0xdc01},
         {"Openconfig::Ptp::Instance.defaultDs", 0xdd20},
         {"Ptp::Config.intfConfig", 0xdd21},
         {"Ptp::PtpMibData.ptpMibPortData", 0xdd21},
         {"Ptp::HwIntfStatus.linuxTsOptions", 0x2c00},
   };
   std::map<std::string, U16> found;
   for (ModuleCase const& module : modules()) {
      RecordWalk const walk(dlsym(RTLD_DEFAULT, module.symbol));
      for (U32 i = 0; i != walk.typeCount(); ++i) {
         TypeBytes const type = walk.type(i);
         for (U32 m = 0; m != type.memberCount; ++m) {
            MemberBytes const member = walk.member(type.firstMember + m);
            found[type.name + "." + member.name] = member.kind;
         }
      }
   }
   for (auto const& [member, kind] : cases) {
      EXPECT_EQ(found[member], kind) << member;
   }
   for (char const* const derived :
        {"Ptp::HwTime.fpgaTime", "Ptp::HwTime.systemTime", "Ptp::PtpMibData.domainTotal"}) {
      EXPECT_TRUE(found[derived] == 0x2800 || found[derived] == 0x2808) << derived;
   }
}

TEST(ModuleRecordsTogether, AreInTheRegistryInTheirFixedOrder) {
   Names names;
   for (auto const* at = Kiv::firstModule(); at != nullptr; at = at->data->next) {
      bool const isOurs = std::any_of(modules().begin(), modules().end(), [&](auto const& module) {
         return dlsym(RTLD_DEFAULT, module.symbol) == at;
      });
      if (isOurs) {
         names.emplace_back(at->name());
      }
   }
   EXPECT_EQ(names, (Names{"PtpMib", "PtpMpassStatedbTypes", "PtpOpenConfig",
                           "PtpStatusStatedbTypes", "PtpUcastNegConfig"}));
}

}  // namespace
