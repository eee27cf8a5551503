#include "tools/ptp4lAgent/Message.h"

#include <gtest/gtest.h>

#include "tools/ptp4lAgent/ClockDataSets.h"
#include "tools/ptp4lAgent/Hex.test.h"
#include "tools/ptp4lAgent/PortDataSets.h"

namespace {

using namespace Ptp4lAgent;

/// A GET of DEFAULT_DATA_SET, as pmc(8) sends it.
constexpr char const* get =
      "0d02 0036 18 00 0000 0000000000000000 00000000 0000000000000000 1234 0007 04 7f"
      "ffffffffffffffff ffff 00 00 00 00"
      "0001 0002 2000";

/// The answer of linuxptp 3.1.1 on a grandmaster.
constexpr char const* answer =
      "0d02 004a 00 00 0000 0000000000000000 00000000 0acd14fffe33e079 0000 0007 04 7f"
      "0000000000000000 1234 00 00 02 00"
      "0001 0016 2000"
      "01 00 0001 0a f8feffff 80 0acd14fffe33e079 00 00";

/// Its refusal of an id that it does not know.
constexpr char const* refusal =
      "0d02 003c 00 00 0000 0000000000000000 00000000 0acd14fffe33e079 0000 0007 04 7f"
      "0000000000000000 1234 00 00 02 00"
      "0002 0008 0002 c007 00000000";

Message parsed(std::vector<U8> const& from) {
   Message message;
   EXPECT_EQ(parse(from, message), Fault::none);
   return message;
}

/// What is wrong with `from` where octets were replaced.
Fault faultWith(char const* from, std::size_t offset, std::vector<U8> const& replacement) {
   std::vector<U8> changed = octets(from);
   std::copy(replacement.begin(), replacement.end(),
             changed.begin() + static_cast<std::ptrdiff_t>(offset));
   Message message;
   return parse(changed, message);
}

TEST(Message, ARequestHasTheOctetsOfTheStandard) {
   Message message;
   message.domainNumber = 24;
   message.source = Ptp::PortIdentity(Ptp::ClockIdentity(), 0x1234);
   message.sequenceId = 7;
   EXPECT_EQ(hex(format(message)), hex(octets(get)));
}

TEST(Message, TransportSpecificIsInTheFirstOctet) {
   Message message;
   message.transportSpecific = 1;
   EXPECT_EQ(format(message)[0], 0x1D);
   EXPECT_EQ(parsed(format(message)).transportSpecific, 1);
}

TEST(Message, AnAnswerIsRead) {
   std::vector<U8> const bytes = octets(answer);
   Message const message = parsed(bytes);
   EXPECT_EQ(message.source, Ptp::PortIdentity(Ptp::ClockIdentity("0a:cd:14:ff:fe:33:e0:79"), 0));
   EXPECT_EQ(message.target, Ptp::PortIdentity(Ptp::ClockIdentity(), 0x1234));
   EXPECT_EQ(message.sequenceId, 7);
   EXPECT_EQ(message.action, Action::response);
   EXPECT_EQ(message.id, Id::defaultDataSet);
   EXPECT_EQ(message.error, 0);
   EXPECT_EQ(message.data.size(), 20u);
   EXPECT_EQ(hex(format(message)), hex(bytes));
}

TEST(Message, MinorVersionsAreRead) {
   std::vector<U8> bytes = octets(answer);
   bytes[1] = 0x12;
   EXPECT_EQ(parsed(bytes).id, Id::defaultDataSet);
}

TEST(Message, ARefusalHasItsReason) {
   Message const message = parsed(octets(refusal));
   EXPECT_EQ(message.id, Id::portServiceStatsNp);
   EXPECT_EQ(errorText(message.error), "NO_SUCH_ID");
   EXPECT_TRUE(message.data.empty());
   EXPECT_EQ(hex(format(message)), hex(octets(refusal)));
}

TEST(Message, ErrorsHaveTheNamesOfTheStandard) {
   EXPECT_EQ(errorText(1), "RESPONSE_TOO_BIG");
   EXPECT_EQ(errorText(3), "WRONG_LENGTH");
   EXPECT_EQ(errorText(4), "WRONG_VALUE");
   EXPECT_EQ(errorText(5), "NOT_SETABLE");
   EXPECT_EQ(errorText(6), "NOT_SUPPORTED");
   EXPECT_EQ(errorText(0xFFFE), "GENERAL_ERROR");
   EXPECT_EQ(errorText(0x0102), "error 0x0102");
}

TEST(Message, EveryPrefixIsRefused) {
   std::vector<U8> const whole = octets(answer);
   for (std::size_t size = 0; size != whole.size(); ++size) {
      Message message;
      Fault const fault = parse(Octets(whole).first(size), message);
      EXPECT_EQ(fault, size < 48 ? Fault::tooShort : Fault::wrongLength) << size;
   }
}

TEST(Message, AnythingElseIsRefused) {
   EXPECT_EQ(faultWith(answer, 0, {0x0B}), Fault::notManagement);  // Announce
   EXPECT_EQ(faultWith(answer, 1, {0x01}), Fault::notManagement);  // version 1
   EXPECT_EQ(faultWith(answer, 2, {0, 0x49}), Fault::wrongLength);
   EXPECT_EQ(faultWith(answer, 48, {0, 3}), Fault::wrongTlv);     // ORGANIZATION_EXTENSION
   EXPECT_EQ(faultWith(answer, 50, {0, 0x17}), Fault::wrongTlv);  // beyond the end
   EXPECT_EQ(faultWith(answer, 50, {0, 1}), Fault::wrongTlv);     // not even an id
   EXPECT_EQ(faultWith(refusal, 52, {0, 0}), Fault::wrongTlv);    // no error
   EXPECT_EQ(faultWith(refusal, 50, {0, 3}), Fault::wrongTlv);
}

TEST(DataSets, DefaultDataSet) {
   std::vector<U8> const bytes = octets("03 00 0002 80 06211234 7f 0acd14fffe33e079 18 00");
   auto const set = decode<DefaultDataSet>(bytes);
   ASSERT_TRUE(set);
   EXPECT_EQ(set->flags, DefaultDataSet::twoStep | DefaultDataSet::slaveOnly);
   EXPECT_EQ(set->numberPorts, 2);
   EXPECT_EQ(set->priority1, 128);
   EXPECT_EQ(set->clockQuality, Ptp::ClockQuality(6, 0x21, Dorn::NetU16(0x1234)));
   EXPECT_EQ(set->priority2, 127);
   EXPECT_EQ(set->clockIdentity, Ptp::ClockIdentity("0a:cd:14:ff:fe:33:e0:79"));
   EXPECT_EQ(set->domainNumber, 24);
   EXPECT_EQ(hex(encode(*set)), hex(bytes));
}

TEST(DataSets, CurrentDataSet) {
   std::vector<U8> const bytes = octets("0001 ffffffffffc30000 0000000000cd8000");
   auto const set = decode<CurrentDataSet>(bytes);
   ASSERT_TRUE(set);
   EXPECT_EQ(set->stepsRemoved, 1);
   EXPECT_EQ(set->offsetFromMaster, -61 * 65536);
   EXPECT_EQ(set->meanPathDelay, 205 * 65536 + 32768);
   EXPECT_EQ(hex(encode(*set)), hex(bytes));
}

TEST(DataSets, ParentDataSet) {
   std::vector<U8> const bytes =
         octets("0acd14fffe33e079 0001 01 00 ffff 7fffffff 0a f8feffff 80 0acd14fffe33e079");
   auto const set = decode<ParentDataSet>(bytes);
   ASSERT_TRUE(set);
   EXPECT_EQ(set->parentPortIdentity.portNumber(), 1);
   EXPECT_EQ(set->parentStats, 1);
   EXPECT_EQ(set->observedParentOffsetScaledLogVariance, 0xFFFF);
   EXPECT_EQ(set->observedParentClockPhaseChangeRate, 0x7FFFFFFF);
   EXPECT_EQ(set->grandmasterPriority1, 10);
   EXPECT_EQ(set->grandmasterClockQuality.clockClass(), 248);
   EXPECT_EQ(set->grandmasterPriority2, 128);
   EXPECT_EQ(set->grandmasterIdentity.value(), 0x0acd14fffe33e079u);
   EXPECT_EQ(hex(encode(*set)), hex(bytes));
}

TEST(DataSets, TimePropertiesDataSet) {
   auto const set = decode<TimePropertiesDataSet>(octets("ffdb 3c a0"));
   ASSERT_TRUE(set);
   EXPECT_EQ(set->currentUtcOffset, -37);
   EXPECT_EQ(set->flags, 0x3c);
   EXPECT_EQ(set->timeSource, 0xa0);
   EXPECT_EQ(hex(encode(*set)), "ffdb3ca0");
}

TEST(DataSets, PortDataSet) {
   std::vector<U8> const bytes =
         octets("0acd14fffe33e079 0002 09 fe 0000000008200001 ff 03 fd 02 00 02");
   auto const set = decode<PortDataSet>(bytes);
   ASSERT_TRUE(set);
   EXPECT_EQ(set->portIdentity.portNumber(), 2);
   EXPECT_EQ(set->portState, 9);
   EXPECT_EQ(set->logMinDelayReqInterval, -2);
   EXPECT_EQ(set->peerMeanPathDelay, 2080 * 65536 + 1);
   EXPECT_EQ(set->logAnnounceInterval, -1);
   EXPECT_EQ(set->announceReceiptTimeout, 3);
   EXPECT_EQ(set->logSyncInterval, -3);
   EXPECT_EQ(set->delayMechanism, 2);
   EXPECT_EQ(set->logMinPdelayReqInterval, 0);
   EXPECT_EQ(set->versionNumber, 2);
   EXPECT_EQ(hex(encode(*set)), hex(bytes));
}

TEST(DataSets, TimeStatusNp) {
   std::vector<U8> const bytes = octets(
         "ffffffffffffffff 18ea1500a1b2c3d4 00000200 00000003 0004 000000000000000000000005"
         "00000001 0acd14fffe33e079");
   auto const set = decode<TimeStatusNp>(bytes);
   ASSERT_TRUE(set);
   EXPECT_EQ(set->masterOffset, -1);
   EXPECT_EQ(set->ingressTime, 0x18ea1500a1b2c3d4);
   EXPECT_EQ(set->cumulativeScaledRateOffset, 512);
   EXPECT_EQ(set->gmPresent, 1);
   EXPECT_EQ(set->gmIdentity.value(), 0x0acd14fffe33e079u);
   EXPECT_EQ(bytes.size(), 50u);
   EXPECT_EQ(hex(encode(*set)), hex(bytes));
}

TEST(DataSets, ANameIsPaddedToAnEvenSize) {
   std::vector<U8> const even = octets("0acd14fffe33e079 0001 09 00 03 6e7662");
   ASSERT_TRUE(decode<PortPropertiesNp>(even));
   EXPECT_EQ(decode<PortPropertiesNp>(even)->interface.text, "nvb");
   EXPECT_EQ(hex(encode(*decode<PortPropertiesNp>(even))), hex(even));
   std::vector<U8> const odd = octets("0acd14fffe33e079 0001 09 00 04 65746830 00");
   ASSERT_TRUE(decode<PortPropertiesNp>(odd));
   EXPECT_EQ(decode<PortPropertiesNp>(odd)->interface.text, "eth0");
   EXPECT_EQ(hex(encode(*decode<PortPropertiesNp>(odd))), hex(odd));
}

TEST(DataSets, ANameThatExceedsItsMessageIsRefused) {
   EXPECT_FALSE(decode<PortPropertiesNp>(octets("0acd14fffe33e079 0001 09 00 05 65746830")));
   EXPECT_FALSE(decode<PortPropertiesNp>(octets("0acd14fffe33e079 0001 09 00")));
}

TEST(DataSets, CountersAreLittleEndian) {
   std::vector<U8> bytes = octets("0acd14fffe33e079 0001");
   bytes.resize(266);
   bytes[10] = 0x02;  // rx Sync
   bytes[11] = 0x01;
   bytes[138 + 11 * 8 + 7] = 0x80;  // tx Announce
   auto const set = decode<PortStatsNp>(bytes);
   ASSERT_TRUE(set);
   EXPECT_EQ(set->received.values[0], 0x0102u);
   EXPECT_EQ(set->sent.values[11], U64{0x80} << 56);
   EXPECT_EQ(hex(encode(*set)), hex(bytes));
}

TEST(DataSets, ClockDescription) {
   std::vector<U8> const bytes = octets(
         "8000 0a 4945454520383032 2e33 0006 52aac83b55bd 0001 0004 0a4d0002 000000 00"
         "02 3b3b 02 3b3b 00 001b19000100");
   EXPECT_EQ(bytes.size(), 46u);
   auto const set = decode<ClockDescription>(bytes);
   ASSERT_TRUE(set);
   EXPECT_EQ(set->clockType, ClockDescription::ordinaryClock);
   EXPECT_EQ(set->physicalLayerProtocol.text, "IEEE 802.3");
   EXPECT_EQ(hex(set->physicalAddress.octets), "52aac83b55bd");
   EXPECT_EQ(set->networkProtocol, 1);
   EXPECT_EQ(hex(set->protocolAddress.octets), "0a4d0002");
   EXPECT_EQ(set->productDescription.text, ";;");
   EXPECT_EQ(set->userDescription.text, "");
   EXPECT_EQ(set->profileIdentity, (std::array<U8, 6>{0, 0x1b, 0x19, 0, 1, 0}));
   EXPECT_EQ(hex(encode(*set)), hex(bytes));
}

TEST(DataSets, UnicastMasterTableNp) {
   std::vector<U8> const bytes = octets(
         "0002"
         "0acd14fffe33e079 0001 06211234 01 03 80 7f 0001 0004 0a4d0001"
         "ffffffffffffffff ffff 00000000 00 00 00 00 0002 0010 20010db8000000000000000000000001");
   auto const table = decode<UnicastMasterTableNp>(bytes);
   ASSERT_TRUE(table);
   ASSERT_EQ(table->masters.size(), 2u);
   EXPECT_EQ(table->masters[0].selected, 1);
   EXPECT_EQ(table->masters[0].priority2, 127);
   EXPECT_EQ(hex(table->masters[0].address.octets), "0a4d0001");
   EXPECT_EQ(table->masters[1].networkProtocol, 2);
   EXPECT_EQ(hex(encode(*table)), hex(bytes));
}

TEST(DataSets, AnUnicastMasterTableThatIsCutIsRefused) {
   EXPECT_FALSE(decode<UnicastMasterTableNp>(octets("ffff")));
   EXPECT_TRUE(decode<UnicastMasterTableNp>(octets("0000")));
}

TEST(DataSets, OtherSizesAreRefused) {
   std::vector<U8> const whole = encode(PortDataSetNp{800, 1});
   EXPECT_EQ(hex(whole), "0000032000000001");
   for (std::size_t size = 0; size != whole.size(); ++size) {
      EXPECT_FALSE(decode<PortDataSetNp>(Octets(whole).first(size))) << size;
   }
   std::vector<U8> longer = whole;
   longer.push_back(0);
   EXPECT_FALSE(decode<PortDataSetNp>(longer));  // not even
   longer.push_back(0);
   EXPECT_FALSE(decode<PortDataSetNp>(longer));
}

TEST(DataSets, NamesAreThoseOfTheStandardAndOfLinuxptp) {
   EXPECT_EQ(nameOf(Id::defaultDataSet), "DEFAULT_DATA_SET");
   EXPECT_EQ(nameOf(Id::unicastMasterTableNp), "UNICAST_MASTER_TABLE_NP");
   EXPECT_EQ(nameOf(static_cast<Id>(0x2007)), "0x2007");
   std::vector<std::string> names;
   forEachRow<PortDataSetNp>([&](auto const& row) { names.emplace_back(row.name); });
   EXPECT_EQ(names, (std::vector<std::string>{"neighborPropDelayThresh", "asCapable"}));
}

}  // namespace
