// Who may do what: users and groups by name or number, and the peers that may write.
#pragma once

#include <sys/types.h>

#include <optional>
#include <vector>

#include "Kiv/Entity.h"
#include "Kiv/NboAttrLogStatus.h"

namespace Holt {

/// A user, a group, or both.
struct Owner {
   std::optional<uid_t> user = std::nullopt;
   std::optional<gid_t> group = std::nullopt;
};

/// "USER", ":GROUP" or "USER:GROUP", each a name or a number. Throws `Failure` if there is none of
/// that name.
Owner parseOwner(Sarn::String const& text);

/// Permission bits in octal, such as "0660". Throws `Failure`.
mode_t parseMode(Sarn::String const& text);

/// Which peers may change something.
class Writers {
public:
   /// Everybody who may connect.
   Writers() = default;
   /// Those alone that `allowed` names, each by "USER" or ":GROUP". Throws `Failure`.
   explicit Writers(std::vector<Sarn::String> const& allowed);

   /// Nobody: the roots are those of `whose`, such as "the agent's own".
   static Writers nobody(Sarn::String whose);

   /// Why a peer may not change a root; empty if it may. `groups`: besides its own.
   Sarn::String refusal(Kiv::NamedEntity const& root, Kiv::NboAttrLog::PeerIdentity const& peer,
                        std::vector<gid_t> const& groups) const;

private:
   bool everybody_ = true;
   Sarn::String whose_;
   std::vector<uid_t> users_;
   std::vector<gid_t> groups_;
   Sarn::String text_;
};

/// The supplementary groups of who has connected a UNIX socket.
std::vector<gid_t> peerGroups(int fd);

}  // namespace Holt
