#include "Holt/Access.h"

#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "Holt/Failure.h"

namespace Holt {
namespace {

std::optional<U32> numberOf(std::string_view text) {
   U32 number = 0;
   auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
   bool const whole = error == std::errc() && end == text.data() + text.size();
   return whole && number != ~U32(0) ? std::optional<U32>(number) : std::nullopt;
}

uid_t userOf(Sarn::String const& text) {
   if (std::optional<U32> const number = numberOf(text)) {
      return *number;
   }
   passwd const* const user = ::getpwnam(text.c_str());
   if (user == nullptr) {
      throw Failure("there is no user '" + text + "'; give a name or a number", Exit::usage);
   }
   return user->pw_uid;
}

gid_t groupOf(Sarn::String const& text) {
   if (std::optional<U32> const number = numberOf(text)) {
      return *number;
   }
   group const* const found = ::getgrnam(text.c_str());
   if (found == nullptr) {
      throw Failure("there is no group '" + text + "'; give a name or a number", Exit::usage);
   }
   return found->gr_gid;
}

template <class T>
bool contains(std::vector<T> const& all, T const& one) {
   return std::find(all.begin(), all.end(), one) != all.end();
}

}  // namespace

Owner parseOwner(Sarn::String const& text) {
   std::size_t const colon = text.find(':');
   Sarn::String const user = text.substr(0, colon);
   Sarn::String const group = colon == Sarn::String::npos ? "" : text.substr(colon + 1);
   Owner owner;
   if (!user.empty()) {
      owner.user = userOf(user);
   }
   if (!group.empty()) {
      owner.group = groupOf(group);
   }
   if (!owner.user && !owner.group) {
      throw Failure("invalid owner '" + text + "': expected USER, :GROUP or USER:GROUP",
                    Exit::usage);
   }
   return owner;
}

mode_t parseMode(Sarn::String const& text) {
   U32 mode = 0;
   char const* const last = text.data() + text.size();
   auto const [end, error] = std::from_chars(text.data(), last, mode, 8);
   if (error != std::errc() || end != last || mode > 0777) {
      throw Failure("invalid mode '" + text + "': expected octal permissions, such as 0660",
                    Exit::usage);
   }
   return mode;
}

Writers::Writers(std::vector<Sarn::String> const& allowed) : everybody_(false) {
   for (Sarn::String const& one : allowed) {
      Owner const owner = parseOwner(one);
      if (owner.user && owner.group) {
         throw Failure("'" + one + "': name a writer by USER or by :GROUP, not by both",
                       Exit::usage);
      }
      if (owner.user) {
         users_.push_back(*owner.user);
      } else {
         groups_.push_back(*owner.group);
      }
      text_ += (text_.empty() ? "" : ", ");
      text_ += (owner.user ? "user " : "group ") + one.substr(owner.user ? 0 : 1);
   }
}

Writers Writers::nobody(Sarn::String whose) {
   Writers writers;
   writers.everybody_ = false;
   writers.whose_ = std::move(whose);
   return writers;
}

Sarn::String Writers::refusal(Kiv::NamedEntity const& root,
                              Kiv::NboAttrLog::PeerIdentity const& peer,
                              std::vector<gid_t> const& groups) const {
   if (!whose_.empty()) {
      return root.nameString() + " is " + whose_ + "; it is read-only";
   }
   bool const known = peer.pid != 0;
   bool const listed = known && (contains(users_, peer.uid) || contains(groups_, peer.gid) ||
                                 std::any_of(groups.begin(), groups.end(), [this](gid_t group) {
                                    return contains(groups_, group);
                                 }));
   if (everybody_ || listed) {
      return {};
   }
   return (known ? "uid " + std::to_string(peer.uid) + ", gid " + std::to_string(peer.gid)
                 : Sarn::String("an unknown peer")) +
          " may only read here; writers: " + text_;
}

std::vector<gid_t> peerGroups(int fd) {
   std::vector<gid_t> groups(32);
   for (;;) {
      auto size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
      if (::getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) == 0) {
         groups.resize(size / sizeof(gid_t));
         return groups;
      }
      if (errno != ERANGE || size <= groups.size() * sizeof(gid_t)) {
         return {};
      }
      groups.resize(size / sizeof(gid_t));
   }
}

}  // namespace Holt
