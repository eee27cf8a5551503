#include "tools/ptpsnmp/Mib.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <random>

namespace Ptpsnmp {
namespace {

using testing::ElementsAre;

Oid oid(U32 group, U32 table, std::initializer_list<U32> rest) {
   Oid all = mibObjects;
   all.add(group);
   all.add(table);
   for (U32 const part : rest) {
      all.add(part);
   }
   return all;
}

std::string textOf(Value const& value) {
   if (auto const* const octets = std::get_if<std::string>(&value)) {
      return *octets;
   }
   if (auto const* const id = std::get_if<Oid>(&value)) {
      return id->text();
   }
   return std::to_string(static_cast<S64>(std::get<U64>(value)));
}

class MibTest : public testing::Test {
protected:
   static Ptp::PortDSKey key(std::string const& intf, U16 vlan = 0) {
      return {Dorn::IntfId(intf),
              vlan == 0 ? Bridging::VlanIdOrNone() : Bridging::VlanIdOrNone(vlan)};
   }
   static Sarn::Ptr<Ptp::PortDS> addPort(Ptp::Status& status, std::string const& intf, U16 number) {
      status.ptpMibDataIs()->ptpMibPortDataIs(key(intf));
      return status.portDSIs(key(intf), Ptp::PortIdentity(Ptp::ClockIdentity(U64{1}), number));
   }
   static Sarn::Ptr<Ptp::Status> newStatus(U8 domain, Ptp::PtpMode mode) {
      auto status = Ptp::statusFactory("ptp/status");
      auto const clock = status->defaultDSIs();
      clock->domainNumberIs(domain);
      clock->ptpModeIs(mode);
      return status;
   }

   /// Every value behind `from`, by its identifier, one after the other.
   std::vector<std::pair<Oid, Value>> walk(Oid const& from) const {
      std::vector<std::pair<Oid, Value>> all;
      Oid at = from;
      while (auto const answer = mib.next(at.view())) {
         EXPECT_LT(at, answer->oid) << answer->oid.text();
         all.emplace_back(answer->oid, answer->value);
         at = answer->oid;
      }
      return all;
   }
   /// The indexes of a column that has values, and these.
   std::vector<std::string> column(U32 group, U32 table, U32 number) const {
      Oid const prefix = oid(group, table, {1, number});
      std::vector<std::string> all;
      for (auto const& [id, value] : walk(prefix)) {
         if (!beginsWith(id.view(), prefix.view())) {
            break;
         }
         all.push_back(id.text().substr(prefix.text().size() + 1) + "=" + textOf(value));
      }
      return all;
   }
   std::string got(Oid const& id) const {
      Mib::Got const got = mib.get(id.view());
      return got.found == Mib::Found::value          ? textOf(got.value)
             : got.found == Mib::Found::noSuchObject ? "noSuchObject"
                                                     : "noSuchInstance";
   }

