// A switch of a fleet, in a mirror.
#pragma once

#include <list>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "Fleet/EntityText.h"
#include "Fleet/Message.h"
#include "Kiv/Entity.h"

namespace Fleet {

class Mirror;

/// The roots of one switch, and what is known about them.
///
/// Each heartbeat of the publisher comes after the messages that it tells of, with a digest for
/// each root. If that is the digest of what is here, the picture is complete as of that heartbeat.
class Switch {
public:
   struct Status {
      /// Whether the last heartbeat's digests were those of the state here.
      bool complete = false;
      /// Whether it is complete, its publisher is alive and has the state of its source, and the
      /// fleet answers here.
      bool current = false;
      /// Wall time, in nanoseconds since 1970, since when `current` is what it is; for a state that
      /// is old, when it was last known to be current.
      U64 since = 0;
      /// Why it is not current; printable, empty if it is.
      std::string reason = "no heartbeat yet";
      /// The publisher's session, and the numbers of its last message and its last heartbeat.
      std::string session;
      U64 sequence = 0;
      /// Wall time, in nanoseconds since 1970, of the last heartbeat; 0 if there was none.
      U64 heartbeat = 0;
      /// How often the session has changed.
      U64 restarts = 0;
      /// Values that were refused here, and attributes that the types here do not have.
      U64 refused = 0;
      U64 unknown = 0;
      std::string lastRefused;
      /// Messages of entities, and heartbeats whose digests differ from the state here.
      U64 messages = 0;
      U64 differences = 0;
   };

   Switch(Mirror& mirror, std::string name);
   ~Switch();
   Switch(Switch const&) = delete;
   Switch& operator=(Switch const&) = delete;

   std::string const& name() const noexcept { return name_; }
   Status const& status() const noexcept { return status_; }
   /// In the order of their names.
   std::vector<Kiv::NamedEntity*> roots() const;
   /// Null if there is none of this name.
   Sarn::Ptr<Kiv::NamedEntity> root(std::string_view name) const;
   std::size_t entities() const noexcept { return records_.size(); }
   /// The last heartbeat.
   Meta const& meta() const noexcept { return meta_; }

private:
   friend class Mirror;

   struct Record {
      Sarn::Ptr<Kiv::Entity> entity;
      U64 digest = 0;
      /// The reading of the stream in which it was last seen.
      U32 reading = 0;
   };
   struct Waiting {
      std::string rootType;
      std::string value;
   };
   struct RootSum {
      U64 entities = 0;
      U64 digest = 0;
   };
   using Records = std::map<std::string, Record, std::less<>>;

   void onMessage(std::string_view subject, std::string_view place, EntityMessage const& message);
   /// `storedAt`: wall time of the server, in nanoseconds since 1970. Throws `Holt::Failure`.
   void onMeta(std::string_view text, U64 storedAt);
   void onBegin();
   void onCaughtUp();
   /// Looks whether heartbeats are missing; returns when to look again, by the loop's clock.
   U64 review();
   bool isEmpty() const noexcept { return records_.empty() && meta_.session.empty(); }

   void remove(std::string_view place);
   void forgetBelow(std::string const& place);
   bool apply(std::string_view subject, std::string_view place, EntityMessage const& message);
   Sarn::Ptr<Kiv::Entity> resolve(std::string_view place, EntityMessage const& message, bool& later,
                                  ApplyProblems& problems);
   Sarn::Ptr<Kiv::Entity> madeAnew(Kiv::Entity& parent, Kiv::FieldDescriptor const& field,
                                   Kiv::ValueRef key, Sarn::Ptr<Kiv::Entity> const& child,
                                   std::string const& place, std::string_view text,
                                   ApplyProblems& problems);
   void keep(std::string_view place, EntityMessage const& message);
   void applyWaiting(std::string const& place);
   void sweep();
   bool isEqual(U32 reading) const;
   void statusIs(std::string const& why);

   Mirror& mirror_;
   std::string name_;
   Status status_;
   Meta meta_;
   /// When the last heartbeat arrived, or would have, by the loop's clock.
   U64 heard_ = 0;
   /// Heartbeats in a row whose digests differed.
   U32 differed_ = 0;
   std::map<std::string, Sarn::Ptr<Kiv::NamedEntity>, std::less<>> roots_;
   Records records_;
   std::map<std::string, Waiting, std::less<>> waiting_;
   std::size_t waitingBytes_ = 0;
};

/// The digest of a root as it is: the sum over its entities. Two roots with the same digest have
/// the same state, wherever they are; a publisher's heartbeat has that of its root.
MetaRoot rootDigest(Kiv::NamedEntity const& root);

}  // namespace Fleet
