// Publishes the state of a switch to a fleet.
#pragma once

#include <list>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "Fleet/EntityText.h"
#include "Fleet/LastValues.h"
#include "Fleet/Message.h"
#include "Fleet/Pace.h"
#include "Fleet/StreamApi.h"
#include "Kiv/Entity.h"

namespace Fleet {

/// Keeps the last values in a stream equal to roots of this process: an agent's own, or mirrors.
///
///     change --> dirty (each entity once) --> in flight (a window) --> stored
///                  ^                              |
///                  '--- changed again, no answer -'
///
/// An entity is written when it is sent: however often it has changed meanwhile, one message tells
/// of it. After each connection, the publisher first reads what the stream has of its switch, and
/// sends only what differs; what it does not have is deleted.
///
/// Memory: per entity its place in the tree as text, and about 300 bytes, whatever the cluster does
/// and however long; in flight, `Options::windowBytes` and one message.
///
/// Threads: that of its connection and of the roots.
class Publisher final : public Holt::Source, Connection::Listener, Consumer::Reader {
public:
   struct Options {
      std::string switchName;
      /// The first token of all subjects.
      std::string prefix = "ptp";
      StreamOptions stream = {};
      /// Nanoseconds between two messages of one entity, at least.
      U64 interval = 0;
      /// Nanoseconds between two heartbeats.
      U64 heartbeat = 2'000'000'000;
      /// Nanoseconds for which a deletion stays in the stream, for those who read it.
      U64 deletions = 60'000'000'000;
      /// What may be in flight, at most: less while the cluster takes its time.
      U32 window = 1024;
      std::size_t windowBytes = 512 * 1024;
      /// Nanoseconds after which a message that is not acknowledged is sent again.
      U64 patience = 5'000'000'000;
      /// The process, among those that publish this switch one after the other; a random one if
      /// empty.
      std::string session = {};
   };

   struct Status {
      /// Whether differences are being published: the stream has been compared.
      bool publishing = false;
      /// Why not, or what the stream refuses; printable, else empty.
      std::string reason = "not connected yet";
      /// Messages of entities, among them deletions, and again what was not acknowledged; and the
      /// bytes of their values.
      U64 messages = 0;
      U64 deletions = 0;
      U64 repeated = 0;
      U64 bytes = 0;
      U64 heartbeats = 0;
      /// Entities, those that are to be published, those in flight, and those that cannot be
      /// published since their subject or message is too long.
      std::size_t entities = 0;
      std::size_t pending = 0;
      std::size_t inFlight = 0;
      std::size_t leftOut = 0;
   };

   /// Throws `Holt::Failure` if the switch's name is empty or too long.
   Publisher(Connection& connection, Options options);
   ~Publisher();
   Publisher(Publisher const&) = delete;
   Publisher& operator=(Publisher const&) = delete;

   /// Publishes a root from here on. Throws `Holt::Failure` if there is one of this name. A root is
   /// held until `rootDel`, or the end.
   void rootAdd(Sarn::Ptr<Kiv::NamedEntity> const& root);
   /// Deletes a root from the fleet.
   void rootDel(Kiv::NamedEntity& root);
   /// Whether the roots are the whole state of the switch, and up to date; `since`: wall time, in
   /// nanoseconds since 1970. Nothing that is in the stream, and not among the roots, is deleted
   /// before the first time that it is.
   void sourceIs(bool current, U64 since, std::string const& reason);
   /// Tells the fleet that nobody publishes this switch any more. What it has stays.
   void end();

   Status status() const;
   std::string const& session() const noexcept { return options_.session; }

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override;
   U64 deadline() const override;
   void onTurn(std::span<pollfd const> polled) override;

private:
   struct Root;
   struct Record;
   using Records = std::map<std::string, Record, std::less<>>;
   using Node = Records::value_type;

   /// Of an entity, or of what the stream has where none is.
   struct Record {
      Kiv::Entity const* entity = nullptr;
      Root* root = nullptr;
      /// What the stream has, as far as that is known: the digest of a value, or 0.
      U64 digest = 0;
      /// When it was last sent, by the loop's clock.
      U64 sent = 0;
      U32 walk = 0;
      bool dirty = false;
      bool inFlight = false;
      /// What was sent last was not acknowledged: the stream has it, or what was there before.
      bool unsure = false;
      bool leftOut = false;
   };
   struct Purge {
      std::string place;
      U64 number;
      U64 due;
   };

   void onConnected() override;
   void onDisconnected() override;
   void onRefused(std::string const& what) override;
   void onBegin() override { found_.clear(); }
   void onEntry(Consumer::Entry const& entry) override;
   void onCaughtUp() override;
   void onReading(std::string const& why) override;

   U64 now() const noexcept { return connection_.now(); }
   void prepare();
   void onStream(Arrived const* answer, bool created);
   void onLastStored(Arrived const* answer);
   void onHeartbeat(Arrived const* answer);
   void onFirstHeartbeat(Arrived const* answer);
   void findHeartbeat();
   void readStream();
   void askStream(std::string subject, std::string data, void (Publisher::*then)(Arrived const*));
   std::string ownMeta(bool ended) const;
   void begin();
   void refused(std::string const& why);
   void compare();

   void changed(Root& root, Kiv::Change const& change);
   void index(Root& root, std::string const& place, Kiv::Entity const* entity);
   void indexBelow(Root& root, std::string place, Kiv::Entity const& entity);
   void gone(Node& node);
   void digestIs(Record& record, Root* root, U64 digest);
   void mark(Node& node, U64 notBefore = 0);
   void pump();
   bool send(Node& node);
   void sendDeletion(Node& node);
   void sendValue(Node& node, U64 digest);
   void ask(Node& node, std::string message);
   void answered(std::string const& place, std::size_t size, Arrived const* answer);
   void purge();
   void sendMeta(bool ended);
   std::string subjectOf(std::string_view place) const;

   Connection& connection_;
   Options options_;
   Status status_;
   std::string subjects_;
   EntityText text_;
   std::list<Root> roots_;
   Records records_;
   std::unordered_map<Kiv::Entity const*, Node*> nodes_;
   /// By the time before which it must not be sent; else in the order of their first change.
   std::multimap<U64, Node*> dirty_;
   /// In the order of their times.
   std::vector<Purge> purges_;
   /// What the stream has, while it is being read: a digest for each place, 0 for a deletion, and
   /// its number.
   std::map<std::string, std::pair<U64, U64>, std::less<>> found_;
   /// The stream that was compared, and the last message that is known to be in it: its place and
   /// its number; 0 if none is.
   std::string stream_;
   std::string storedPlace_;
   U64 stored_ = 0;
   std::unique_ptr<LastValues> reader_;
   U32 walks_ = 0;
   U64 sequence_ = 0;
   std::size_t inFlight_ = 0;
   std::size_t inFlightBytes_ = 0;
   Pace pace_;
   /// For an answer about the stream.
   U64 streamPatience_ = apiPatience;
   /// Questions of an earlier connection are of no use.
   std::shared_ptr<U64> epoch_ = std::make_shared<U64>(0);
   /// When to ask for the stream again, to send on, to send a heartbeat; 0: not.
   U64 prepareAt_ = 0;
   U64 sendAt_ = 0;
   U64 metaAt_ = 0;
   bool compareDue_ = false;
   bool sourceKnown_ = false;
   bool sourceCurrent_ = false;
   U64 sourceSince_;
   std::string sourceReason_ = "not connected yet";
   bool metaWhenDone_ = false;
   bool ended_ = false;
   std::string value_;
};

}  // namespace Fleet
