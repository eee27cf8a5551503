// Every attribute of every type of the status tree, accessed only through the generic interface:
// what can be read, written, and seen in a mirror.
#include <map>
#include <set>
#include <string>

#include "Kiv/GenericIfImpl.h"
#include "Kiv/Path.h"
#include "KivTest/Witness.h"
#include "PtpLib/StatusTree.test.h"

namespace Ptp {
namespace {

using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeKind;
using KivTest::attributeText;
using KivTest::attributeTextIs;
using KivTest::Witness;

/// A value of the type that is not the default of any attribute.
std::string otherValue(Kiv::TypeImpl const& type, std::string const& present) {
   static std::map<std::string, std::string> const all = {
         {"U8", "77"},
         {"U16", "777"},
         {"U32", "77777"},
         {"U64", "7777777777"},
         {"S8", "-7"},
         {"S16", "-777"},
         {"S32", "-77777"},
         {"S64", "-7777777777"},
         {"float", "2.5"},
         {"double", "1e-09"},
         {"Dorn::NetU16", "37"},
         {"Dorn::IntfId", "Port-Channel7"},
         {"Dorn::IpAddr", "192.0.2.7"},
         {"Dorn::Ip6Addr", "2001:db8::7"},
         {"Dorn::IpGenAddr", "2001:db8::7"},
         {"Brim::Generation", "Brim::Generation(count=7, flag=true)"},
         {"Ptp::ClockIdentity", "00:11:22:ff:fe:33:44:77"},
         {"Ptp::ClockQuality",
          "Ptp::ClockQuality(clockClass=6, clockAccuracy=33, offsetScaledLogVariance=20061)"},
         {"Ptp::PortIdentity",
          "Ptp::PortIdentity(clockIdentity=00:11:22:ff:fe:33:44:77, portNumber=77)"},
         {"Ptp::PortDSKey", "Ptp::PortDSKey(intf=Ethernet7, vlanId=77)"},
         {"Ptp::ParentSourceAddresses",
          "Ptp::ParentSourceAddresses(parentPortIdentity=Ptp::PortIdentity(clockIdentity="
          "00:11:22:ff:fe:33:44:77, portNumber=77), parentIpAddr=192.0.2.7, "
          "parentEthAddr=00:11:22:33:44:77)"},
   };
   if (type.name == std::string("bool")) {
      return present == "true" ? "false" : "true";
   }
   if (type.kind == TypeKind::enumeration) {
      return "77";  // by number, which is valid for every enumeration
   }
   auto const found = all.find(type.name);
   return found == all.end() ? "no value is known for " + std::string(type.name) : found->second;
}

class StatusAttributes : public MirroredStatus {
protected:
   StatusAttributes() {
      fillStatus(*status);
      carry();
   }

   /// Calls `visit(entity, itsMirror)` for each entity of the tree.
   template <class Visit>
   void forEachEntity(Visit&& visit) {
      forEachBelow(*status, *copy, visit);
   }
   template <class Visit>
   void forEachBelow(Entity& entity, Entity& mirrored, Visit& visit) {
      visit(entity, mirrored);
      Kiv::forEachChild(entity, [&](Entity& child, FieldDescriptor const& field, void const* key) {
         Entity* const other = field.kind == MemberKind::child
                                     ? field.ops->child->get(mirrored)
                                     : field.ops->collection->findChild(mirrored, key);
         ASSERT_NE(other, nullptr) << Kiv::entityPath(child);
         forEachBelow(child, *other, visit);
      });
   }
   static U8 op(Entity& entity, Kiv::AttributeId id, U8 code, void* result,
                Kiv::ValueRef argument) {
      FieldDescriptor wanted;
      wanted.fieldId = id;
      return entity.kivType().genericIfAttributeOp(result, &entity, &wanted, code, nullptr,
                                                   argument);
   }
};

TEST_F(StatusAttributes, EveryTypeOfTheTreeIsThere) {
   std::set<std::string> types;
   forEachEntity([&](Entity& entity, Entity&) { types.insert(entity.kivType().name); });
   EXPECT_EQ(types,
             (std::set<std::string>{"Acl::StatusService", "Ptp::CurrentDS", "Ptp::DefaultDS",
                                    "Ptp::DomainNumberInfo", "Ptp::ForeignMasterDS",
                                    "Ptp::IntfStatus", "Ptp::ParentDS", "Ptp::PortDS",
                                    "Ptp::PortDS_G8275_2", "Ptp::PtpMibData", "Ptp::PtpMibPortData",
                                    "Ptp::Status", "Ptp::TimePropertiesDS", "Ptp::VlanStatus"}));
}

TEST_F(StatusAttributes, AWrittenValueIsStoredPublishedOnceAndSeenInTheMirrorWhereItIsStreamed) {
   std::string local;
   std::size_t written = 0;
   forEachEntity([&](Entity& entity, Entity& mirrored) {
      Kiv::forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
         if (field.kind != MemberKind::single || field.ops->write == nullptr) {
            return;
         }
         SCOPED_TRACE(Kiv::entityPath(entity) + "." + field.name);
         std::string const before = attributeText(entity, field.fieldId);
         EXPECT_EQ(attributeText(mirrored, field.fieldId), before);
         std::string const other = otherValue(*field.type, before);
         ASSERT_NE(other, before);
         Witness published(entity);
         EXPECT_EQ(attributeTextIs(entity, field.fieldId, other), Kiv::statusOk);
         EXPECT_EQ(published.changes(), std::string(field.name) + " was " + before);
         EXPECT_EQ(attributeText(entity, field.fieldId), other);
         EXPECT_EQ(attributeTextIs(entity, field.fieldId, other), Kiv::statusOk);
         EXPECT_EQ(published.changes(), "");
         carry();
         if (field.has(FieldDescriptor::streamed)) {
            EXPECT_EQ(attributeText(mirrored, field.fieldId), other);
         } else {
            EXPECT_EQ(attributeText(mirrored, field.fieldId), before);
            local += std::string(entity.kivType().name) + "." + field.name + " ";
         }
         ++written;
      });
   });
   EXPECT_EQ(local, "Ptp::PortDS.clearCountersRequestTime ");
   EXPECT_EQ(written, 152u);
}

