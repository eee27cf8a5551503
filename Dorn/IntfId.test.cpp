#include "Dorn/IntfId.h"

#include <algorithm>

#include "Dorn/IntfIdWords.h"
#include "tests/ValueTypeTesting.h"

using namespace ValueTypeTesting;
using Dorn::IntfId;

namespace {

static_assert(sizeof(IntfId) == 8 && IntfId().bits() == 0 && IntfId().isEmpty());

/// Names that switches and kernels use.
constexpr std::string_view realNames[] = {
      // clang-format off
      "Ethernet1", "Ethernet48", "Ethernet3/1", "Ethernet3/1/2", "Ethernet16/36/4",
      "Ethernet1/1/1/1", "Ethernet1/2/3/4/5", "Ethernet100/100/100/100", "Ethernet1.100",
      "Ethernet48/4.4094", "Ethernet18/36/4.4094", "Ethernet1/1.100000", "UnconnectedEthernet12",
      "PortChannel1", "PortChannel12", "PortChannel2000", "PortChannel999999", "PortChannel12.4094",
      "Port-Channel12", "Port-Channel12.100", "Recirc-Channel1000", "Vlan1", "Vlan100", "Vlan4094",
      "Loopback0", "Loopback2100", "Management0", "Management1", "Management1/1", "Management2/1",
      "Tunnel0", "Vxlan1", "Cpu", "Null0", "Fabric3/1/1", "Switch1", "Test1", "Et1", "Po1", "Ma1",
      "Et3/1/2", "Po12.100", "GigabitEthernet0", "GigabitEthernet1/0/48",
      "GigabitEthernet0/0/0/47", "GigabitEthernet0/0/0/47.4094", "TenGigE0/1/0/3",
      "HundredGigE0/0/0/35", "HundredGigE0/0/0/35.4094", "TwentyFiveGigE0/0/0/0",
      "FortyGigE0/0/0/0", "FourHundredGigE0/0/0/15", "TenGigabitEthernet1/1/4", "FastEthernet0/1",
      "Bundle-Ether1", "Bundle-Ether65535.4094", "xe-0/0/1", "ge-0/0/47.0",
      "et-0/0/1:0", "et-0/0/1:3.100", "xe-1/2/3:0", "ae0", "ae12.100", "irb.100", "fxp0", "me0",
      "lo0.0", "mgmt0", "eth1/1", "nve1", "swp1", "swp12", "swp1s0", "swp64s3", "swp32s1.4094",
      "peerlink.4094", "vlan100", "bridge", "vrf-mgmt", "mgmt",
      "lo", "eth0", "eth1", "eth10", "eth0.100", "eth0.4094", "eth0.100.200", "eth0:1", "rename3",
      "enp3s0", "enp3s0f1", "enp0s31f6", "enp0s25", "enp129s0f0", "enp129s0f1np1", "enp65s0f0np0",
      "enp65s0f1np1.10", "enp255s31f7", "enp1s0f0v12", "enp3s0f0.4094", "enp0s20f0u2", "enp0s20u1u2",
      "enp0s20f0u1u4", "enP2p1s0f0", "enP2p1s0f0np0", "enP4p65s0f0np0", "eno1", "eno49", "eno1np0",
      "eno2.100", "eno16777736", "ens3", "ens33", "ens160", "ens3f0", "ens3f0np0", "ens1f1np1",
      "ens2f0v3", "ens785f0", "ens5.4094", "enx001122334455", "enx0a1b2c3d4e5f", "enxaabbccddeeff",
      "encf5f0", "enc1000", "em1", "em2_1", "p1p1", "p4p2_0", "wlan0", "wlp2s0", "wlp0s20f3",
      "wlo1", "wlx00c0caaabbcc", "wls1", "wwan0", "wwp0s20f0u6", "wwp0s20f0u2i12", "usb0", "ib0",
      "ib1.8001", "ibp65s0", "ibp129s0f1", "ibs3", "bond0", "bond0.100", "bond12.4094", "team0",
      "team0.200", "lag1", "br0", "br-lan", "br-wan", "br-int", "br-ex", "br-tun", "br0.100",
      "br-1a2b3c4d5e6f", "br-0a1b2c3d4e5f", "docker0", "docker_gwbridge", "veth0", "veth1a2b3c4",
      "veth0a1b2c3", "vethe3b0c44", "vethf1d2d2f9", "veth1A2bC3", "vethJ8K2LQ", "veth-a", "veth12.5",
      "virbr0", "virbr0-nic", "vnet0", "vnet12", "tap0", "tap1a2b3c4d-5e", "qvo1a2b3c4d-5e",
      "qvb0a1b2c3d-00", "qbrffffffff-ff", "qr-1a2b3c4d-5e", "qg-01234567-89", "ha-1a2b3c4d-5e",
      "tun0", "tunl0", "tap100i0", "fwbr100i0", "fwpr100p0", "fwln100i0", "vmbr0", "vmbr0.100",
      "vmbr0v100", "vmnet8", "lxcbr0", "lxdbr0", "lxc1a2b3c4d5e6f", "lxc_health", "cilium_host",
      "cilium_net", "cilium_vxlan", "cni0", "cbr0", "flannel.1", "cali12345678901",
      "cali0a1b2c3d4e5", "calib1c2d3e4f5a", "vxlan.calico", "kube-ipvs0", "kube-bridge",
      "nodelocaldns", "eni1a2b3c4d5e6", "azv1a2b3c4d5e6", "gke1a2b3c4d5e6", "vxlan0", "vxlan100",
      "vxlan_sys_4789", "genev_sys_6081", "ovs-system", "ovs-netdev", "geneve0", "gre0", "gretap0",
      "erspan0", "sit0", "ip6tnl0", "ip6gre0", "ip6_vti0", "ip_vti0", "ip6gretap0", "dummy0",
      "dummy12", "ifb0", "ifb4eth0", "macvlan0", "macvtap0", "macvtap12", "ipvlan0", "macsec0",
      "vlan4094", "vrf0", "vrf_blue", "nlmon0", "can0", "vcan0", "slcan0", "ppp0", "ppp12", "wg0",
      "wg-home", "tailscale0", "podman0", "xenbr0", "vif1.0", "vif12.1-emu", "hsr0", "prp0", "teql0",
      "pim6reg", "pimreg", "pimreg100", "bat0", "lan1", "lan4", "wan", "lan1.100", "sfp2", "port1",
      "dsa", "eth2.7", "wpan0", "rmnet_data0", "rmnet_ipa0", "usb0.5", "isatap0", "zt5u4y6mkq",
      "ptp0", "sw0p1", "sw1p24", "s1-eth1", "h1-eth0", "ens4f0np0.100", "eth100",
      "ens10f0np0", "ens10f1np1.7", "0", "00", "6in4-wan", "1-1", "_x", "A", "z",
      // clang-format on
};

std::vector<std::string_view> sorted(std::vector<std::string_view> names) {
   std::sort(names.begin(), names.end(),
             [](auto const a, auto const b) { return IntfId(a) < IntfId(b); });
   return names;
}

TEST(IntfId, EmptyNameIsZero) {
   EXPECT_EQ(IntfId("").bits(), 0u);
   EXPECT_EQ(IntfId("\"\"").bits(), 0u);
   EXPECT_EQ(IntfId("  ").bits(), 0u);
   EXPECT_EQ(printed(IntfId()), "\"\"");
   EXPECT_EQ(IntfId().name(), "");
   EXPECT_EQ(encoded(IntfId()), Bytes(8));
   expectRoundTrips(IntfId());
}

TEST(IntfId, HoldsNamesAsTheyOccur) {
   for (std::string_view const name : realNames) {
      IntfId const id = [&] {
         try {
            return IntfId(name);
         } catch (Kiv::RangeException const& error) {
            ADD_FAILURE() << error.what();
            return IntfId();
         }
      }();
      EXPECT_EQ(id.name(), name);
      EXPECT_EQ(printed(id), name);
      expectRoundTrips(id, ",)] \t\n(=\"");
   }
}

TEST(IntfId, SameNameHasTheSameBitsInEveryRelease) {
   // If one of these changes, so must the hash of the module Dorn: the old and the new encoding are
   // not compatible.
   struct {
      char const* name;
      U64 bits;
   } const pinned[] = {
         {"Ethernet1", 0x0910000000000000},
         {"Ethernet3/1/2", 0x0914909200000000},
         {"eth0", 0x610c000000000000},
         {"enp129s0f1np1", 0x5bb86363a1172000},
         {"Vlan4094", 0x3a3dd2a000000000},
         {"enx0a1b2c3d4e5f", 0x5dfc1436587a9cbf},
         {"tap1a2b3c4d-5e", 0xb77e1a2b3c4d5e00},
         {"vethJ8K2LQ", 0xc1428f82c9832220},
         {"zzz", 0xe2fbe80000000000},
   };
   for (auto const& [name, bits] : pinned) {
      EXPECT_EQ(IntfId(name).bits(), bits) << name << std::hex << " 0x" << IntfId(name).bits();
   }
}

TEST(IntfId, WordsAreThoseOfEveryRelease) {
   // All words at once, for the same reason.
   U64 sum = 0;
   for (std::string_view const word : Dorn::IntfIdImpl::words) {
      sum = (sum ^ IntfId(Sarn::String(word) + "1").bits() >> 48) * 1099511628211;
   }
   EXPECT_EQ(sum, 0xe08726d3b6b49ad0u) << std::hex << " 0x" << sum;
}

TEST(IntfId, TravelsAsItsBits) {
   U64 const bits = IntfId("Ethernet3/1/2").bits();
   Bytes expected;
   for (int shift = 56; shift >= 0; shift -= 8) {
      expected.push_back(static_cast<U8>(bits >> shift));
   }
   EXPECT_EQ(encoded(IntfId("Ethernet3/1/2")), expected);
}

TEST(IntfId, SortsAsPeopleSort) {
   std::vector<std::string_view> const order = {"",
                                                "Bundle-Ether2",
                                                "Ethernet1",
                                                "Ethernet1.2",
                                                "Ethernet1.10",
                                                "Ethernet1/1",
                                                "Ethernet1/2",
                                                "Ethernet1/2/1",
                                                "Ethernet1/10",
                                                "Ethernet2",
                                                "Ethernet10",
                                                "Ethernet100",
                                                "Loopback0",
                                                "Management1",
                                                "Management1/1",
                                                "Port-Channel1",
                                                "PortChannel2",
                                                "PortChannel10",
                                                "Vlan9",
                                                "Vlan100",
                                                "Vlan4094",
                                                "bond0",
                                                "bond0.9",
                                                "bond0.100",
                                                "br-lan",
                                                "enp3s0",
                                                "enp3s0f1",
                                                "enp3s0f10",
                                                "enp3s0f10np0",
                                                "enp12s0",
                                                "ens3",
                                                "eth0",
                                                "eth0.100",
                                                "eth1",
                                                "eth2",
                                                "eth10",
                                                "lo",
                                                "swp1",
                                                "swp1s0",
                                                "swp1s3",
                                                "swp2",
                                                "swp12",
                                                "veth0",
                                                "wlan0"};
   std::vector<IntfId> ids;
   for (std::string_view const name : order) {
      ids.emplace_back(name);
   }
   expectAscending(ids);
}

TEST(IntfId, NumbersWithLeadingZerosAreOtherNames) {
   expectAscending<IntfId>({IntfId("eth00"), IntfId("eth01"), IntfId("eth0"), IntfId("eth1")});
   EXPECT_EQ(IntfId("Ethernet01").name(), "Ethernet01");
   EXPECT_EQ(IntfId("Ethernet1/007").name(), "Ethernet1/007");
}

TEST(IntfId, HexadecimalTailsComeAfterTheNumbersOfTheirWord) {
   EXPECT_EQ(
         sorted({"vethfedcba9", "veth10", "vetha", "veth2", "vethabcdef1"}),
         (std::vector<std::string_view>{"veth2", "veth10", "vetha", "vethabcdef1", "vethfedcba9"}));
}

TEST(IntfId, WhatCannotBeHeldIsSaid) {
   EXPECT_EQ(rangeMessage<IntfId>("veth0@if3"),
             "\"veth0@if3\" does not fit Dorn::IntfId: \"@\" is not allowed in an interface "
             "name (letters, digits and . _ - / : are)");
   EXPECT_EQ(rangeMessage<IntfId>("Ethernet 1"),
             "\"Ethernet 1\" does not fit Dorn::IntfId: \" \" is not allowed in an interface "
             "name (letters, digits and . _ - / : are)");
   EXPECT_EQ(
         rangeMessage<IntfId>("Ethernet9999999999999"),
         "\"Ethernet9999999999999\" does not fit Dorn::IntfId: the number at position 8 exceeds "
         "4312797544");
   EXPECT_EQ(rangeMessage<IntfId>("a-very-long-name"),
             "\"a-very-long-name\" does not fit Dorn::IntfId: it needs 96 bits, more than 64");
   EXPECT_EQ(rangeMessage<IntfId>(std::string(100000, 'x')),
             "\"" + std::string(80, 'x') +
                   "\"... does not fit Dorn::IntfId: it needs 600003 bits, "
                   "more than 64");
   EXPECT_EQ(rangeMessage<IntfId>(std::string_view("eth\0", 4)),
             "\"eth\\x00\" does not fit Dorn::IntfId: \"\\x00\" is not allowed in an interface "
             "name (letters, digits and . _ - / : are)");
}

TEST(IntfId, NoNameInTextIsABrokenStructure) {
   for (std::string_view const text : {"", "  ", ")", "=1"}) {
      EXPECT_EQ(messageOf<Kiv::ParseException>([&] {
                   Kiv::CharRange range(text);
                   IntfId id(range);
                }),
                "at position " + std::to_string(text == "  " ? 2 : 0) +
                      ": expected an interface name, or \"\" for none");
   }
}

TEST(IntfId, BitsOfNoNameAreAFault) {
   EXPECT_EQ(faultMessage<IntfId>(Bytes(8, 0xff)),
             "the bits of an interface id do not encode a name at offset 0");
   EXPECT_EQ(IntfId::fromBits(~U64{0}), std::nullopt);
   EXPECT_EQ(IntfId::fromBits(1), std::nullopt);
   EXPECT_EQ(IntfId::fromBits(0), IntfId());
}

TEST(IntfId, EveryWordStandsAloneAndBeforeNumbers) {
   std::vector<IntfId> ids;
   for (std::string_view const word : Dorn::IntfIdImpl::words) {
      Sarn::String const base(word);
      for (Sarn::String const& name :
           {base, base + "0", base + "12", base + "0/0/0/47.4094", base + "4312797544"}) {
         IntfId const id(name);
         ASSERT_EQ(id.name(), name);
         ASSERT_EQ(IntfId::fromBits(id.bits()), id);
         ids.push_back(id);
      }
   }
   std::sort(ids.begin(), ids.end());
   EXPECT_EQ(std::adjacent_find(ids.begin(), ids.end()), ids.end());
}

TEST(IntfId, EveryVlanSubinterfaceAndEveryPortNumberIsExact) {
   IntfId before;
   for (int n = 0; n <= 70000; ++n) {
      Sarn::String const name = "Ethernet" + std::to_string(n);
      IntfId const id(name);
      ASSERT_EQ(id.name(), name);
      ASSERT_LT(before, id);
      before = id;
      if (n <= 4094) {
         Sarn::String const sub = "enp129s0f0." + std::to_string(n);
         ASSERT_EQ(IntfId(sub).name(), sub);
      }
   }
}

}  // namespace
