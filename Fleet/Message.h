// What is in the messages of a fleet.
//
// The message of an entity is one line. Its value comes last, so that nobody has to parse it to
// know that it has not changed:
//
//     {"session":"17f0c2…","sequence":812,"root":"Ptp::Status","value":{"portState":"master",…}}
//     {"session":"17f0c2…","sequence":813,"root":"Ptp::Status","deleted":true}
//
// The heartbeat of a switch, `ptp.NAME.meta`, says who publishes it and whether that is up to date.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Sarn/Types.h"

namespace Fleet {

/// A message of an entity. The texts are those of the message.
struct EntityMessage {
   /// Of the publisher's process that has written it.
   std::string_view session;
   /// Counts the messages of that session, from 1.
   U64 sequence = 0;
   /// The type of the root.
   std::string_view rootType;
   /// The text of the entity; empty if it was deleted.
   std::string_view value;

   bool isDeleted() const noexcept { return value.empty(); }
};

void writeMessage(EntityMessage const& message, std::string& out);
/// Returns what is wrong, or an empty text. The value is not examined.
std::string_view readMessage(std::string_view text, EntityMessage& message);

/// A root in a heartbeat.
struct MetaRoot {
   std::string name;
   std::string type;
   /// How many entities are published, and the sum of their digests.
   U64 entities = 0;
   U64 digest = 0;

   bool operator==(MetaRoot const&) const = default;
};

/// The heartbeat of a switch.
struct Meta {
   std::string session;
   /// The number of the last message before this one.
   U64 sequence = 0;
   /// Wall time of the publisher, in nanoseconds since 1970.
   U64 time = 0;
   /// Nanoseconds between two heartbeats.
   U64 every = 0;
   /// Changed entities that are not published yet.
   U64 pending = 0;
   /// Entities that cannot be published: their subject or their message is too long.
   U64 leftOut = 0;
   /// Whether the publisher has the state of its source; since when not, wall time, and why.
   bool current = false;
   U64 since = 0;
   std::string reason;
   /// Whether the publisher has ended: no heartbeat follows.
   bool ended = false;
   std::vector<MetaRoot> roots;
};

std::string metaText(Meta const& meta);
/// Throws `Holt::Failure` if it is not a heartbeat that this program understands.
Meta readMeta(std::string_view text);

/// The digest of an entity's message: of its place and its value. Stays the same in every process
/// and release. The digest of a root is the sum of those of its entities, modulo 2^64. It finds
/// what was lost or damaged; it does not protect against somebody who chooses values.
U64 digestOf(std::string_view place, std::string_view value) noexcept;

/// 16 hexadecimal digits.
std::string hexText(U64 number);

}  // namespace Fleet
