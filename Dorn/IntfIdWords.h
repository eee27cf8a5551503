#pragma once

#include <array>
#include <string_view>

namespace Dorn::IntfIdImpl {

/// The beginnings of interface names that an id stores as one number: ports and logical interfaces
/// of switches, devices of the Linux kernel and of common programs, and each letter, which saves
/// the first letter of all other names. Sorted by byte value; without digits, which are numbers.
///
/// This table is part of the encoding. Adding or removing a word changes the ids of existing names,
/// so the hash of the module `Dorn` must change with it; connected processes compare this hash to
/// make sure that they agree.
inline constexpr auto words = std::to_array<std::string_view>({
      // clang-format off
      "A", "B", "Bridge", "Bundle-Ether", "C", "CPU", "Cpu", "D", "E", "Ethernet", "F", "Fabric",
      "FastEthernet", "FiftyGigE", "FiveGigabitEthernet", "FortyGigE", "FortyGigabitEthernet",
      "FourHundredGigE", "G", "GigE", "GigabitEthernet", "H", "HundredGigE", "I", "Internal",
      "InternalRecirc", "J", "K", "L", "Loopback", "M", "Management", "Mgmt", "MgmtEth", "N",
      "Null", "O", "P", "Port", "Port-Channel", "PortChannel", "Q", "R", "Recirc-Channel", "S",
      "Serial", "Switch", "T", "TenGigE", "TenGigabitEthernet", "Test", "Tunnel",
      "TwentyFiveGigE", "TwoGigabitEthernet", "TwoHundredGigE", "U", "UnconnectedEthernet", "V",
      "Vlan", "Vxlan", "W", "X", "Y", "Z", "a", "ae", "azv", "b", "bat", "bond", "br", "br-",
      "bridge", "bvi", "c", "cali", "can", "cbr", "cilium", "cilium_", "cni", "d", "docker",
      "docker_gwbridge", "dsa", "dummy", "e", "en", "enP", "enc", "eni", "eno", "enp", "ens",
      "enx", "erspan", "et-", "eth", "f", "fab", "fg-", "flannel", "flannel.", "fwbr", "fwln",
      "fwpr", "fxp", "g", "ge-", "genev_sys_", "geneve", "gke", "gre", "gretap", "h", "ha-",
      "hsr", "i", "ib", "ibp", "ibs", "ifb", "ip", "ip_vti", "ipmi", "ipsec", "ipvlan", "ipvtap",
      "irb", "isatap", "j", "k", "kube-", "kube-bridge", "kube-ipvs", "l", "lag", "lan", "lo",
      "lxc", "lxcbr", "lxdbr", "m", "macsec", "macv", "macvlan", "macvtap", "mgmt", "n", "nic",
      "nlmon", "nodelocaldns", "nve", "o", "ovs", "ovs-", "ovs-system", "p", "patch-", "peerlink",
      "pf-", "pimreg", "podman", "port", "ppp", "prp", "ptp", "q", "qbr", "qg-", "qr-", "qvb",
      "qvo", "r", "rmnet_data", "rmnet_ipa", "s", "sfp", "sg-", "sit", "swp", "t", "tailscale",
      "tap", "team", "teql", "test", "tun", "tunl", "u", "usb", "v", "vcan", "veth", "vif",
      "virbr", "vlan", "vmbr", "vmnet", "vnet", "vrf", "vti", "vxlan", "vxlan-", "vxlan_sys_",
      "w", "wan", "wg", "wifi", "wlan", "wlo", "wlp", "wls", "wlx", "wpan", "wwan", "wwo", "wwp",
      "wws", "wwx", "x", "xe-", "xenbr", "xfrm", "y", "z", "zt",
      // clang-format on
});

}  // namespace Dorn::IntfIdImpl