   Mib mib;
};

TEST_F(MibTest, WithoutAStatusNothingIsThere) {
   EXPECT_FALSE(mib.next(mibObjects.view()));
   EXPECT_EQ(got(oid(1, 3, {0})), "noSuchInstance");
   EXPECT_EQ(got(oid(2, 8, {1, 5, 0, 2, 1, 1})), "noSuchInstance");
   EXPECT_EQ(got(oid(2, 8, {1, 1, 0, 2, 1, 1})), "noSuchObject");
   EXPECT_EQ(got(oid(2, 12, {1})), "noSuchObject");
   EXPECT_EQ(got(Oid{1, 3}), "noSuchObject");
}

TEST_F(MibTest, AStatusWithoutAClockHasNoRows) {
   auto const status = Ptp::statusFactory("ptp/status");
   addPort(*status, "Ethernet1", 1);
   mib.statusesAre({status});
   EXPECT_FALSE(mib.next(mibObjects.view()));
   status->defaultDSIs()->ptpModeIs(Ptp::PtpMode::disabled);
   EXPECT_FALSE(mib.next(mibObjects.view()));
   status->defaultDS()->ptpModeIs(Ptp::PtpMode::ordinary);
   EXPECT_THAT(column(2, 8, 5), ElementsAre("0.1.1.1=Ethernet1"));
}

TEST_F(MibTest, PortsAreInTheOrderOfTheirNumbers) {
   auto const status = newStatus(24, Ptp::PtpMode::boundary);
   addPort(*status, "Ethernet9", 2);
   addPort(*status, "Ethernet1", 300);
   addPort(*status, "Ethernet5", 1);
   mib.statusesAre({status});
   EXPECT_THAT(column(2, 7, 5),
               ElementsAre("24.2.1.1=Ethernet5", "24.2.1.2=Ethernet9", "24.2.1.300=Ethernet1"));
}

TEST_F(MibTest, APortThatComesGoesOrIsRenumberedIsSeenAtOnce) {
   auto const status = newStatus(24, Ptp::PtpMode::boundary);
   mib.statusesAre({status});
   EXPECT_THAT(column(2, 9, 6), ElementsAre());
   auto const port = addPort(*status, "Ethernet1", 7);
   EXPECT_THAT(column(2, 9, 6), ElementsAre("24.2.1.7=1"));
   port->portStateIs(Ptp::PortState::slave);
   EXPECT_THAT(column(2, 9, 6), ElementsAre("24.2.1.7=9"));
   port->portIdentityIs(Ptp::PortIdentity(Ptp::ClockIdentity(U64{1}), 8));
   EXPECT_THAT(column(2, 9, 6), ElementsAre("24.2.1.8=9"));
   status->portDSDel(key("Ethernet1"));
   EXPECT_THAT(column(2, 9, 6), ElementsAre());
   EXPECT_EQ(got(oid(2, 9, {1, 6, 24, 2, 1, 8})), "noSuchInstance");
}

TEST_F(MibTest, NumbersThatNameNoPortAreLeftOutAndOfTwoTheLowerKeyIsThere) {
   auto const status = newStatus(0, Ptp::PtpMode::boundary);
   addPort(*status, "Ethernet1", 0);
   addPort(*status, "Ethernet2", 0xFFFF);
   addPort(*status, "Ethernet4", 5);
   addPort(*status, "Ethernet3", 5);
   mib.statusesAre({status});
   EXPECT_THAT(column(2, 7, 5), ElementsAre("0.2.1.5=Ethernet3"));
   status->portDSDel(key("Ethernet3"));
   EXPECT_THAT(column(2, 7, 5), ElementsAre("0.2.1.5=Ethernet4"));
}

TEST_F(MibTest, APortWithoutMibDataHasTheRestOfItsRow) {
   auto const status = newStatus(0, Ptp::PtpMode::boundary);
   addPort(*status, "Ethernet1", 1);
   status->ptpMibData()->ptpMibPortDataDel(key("Ethernet1"));
   addPort(*status, "Ethernet2", 2)->logSyncIntervalIs(-4);
   mib.statusesAre({status});
   EXPECT_THAT(column(2, 9, 11), ElementsAre("0.2.1.2=1"));
   EXPECT_THAT(column(2, 8, 9), ElementsAre("0.2.1.1=0", "0.2.1.2=-4"));
   EXPECT_EQ(got(oid(2, 9, {1, 11, 0, 2, 1, 1})), "noSuchInstance");
}

TEST_F(MibTest, TheIndexFollowsDomainAndMode) {
   auto const status = newStatus(24, Ptp::PtpMode::boundary);
   mib.statusesAre({status});
   EXPECT_THAT(column(2, 3, 8), ElementsAre("24.2.1=2"));
   status->defaultDS()->domainNumberIs(44);
   status->defaultDS()->ptpModeIs(Ptp::PtpMode::ordinary);
   EXPECT_THAT(column(2, 3, 8), ElementsAre("44.1.1=2"));
   status->defaultDS()->ptpModeIs(Ptp::PtpMode::ptpGeneralized);
   EXPECT_THAT(column(2, 3, 8), ElementsAre("44.1.1=2"));
   EXPECT_EQ(got(oid(1, 3, {0})), "3");
   status->defaultDS()->numberPortsIs(2);
   EXPECT_THAT(column(2, 3, 8), ElementsAre("44.2.1=2"));
   status->g82751EnabledIs(true);
   EXPECT_EQ(got(oid(1, 3, {0})), "2");
}

TEST_F(MibTest, OnlyATransparentClockIsInTheTablesOfTransparentClocks) {
   auto const status = newStatus(1, Ptp::PtpMode::boundary);
   addPort(*status, "Ethernet1", 1)->faultyFlagIs(true);
   mib.statusesAre({status});
   EXPECT_THAT(column(2, 6, 5), ElementsAre());
   EXPECT_THAT(column(2, 10, 6), ElementsAre());
   status->defaultDS()->ptpModeIs(Ptp::PtpMode::p2pTransparent);
   EXPECT_THAT(column(2, 6, 5), ElementsAre("1.1=2"));
   EXPECT_THAT(column(2, 10, 6), ElementsAre("1.1.1=1"));
   status->defaultDS()->ptpModeIs(Ptp::PtpMode::e2eTransparent);
   EXPECT_THAT(column(2, 6, 5), ElementsAre("1.1=1"));
}

TEST_F(MibTest, SeveralClocksAreInTheOrderOfTheirIndexes) {
   auto const first = newStatus(24, Ptp::PtpMode::boundary);
   auto const second = newStatus(24, Ptp::PtpMode::ordinary);
   auto const third = newStatus(5, Ptp::PtpMode::boundary);
   addPort(*first, "Ethernet1", 1);
   addPort(*second, "Ethernet2", 1);
   addPort(*third, "Ethernet3", 1);
   for (auto const& status : {first, second, third}) {
      status->ptpMibData()->numClockPortsIs(1);
   }
   mib.statusesAre({first, second, third});
   EXPECT_THAT(column(1, 1, 3), ElementsAre("5.3=1", "24.1=1", "24.2=1"));
   EXPECT_THAT(column(1, 2, 2), ElementsAre("1=1", "2=2"));
   EXPECT_THAT(column(2, 8, 5),
               ElementsAre("5.2.3.1=Ethernet3", "24.1.2.1=Ethernet2", "24.2.1.1=Ethernet1"));
   third->defaultDS()->domainNumberIs(24);
   EXPECT_THAT(column(1, 2, 2), ElementsAre("1=1", "2=1"));
}

TEST_F(MibTest, APortThatFollowsHasItsMastersAsAssociates) {
   auto const status = newStatus(0, Ptp::PtpMode::boundary);
   addPort(*status, "Ethernet1", 1)->portStateIs(Ptp::PortState::master);
   auto const port = addPort(*status, "Ethernet2", 2);
   port->portStateIs(Ptp::PortState::slave);
   auto const identity = [](U64 clock) { return Ptp::PortIdentity(Ptp::ClockIdentity(clock), 1); };
   auto const heard = status->intfStatusIs(key("Ethernet2"));
   heard->foreignMasterDSIs(identity(9))->foreignMasterIpAddrIs(Dorn::IpGenAddr("192.0.2.9"));
   heard->foreignMasterDSIs(identity(5));
   heard->foreignMasterDSIs(identity(7));
   status->currentDSIs()->lastUpdatePortKeyIs(key("Ethernet2"));
   status->parentDSIs()->parentSourceAddrsIs(
         Ptp::ParentSourceAddresses(identity(7), Dorn::IpGenAddr("2001:db8::7"), Dorn::EthAddr()));
   mib.statusesAre({status});
   EXPECT_THAT(column(2, 11, 6), ElementsAre("0.2.1.2.2=.1.3.6.1.2.1.241.1.2.12.2",
                                             "0.2.1.2.3=.1.3.6.1.2.1.241.1.2.12.1"));
   EXPECT_EQ(got(oid(2, 11, {1, 7, 0, 2, 1, 2, 3})), std::string("\xC0\0\x02\x09", 4));
   EXPECT_EQ(got(oid(2, 11, {1, 7, 0, 2, 1, 2, 1})), "noSuchInstance");  // no address is known
   EXPECT_EQ(got(oid(2, 11, {1, 7, 0, 2, 1, 2, 4})), "noSuchInstance");
   EXPECT_EQ(got(oid(2, 11, {1, 7, 0, 2, 1, 2, 0})), "noSuchInstance");
   EXPECT_THAT(column(2, 7, 8), ElementsAre("0.2.1.2=.1.3.6.1.2.1.241.1.2.12.2"));
   EXPECT_EQ(std::get<std::string>(mib.get(oid(2, 7, {1, 9, 0, 2, 1, 2}).view()).value).size(),
             16u);
   status->parentDS()->parentSourceAddrsIs(Ptp::ParentSourceAddresses(
         identity(7), Dorn::IpGenAddr("0.0.0.0"), Dorn::EthAddr("00:11:22:33:44:55")));
   EXPECT_THAT(column(2, 7, 8), ElementsAre("0.2.1.2=.1.3.6.1.2.1.241.1.2.12.3"));
   EXPECT_EQ(got(oid(2, 7, {1, 9, 0, 2, 1, 2})), std::string("\0\x11\x22\x33\x44\x55", 6));
   port->portStateIs(Ptp::PortState::listening);
   EXPECT_THAT(column(2, 11, 6), ElementsAre());
   EXPECT_THAT(column(2, 7, 8), ElementsAre());
}

TEST_F(MibTest, ValuesThatMeanNothingAreNotThere) {
   auto const status = newStatus(0, Ptp::PtpMode::boundary);
   auto const port = addPort(*status, "Ethernet1", 1);
   auto const parent = status->parentDSIs();
   mib.statusesAre({status});
   EXPECT_EQ(got(oid(2, 2, {1, 6, 0, 2, 1})), "noSuchInstance");
   parent->parentStatsIs(true);
   EXPECT_EQ(got(oid(2, 2, {1, 6, 0, 2, 1})), "noSuchInstance");
   parent->observedParentOffsetScaledLogVarianceIs(0x4E5D);  // 2 to the power of -49.6
   EXPECT_EQ(got(oid(2, 2, {1, 6, 0, 2, 1})), "-50");
   EXPECT_EQ(got(oid(2, 5, {1, 11, 0, 2, 1})), "noSuchInstance");
   status->timePropertiesDSIs();
   EXPECT_EQ(got(oid(2, 5, {1, 11, 0, 2, 1})), "noSuchInstance");
   status->timePropertiesDS()->timeSourceIs(0x20);
   EXPECT_EQ(got(oid(2, 5, {1, 11, 0, 2, 1})), "32");
   port->delayMechanismIs(Ptp::DelayMechanism::special);
   EXPECT_EQ(got(oid(2, 8, {1, 12, 0, 2, 1, 1})), "noSuchInstance");
   port->delayMechanismIs(Ptp::DelayMechanism::commonP2p);
   EXPECT_EQ(got(oid(2, 8, {1, 12, 0, 2, 1, 1})), "2");
   EXPECT_EQ(got(oid(2, 8, {1, 14, 0, 2, 1, 1})), "noSuchInstance");
}

/// Compares with what a walk has found, from identifiers that exist, nearly exist, or do not.
TEST_F(MibTest, NextGivesTheFirstValueBehindAnyIdentifier) {
   auto const first = newStatus(24, Ptp::PtpMode::boundary);
   auto const second = newStatus(3, Ptp::PtpMode::p2pTransparent);
   for (auto const& status : {first, second}) {
      status->currentDSIs();
      status->parentDSIs();
      status->timePropertiesDSIs();
      for (U16 number = 1; number < 40; number = static_cast<U16>(number * 2 + 1)) {
         auto const port = addPort(*status, "Ethernet" + std::to_string(number), number);
         port->portStateIs(number % 3 == 0 ? Ptp::PortState::slave : Ptp::PortState::master);
         auto const heard = status->intfStatusIs(port->portDSKey());
         for (U64 clock = 1; clock != 4; ++clock) {
            heard->foreignMasterDSIs(Ptp::PortIdentity(Ptp::ClockIdentity(clock), number))
                  ->foreignMasterIpAddrIs(Dorn::IpGenAddr("192.0.2.1"));
         }
      }
   }
   mib.statusesAre({first, second});
   auto const all = walk(Oid{1});
   ASSERT_GT(all.size(), 300u);
   for (auto const& [id, value] : all) {
      Mib::Got const got = mib.get(id.view());
      ASSERT_EQ(got.found, Mib::Found::value) << id.text();
      ASSERT_EQ(got.value, value) << id.text();
   }
   std::mt19937 generator(17);
   auto const random = [&generator] { return static_cast<U32>(generator()); };
   for (int i = 0; i != 4000; ++i) {
      auto const& near = all[random() % all.size()].first;
      std::vector<U32> asked(near.view().begin(), near.view().end());
      asked.resize(1 + random() % (asked.size() + 2), random() % 3);
      if (random() % 2 == 0) {
         U32& part = asked[asked.size() - 1 - random() % std::min<std::size_t>(asked.size(), 6)];
         part = random() % 8 == 0 ? 0xFFFFFFFF : part + random() % 3 - (part != 0 ? 1 : 0);
      }
      auto const expected = std::ranges::find_if(
            all, [&](auto const& each) { return compare(each.first.view(), asked) > 0; });
      auto const answer = mib.next(asked);
      ASSERT_EQ(answer.has_value(), expected != all.end());
      if (answer) {
         ASSERT_EQ(answer->oid.text(), expected->first.text());
      }
      bool const exists = std::ranges::any_of(
            all, [&](auto const& each) { return compare(each.first.view(), asked) == 0; });
      ASSERT_EQ(mib.get(asked).found == Mib::Found::value, exists);
   }
}

}  // namespace
}  // namespace Ptpsnmp
