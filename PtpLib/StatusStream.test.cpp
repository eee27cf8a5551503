// The status tree in the attribute log: how each kind of child is created at the other end, which
// attributes are sent, and in which order the changes made by operations arrive.
#include <map>
#include <string>
#include <vector>

#include "Kiv/System.h"
#include "PtpLib/StatusTree.test.h"

namespace Ptp {
namespace {

using Kiv::Entity;

std::string hex(std::vector<U8> const& bytes) {
   static constexpr char const* digits = "0123456789abcdef";
   std::string text;
   for (U8 const byte : bytes) {
      text += digits[byte >> 4];
      text += digits[byte & 15];
   }
   return text;
}

template <class T>
std::string encodedHex(T const& value) {
   std::vector<U8> bytes(value.kivEncodedSize());
   Kiv::NboAttrLog::Out out(bytes.data(), bytes.size());
   out << value;
   return hex(bytes);
}

std::string const key = encodedHex(portKey());
constexpr char const* clock = "001122fffe334455";

/// What the creation message of an entity contains after the handle.
std::string ctorParams(Entity const& entity) {
   Kiv::StreamFunctions const& stream = *entity.kivType().entity->stream;
   std::vector<U8> bytes(stream.attrLogSizeCtorParams(entity));
   Kiv::NboAttrLog::Out out(bytes.data(), bytes.size());
   stream.serializeConstructorParams(out, entity);
   EXPECT_EQ(out.room(), 0u);
   return hex(bytes);
}

class StatusStream : public MirroredStatus {};

TEST_F(StatusStream, KeysAndArgumentsAreTheConstructorParameters) {
   fillStatus(*status);
   EXPECT_EQ(ctorParams(*status), "00000003707470");
   EXPECT_EQ(ctorParams(*status->defaultDS()), "");
   EXPECT_EQ(ctorParams(*status->currentDS()), "");
   EXPECT_EQ(ctorParams(*status->parentDS()), "");
   EXPECT_EQ(ctorParams(*status->timePropertiesDS()), "");
   EXPECT_EQ(ctorParams(*status->domainStatus()), "");
   EXPECT_EQ(ctorParams(*status->ptpMibData()), "");
   EXPECT_EQ(ctorParams(*status->ptpMibData()->ptpMibPortData(portKey())), key);
   EXPECT_EQ(ctorParams(*status->aclStatusService()), "00000003707470");
   EXPECT_EQ(ctorParams(*status->intfStatus(portKey())), key);
   EXPECT_EQ(ctorParams(*status->intfStatus(portKey())->foreignMasterDS(portIdentity(7))),
             clock + std::string("0007"));
   EXPECT_EQ(ctorParams(*status->vlanStatus(portKey())), key + "0100");
   EXPECT_EQ(ctorParams(*status->portDS(portKey())), key + clock + "0001");
   EXPECT_EQ(ctorParams(*status->portDS(portKey())->g8275_2()), "");
}

TEST_F(StatusStream, EachKindOfChildIsMadeAndErasedByOneMessage) {
   EXPECT_EQ(written([&] { status->defaultDSIs(); }), "create 01000000.263 01000001");
   EXPECT_EQ(written([&] { status->defaultDSDel(); }), "erase 01000000.263");
   EXPECT_EQ(copy->defaultDS(), nullptr);
   EXPECT_EQ(written([&] { status->timePropertiesDSIs(); }), "create 01000000.266 01000002");
   EXPECT_EQ(written([&] { status->aclStatusServiceIs("x"); }),
             "create 01000000.277 010000030000000178");
   EXPECT_EQ(written([&] { status->intfStatusIs(portKey()); }),
             "create 01000000.271 01000004" + key);
   EXPECT_EQ(written([&] { status->intfStatus(portKey())->foreignMasterDSIs(portIdentity(7)); }),
             std::string("create 01000004.259 01000005") + clock + "0007");
   EXPECT_EQ(written([&] { status->vlanStatusIs(portKey(), true, false); }),
             "create 01000000.272 01000006" + key + "0100");
   EXPECT_EQ(written([&] { status->portDSIs(portKey(), portIdentity(1)); }),
             "create 01000000.275 01000007" + key + clock + "0001");
   EXPECT_EQ(written([&] { status->portDS(portKey())->g8275_2Is(); }),
             "create 01000007.276 01000008");
   EXPECT_EQ(written([&] { status->ptpMibDataIs()->ptpMibPortDataIs(portKey()); }),
             "create 01000000.274 01000009; create 01000009.263 0100000a" + key);
   EXPECT_EQ(KivTest::firstDifference(*status, *copy), "");
   EXPECT_EQ(written([&] { status->intfStatusDel(portKey()); }), "erase 01000000.271 " + key);
   EXPECT_EQ(written([&] { status->portDSDelAll(); }), "erase 01000000.275 " + key);
   EXPECT_EQ(KivTest::firstDifference(*status, *copy), "");
}

TEST_F(StatusStream, AKnownVlanOrPortTravelsAsItsChangedAttributesAlone) {
   status->vlanStatusIs(portKey(), true, true);
   status->portDSIs(portKey(), portIdentity(1));
   carry();
   std::string const vlan = StreamTesting::line(
         StreamTesting::message(StreamTesting::Opcode::set,
                                status->vlanStatus(portKey())->streamHandle(), 262, {0})
               .data(),
         StreamTesting::Bytes{0}.data(), 1);
   EXPECT_EQ(written([&] { status->vlanStatusIs(portKey(), true, false); }), vlan);
   EXPECT_EQ(written([&] { status->vlanStatusIs(portKey(), true, false); }), "");
   EXPECT_EQ(written([&] { status->portDSIs(portKey(), portIdentity(1)); }), "");
   written([&] { status->portDSIs(portKey(), portIdentity(2)); });
   EXPECT_EQ(copy->portDS(portKey())->portIdentity(), portIdentity(2));
}

TEST_F(StatusStream, AnotherAclServiceTakesThePlaceOfTheFirst) {
   EXPECT_EQ(written([&] { status->aclStatusServiceIs("x"); }),
             "create 01000000.277 010000010000000178");
   EXPECT_EQ(written([&] { status->aclStatusServiceIs("y"); }),
             "create 01000000.277 010000020000000179");
   EXPECT_EQ(copy->aclStatusService()->name(), "y");
}

/// The attribute ids that a new reader receives, by the type of their entity.
std::map<std::string, std::string> told(std::map<std::string, std::string> const& types,
                                        std::string const& messages) {
   std::map<std::string, std::vector<std::string>> ids;
   std::string const separator = "; ";
   for (std::size_t begin = 0; begin < messages.size();) {
      std::size_t const end = std::min(messages.find(separator, begin), messages.size());
      std::string const message = messages.substr(begin, end - begin);
      begin = end + separator.size();
      std::size_t const handle = message.find(' ') + 1;
      std::size_t const dot = message.find('.');
      std::string const id = message.substr(dot + 1, message.find(' ', dot) - dot - 1);
      auto const type = types.find(message.substr(handle, dot - handle));
      if (type == types.end() || id == "0") {
         continue;  // the mount's own messages
      }
      auto& known = ids[type->second];
      if (known.empty() || known.back() != id) {
         known.push_back(id);
      }
   }
   std::map<std::string, std::string> all;
   for (auto const& [type, known] : ids) {
      for (std::string const& id : known) {
         all[type] += (all[type].empty() ? "" : " ") + id;
      }
   }
   return all;
}

std::string range(int from, int to) {
   std::string all = std::to_string(from);
   for (int id = from + 1; id <= to; ++id) {
      all += " " + std::to_string(id);
   }
   return all;
}

std::string handleText(Entity const& entity) {
   U32 const handle = entity.streamHandle();
   return hex({static_cast<U8>(handle >> 24), static_cast<U8>(handle >> 16),
               static_cast<U8>(handle >> 8), static_cast<U8>(handle)});
}

TEST_F(StatusStream, ANewReaderIsToldOfExactlyTheStreamedAttributes) {
   fillStatus(*status);
   mirror.session->mountIs(copy);
   source.receive(mirror.take());
   std::string const messages = source.sent();
   std::map<std::string, std::string> types;
   auto const remember = [&](auto&& self, Entity& entity) -> void {
      types[handleText(entity)] = entity.kivType().name;
      Kiv::forEachChild(entity, [&](Entity& child, Kiv::FieldDescriptor const&, void const*) {
         self(self, child);
      });
   };
   remember(remember, *status);
   std::string const portIds = "259 " + range(262, 269) + " " + range(271, 280) + " " +
                               range(282, 299) + " 301 303 " + range(305, 317) + " 319 " +
                               range(322, 331);
   std::map<std::string, std::string> const expected = {
         {"Acl::StatusService", range(258, 260)},
         {"Ptp::CurrentDS", range(258, 276) + " 279"},
         {"Ptp::DefaultDS", range(258, 264) + " " + range(266, 272)},
         {"Ptp::DomainNumberInfo", "258 259"},
         {"Ptp::ForeignMasterDS", range(259, 261)},
         {"Ptp::IntfStatus", range(259, 263) + " 265 266"},
         {"Ptp::ParentDS", range(258, 266)},
         {"Ptp::PortDS", portIds},
         {"Ptp::PortDS_G8275_2", range(258, 262)},
         {"Ptp::PtpMibData", range(259, 263)},
         {"Ptp::PtpMibPortData", range(259, 264)},
         {"Ptp::Status", range(258, 281)},
         {"Ptp::TimePropertiesDS", range(258, 265) + " 268"},
         {"Ptp::VlanStatus", "261 262"},
   };
   EXPECT_EQ(told(types, messages), expected);
}

TEST_F(StatusStream, FlagsOfAVlanAreOneByteEach) {
   status->vlanStatusIs(portKey(), false, false);
   EXPECT_EQ(written([&] { status->vlanStatus(portKey())->trunkAllowedIs(true); }),
             "set 01000001.261 01");
   EXPECT_EQ(written([&] { status->vlanStatus(portKey())->vlanCreatedIs(true); }),
             "set 01000001.262 01");
}

TEST_F(StatusStream, AReceivedFlagThatIsNotAChangePublishesNothing) {
   using StreamTesting::message;
   using StreamTesting::Opcode;
   status->vlanStatusIs(portKey(), true, false);
   carry();
   U32 const handle = status->vlanStatus(portKey())->streamHandle();
   KivTest::Witness published(*copy->vlanStatus(portKey()));
   mirror.receive(message(Opcode::set, handle, 261, {1}));
   mirror.receive(message(Opcode::set, handle, 262, {0}));
   EXPECT_EQ(published.ids(), "");
   mirror.receive(message(Opcode::set, handle, 262, {1}));
   EXPECT_EQ(published.changes(), "vlanCreated was false");
   EXPECT_EQ(mirror.session->closeReason(), "");
}

TEST_F(StatusStream, AReceivedFlagIsOneByteOf0Or1) {
   using StreamTesting::message;
   using StreamTesting::Opcode;
   status->vlanStatusIs(portKey(), true, false);
   carry();
   mirror.receive(message(Opcode::set, status->vlanStatus(portKey())->streamHandle(), 261, {2}));
   EXPECT_NE(mirror.session->closeReason(), "");
   EXPECT_TRUE(copy->vlanStatus(portKey())->trunkAllowed());
}

TEST_F(StatusStream, DerivedMembersAreNotTakenFromAPeer) {
   using StreamTesting::message;
   using StreamTesting::Opcode;
   status->intfStatusIs(portKey());
   carry();
   mirror.receive(message(Opcode::set, status->intfStatus(portKey())->streamHandle(), 264,
                          StreamTesting::text("x")));
   EXPECT_NE(mirror.session->closeReason(), "");
}

TEST_F(StatusStream, RequestToClearStaysWithItsWriter) {
   auto const port = status->portDSIs(portKey(), portIdentity(1));
   EXPECT_EQ(written([&] { port->clearCountersRequestTimeIs(5); }), "");
   EXPECT_EQ(written([&] { port->updateClearCountersRequestTime(); }), "");
   EXPECT_EQ(copy->portDS(portKey())->clearCountersRequestTime(), 0);
}

TEST_F(StatusStream, DelaysTravelWithTheirSequenceNumbers) {
   auto const port = status->portDSIs(portKey(), portIdentity(1));
   EXPECT_EQ(written([&] { port->peerPathDelayEnq(1.0); }),
             "enqueue 01000001.301 000000013ff0000000000000");
   EXPECT_EQ(written([&] { port->peerPathDelayEnq(2.0); }),
             "enqueue 01000001.301 000000024000000000000000");
   EXPECT_EQ(written([&] { port->peerPathDelayDeq(); }), "front 01000001.301 00000002");
   EXPECT_EQ(copy->portDS(portKey())->peerPathDelayFront(), 2.0);
   EXPECT_TRUE(copy->portDS(portKey())->peerPathDelayHas(2));
   EXPECT_FALSE(copy->portDS(portKey())->peerPathDelayHas(1));
}

// Operations: changes arrive in the order in which they are made, not in the order of the ids.

TEST_F(StatusStream, ResetArrivesInItsOwnOrder) {
   auto const dataSet = status->currentDSIs();
   dataSet->offsetFromMasterIs(5);
   dataSet->skewIs(2.0);
   carry();
   KivTest::Witness arrived(*copy->currentDS());
   dataSet->reset();
   carry();
   EXPECT_EQ(arrived.changes(),
             "offsetFromMaster was 5; skew was 2; genId was Brim::Generation(count=0, flag=false)");
}

TEST_F(StatusStream, FlagFieldArrivesFromBit0Up) {
   auto const dataSet = status->timePropertiesDSIs();
   carry();
   KivTest::Witness arrived(*copy->timePropertiesDS());
   dataSet->flagFieldIs(0x3f);
   carry();
   EXPECT_EQ(arrived.ids(), "261 260 259 264 262 263");
   EXPECT_EQ(copy->timePropertiesDS()->flagField(), 0x3f);
}

TEST_F(StatusStream, ClearedCountersArriveInIdOrderWithTheTimeBehindThem) {
   Kiv::System::clockIs([] { return 1000.0; });
   auto const port = status->portDSIs(portKey(), portIdentity(1));
   port->initializedIs(true);
   port->corruptedRxManagementMessagesCountIs(4);
   port->stpDiscardedRxMessagesCountIs(3);
   port->updateClearCountersRequestTime();
   carry();
   KivTest::Witness arrived(*copy->portDS(portKey()));
   port->maybeClearCounters();
   port->maybeClearCounters();
   carry();
   EXPECT_EQ(arrived.changes(),
             "syncMessageReceived was 0; stpDiscardedRxMessagesCount was 3; "
             "corruptedRxManagementMessagesCount was 4; lastClearTime was 0");
   Kiv::System::clockIs(nullptr);
}

TEST_F(StatusStream, DerivedMembersAreComputedFromWhatArrived) {
   fillStatus(*status);
   status->defaultDS()->clockQualityIs(ClockQuality(255, 254, Dorn::NetU16(65535)));
   status->intfStatus(portKey())->mpassDisabledReasonIs(Mpass::DisabledReason::ucastNegEnabled);
   status->ptpMibData()->numClockPortsIs(3);
   status->currentDS()->pathTraceIs(0, ClockIdentity());
   carry();
   EXPECT_TRUE(copy->defaultDS()->slaveOnly());
   EXPECT_EQ(copy->intfStatus(portKey())->disabledReasonString(), "Unicast negotiation enabled");
   EXPECT_EQ(copy->ptpMibData()->domainTotal(), 1u);
   EXPECT_EQ(copy->currentDS()->pathTraceLen(), 1u);
   EXPECT_EQ(copy->portDS(portKey())->intf(), Dorn::IntfId("Ethernet1"));
   EXPECT_EQ(copy->vlanStatus(portKey())->vlanId(), Bridging::VlanIdOrNone(10));
}

}  // namespace
}  // namespace Ptp