TEST_F(StatusAttributes, KeysAndDerivedMembersAreReadAndRefuseAWrite) {
   std::set<std::string> refused;
   forEachEntity([&](Entity& entity, Entity& mirrored) {
      Kiv::forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
         if (field.kind != MemberKind::single || field.ops->write != nullptr) {
            return;
         }
         SCOPED_TRACE(Kiv::entityPath(entity) + "." + field.name);
         std::string const before = attributeText(entity, field.fieldId);
         EXPECT_EQ(attributeText(mirrored, field.fieldId), before);
         EXPECT_FALSE(field.has(FieldDescriptor::streamed));
         Witness published(entity);
         EXPECT_EQ(attributeTextIs(entity, field.fieldId, before), Kiv::statusRefused);
         EXPECT_EQ(published.ids(), "");
         EXPECT_EQ(attributeText(entity, field.fieldId), before);
         refused.insert(std::string(entity.kivType().name) + "." + field.name);
      });
   });
   EXPECT_EQ(
         refused,
         (std::set<std::string>{
               "Ptp::DefaultDS.slaveOnly", "Ptp::ForeignMasterDS.foreignMasterPortIdentity",
               "Ptp::IntfStatus.disabledReasonString", "Ptp::IntfStatus.key", "Ptp::PortDS.intf",
               "Ptp::PortDS.portDSKey", "Ptp::PortDS.versionNumber", "Ptp::PortDS.vlanId",
               "Ptp::PtpMibData.domainTotal", "Ptp::PtpMibPortData.portDSKey",
               "Ptp::VlanStatus.intf", "Ptp::VlanStatus.portDSKey", "Ptp::VlanStatus.vlanId"}));
}

TEST_F(StatusAttributes, CollectionsQueuesAndOperationsRefuseToBeReadOrWrittenAsValues) {
   std::size_t count = 0;
   forEachEntity([&](Entity& entity, Entity&) {
      Kiv::forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
         if (field.kind == MemberKind::single || field.kind == MemberKind::child) {
            return;
         }
         ++count;
         alignas(16) unsigned char room[256] = {};
         EXPECT_EQ(op(entity, field.fieldId, 0, room, nullptr), Kiv::statusRefused) << field.name;
         EXPECT_EQ(op(entity, field.fieldId, 1, room, room), Kiv::statusRefused) << field.name;
      });
   });
   EXPECT_EQ(count, 22u);
}

TEST_F(StatusAttributes, AnyOtherIdIsRefusedAsUnknown) {
   forEachEntity([&](Entity& entity, Entity&) {
      Kiv::TypeImpl const& type = entity.kivType();
      alignas(16) unsigned char room[256] = {};
      for (U32 id = 0; id <= 0xffff; ++id) {
         auto const attribute = static_cast<Kiv::AttributeId>(id);
         if (type.field(attribute) != nullptr || (type.named && id == Kiv::nameFieldId)) {
            continue;
         }
         ASSERT_EQ(op(entity, attribute, 0, room, nullptr), Kiv::statusUnknownField)
               << type.name << " " << id;
         ASSERT_EQ(op(entity, attribute, 1, room, room), Kiv::statusUnknownField)
               << type.name << " " << id;
      }
   });
}

TEST_F(StatusAttributes, TheRootsNameIsReadAndFixed) {
   Sarn::String name = "other";
   EXPECT_EQ(op(*status, Kiv::nameFieldId, 1, nullptr, &name), Kiv::statusRefused);
   Kiv::AnyValue read(Kiv::typeOf<Sarn::String>());
   EXPECT_EQ(op(*status, Kiv::nameFieldId, 10, read.room(), nullptr), Kiv::statusOk);
   read.constructed();
   EXPECT_EQ(*static_cast<Sarn::String const*>(read.get()), "ptp");
}

}  // namespace
}  // namespace Ptp
