// The states of many switches, mirrored from a fleet.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "Fleet/Consumer.h"
#include "Fleet/EntityText.h"
#include "Fleet/Message.h"
#include "Fleet/Switch.h"

namespace Fleet {

/// Mirrors one switch, or all whose names fit a pattern. Each has roots of the library's own types,
/// which are changed through their setters: an observer sees what differs, and nothing else.
///
///     Fleet::Connection connection({.urls = {"nats://127.0.0.1"}});
///     Fleet::Mirror mirror(connection, {.switches = "edge-*"});
///     loop.add(connection);
///     loop.add(mirror);
///     ...
///     for (auto const& [name, each] : mirror.switches()) {
///        if (each->status().current) { ... each->root("ptp/status") ... }
///     }
///
/// Threads: that of its connection.
class Mirror final : public Holt::Source, Consumer::Reader {
public:
   struct Options {
      /// A name, or a pattern: "*" stands for any characters.
      std::string switches = "*";
      /// The first token of all subjects, and the stream.
      std::string prefix = "ptp";
      std::string stream = "PTP";
      /// How many heartbeats may be missing before a switch counts as silent.
      U32 missing = 3;
      /// Bytes of messages per switch that wait for the entity above theirs.
      std::size_t waiting = std::size_t{1} << 20;
   };

   struct Status {
      /// Whether the fleet answers, and all that was published when it was asked has been read.
      bool current = false;
      /// Wall time, in nanoseconds since 1970, since when `current` is what it is.
      U64 since = 0;
      /// Why it is not; printable, empty if it is.
      std::string reason = "not connected yet";
      /// Messages that have been read; those that are not a fleet's, or of a state that the loaded
      /// modules do not have; and the last of these: "SUBJECT: what".
      U64 messages = 0;
      U64 malformed = 0;
      std::string lastMalformed;
      /// How often everything was read again since a digest differed.
      U64 repairs = 0;
   };

   /// Calls come from within the turn of the connection or of the mirror.
   class Listener {
   public:
      /// A switch is seen for the first time. It stays until `onSwitchGone`.
      virtual void onSwitch(Switch& its) { (void)its; }
      /// Nothing of it is in the fleet any more.
      virtual void onSwitchGone(Switch& its) { (void)its; }
      /// It has got a root, of which parts may still be missing; or loses one.
      virtual void onRoot(Switch& its, Sarn::Ptr<Kiv::NamedEntity> const& root) {
         (void)its, (void)root;
      }
      virtual void onRootGone(Switch& its, Kiv::NamedEntity& root) { (void)its, (void)root; }
      /// `complete`, `current` or `reason` has changed.
      virtual void onStatus(Switch& its) { (void)its; }

   protected:
      ~Listener() = default;
   };

   Mirror(Connection& connection, Options options);
   ~Mirror();
   Mirror(Mirror const&) = delete;
   Mirror& operator=(Mirror const&) = delete;

   using Switches = std::map<std::string, std::unique_ptr<Switch>, std::less<>>;

   Status const& status() const noexcept { return status_; }
   Switches const& switches() const noexcept { return switches_; }
   /// Null if there is none of this name.
   Switch* find(std::string_view name) const;

   void listenerAdd(Listener& listener) { listeners_.push_back(&listener); }
   void listenerDel(Listener const& listener) noexcept;

   // `Source`:
   void appendTo(std::vector<pollfd>&) override {}
   U64 deadline() const override;
   void onTurn(std::span<pollfd const> polled) override;

private:
   friend class Switch;

   void onBegin() override;
   void onEntry(Consumer::Entry const& entry) override;
   void onCaughtUp() override;
   void onReading(std::string const& why) override;

   void malformed(std::string_view subject, std::string_view what);
   void statusIs(std::string const& why);
   void review();
   Switch& switchOf(std::string_view name);
   void tell(std::function<void(Listener&)> const& call);

   Connection& connection_;
   Options options_;
   Status status_;
   Switches switches_;
   /// By their tokens.
   std::unordered_map<std::string, Switch*> byToken_;
   std::vector<Listener*> listeners_;
   EntityText text_;
   U32 reading_ = 0;
   /// When a heartbeat is missing next, and when everything is read again after a difference.
   U64 reviewAt_ = 0;
   U64 repairAt_ = 0;
   U64 repairPause_ = 0;
   std::unique_ptr<Consumer> consumer_;
};

}  // namespace Fleet
