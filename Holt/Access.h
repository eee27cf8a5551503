// Who may do what: users and groups by name or number, and which peers may write.
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

/// Reads "USER", ":GROUP" or "USER:GROUP", each a name or a number. Throws `Failure` for an unknown
/// name.
Owner parseOwner(Sarn::String const& text);

/// Reads permission bits in octal, such as "0660". Throws `Failure`.
mode_t parseMode(Sarn::String const& text);

/// Which peers may change the served state.
class Writers {
public:
   /// Everybody who may connect.
   Writers() = default;
   /// Only those that `allowed` names, each as "USER" or ":GROUP". Throws `Failure`.
   explicit Writers(std::vector<Sarn::String> const& allowed);

   /// Nobody. `whose` tells peers why: the root is "the agent's own".
   static Writers nobody(Sarn::String whose);

   /// Why a peer may not change a root; empty if it may. `groups`: its supplementary groups.
   Sarn::String refusal(Kiv::NamedEntity const& root, Kiv::NboAttrLog::PeerIdentity const& peer,
                        std::vector<gid_t> const& groups) const;

private:
   bool everybody_ = true;
   Sarn::String whose_;
   std::vector<uid_t> users_;
   std::vector<gid_t> groups_;
   Sarn::String text_;
};

/// The supplementary groups of the process at the other end of a UNIX socket.
std::vector<gid_t> peerGroups(int fd);

}  // namespace Holt
