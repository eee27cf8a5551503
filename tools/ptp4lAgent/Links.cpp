#include "tools/ptp4lAgent/Links.h"

#include <linux/if.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace Ptp4lAgent {

namespace {

constexpr std::size_t aligned(std::size_t size) {
   return (size + 3) / 4 * 4;
}

/// Copies a structure from the front of `bytes`; false if there are too few.
template <class T>
bool copied(T& to, std::span<unsigned char const> bytes) {
   if (bytes.size() < sizeof to) {
      return false;
   }
   std::memcpy(&to, bytes.data(), sizeof to);
   return true;
}

/// Whether an interface in this state carries packets. Some drivers never tell: unknown counts as
/// up, if the interface is running.
bool isUp(unsigned char operstate, unsigned flags) {
   return operstate == IF_OPER_UNKNOWN ? (flags & IFF_RUNNING) != 0 : operstate == IF_OPER_UP;
}

}  // namespace

Links::Links(std::function<void(std::string const& interface, bool up)> onLink)
      : onLink_(std::move(onLink)),
        fd_(::socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE)) {
   sockaddr_nl address{};
   address.nl_family = AF_NETLINK;
   address.nl_groups = RTMGRP_LINK;
   if (fd_ >= 0 && ::bind(fd_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      close();
   }
   askForAll();
}

void Links::close() noexcept {
   if (fd_ >= 0) {
      ::close(fd_);
      fd_ = -1;
   }
}

void Links::askForAll() const noexcept {
   struct {
      nlmsghdr header;
      ifinfomsg info;
   } request{};
   request.header.nlmsg_len = sizeof request;
   request.header.nlmsg_type = RTM_GETLINK;
   request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
   ::send(fd_, &request, sizeof request, 0);
}

void Links::onTurn(std::span<pollfd const> polled) {
   if (polled[0].revents == 0) {
      return;
   }
   std::array<unsigned char, 32768> buffer;
   for (;;) {
      ssize_t const size = ::recv(fd_, buffer.data(), buffer.size(), 0);
      if (size > 0) {
         take({buffer.data(), static_cast<std::size_t>(size)});
      } else if (size < 0 && errno == ENOBUFS) {
         askForAll();  // some changes were lost
      } else if (size < 0 && errno == EINTR) {
         continue;
      } else {
         if (size == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
            close();  // poll would find it ready forever
         }
         return;
      }
   }
}

void Links::take(std::span<unsigned char const> messages) {
   nlmsghdr header{};
   while (copied(header, messages)) {
      if (header.nlmsg_len < sizeof header || header.nlmsg_len > messages.size()) {
         return;
      }
      auto rest = messages.first(header.nlmsg_len).subspan(sizeof header);
      messages =
            messages.subspan(std::min<std::size_t>(aligned(header.nlmsg_len), messages.size()));
      ifinfomsg info{};
      bool const ofLink = header.nlmsg_type == RTM_NEWLINK || header.nlmsg_type == RTM_DELLINK;
      if (!ofLink || !copied(info, rest)) {
         continue;
      }
      rest = rest.subspan(sizeof info);
      std::string name;
      unsigned char state = IF_OPER_UNKNOWN;
      rtattr attribute{};
      while (copied(attribute, rest) && attribute.rta_len >= sizeof attribute &&
             attribute.rta_len <= rest.size()) {
         auto const value = rest.first(attribute.rta_len).subspan(sizeof attribute);
         if (attribute.rta_type == IFLA_IFNAME && !value.empty()) {
            name.assign(reinterpret_cast<char const*>(value.data()), value.size() - 1);
         } else if (attribute.rta_type == IFLA_OPERSTATE && !value.empty()) {
            state = value[0];
         }
         rest = rest.subspan(std::min<std::size_t>(aligned(attribute.rta_len), rest.size()));
      }
      if (!name.empty()) {
         onLink_(name, header.nlmsg_type == RTM_NEWLINK && isUp(state, info.ifi_flags));
      }
   }
}

}  // namespace Ptp4lAgent
