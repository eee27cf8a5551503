#include "Fleet/Publisher.h"

#include <sys/random.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "Fleet/Impl/PublisherRoot.h"
#include "Fleet/Names.h"
#include "Holt/Failure.h"
#include "Holt/State/Walk.h"
#include "Kiv/Printable.h"

namespace Fleet {

using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

constexpr U64 second = 1'000'000'000;

std::string newSession() {
   U64 numbers[1] = {};
   (void)!::getrandom(numbers, sizeof numbers, 0);
   // Later sessions are greater.
   return hexText(Holt::wallNow()) + hexText(numbers[0]);
}

bool isChild(FieldDescriptor const& field) {
   return (field.kind == MemberKind::child || field.kind == MemberKind::children) &&
          field.has(FieldDescriptor::streamed);
}

}  // namespace

Publisher::Publisher(Connection& connection, Options options)
      : connection_(connection),
        options_(std::move(options)),
        pace_(options_.window, options_.patience),
        sourceSince_(Holt::wallNow()) {
   if (options_.session.empty()) {
      options_.session = newSession();
   }
   subjects_ = options_.prefix + ".";
   appendToken(subjects_, options_.switchName);
   subjects_ += '.';
   constexpr std::size_t longestSwitch = 256;
   if (options_.switchName.empty() || subjects_.size() > longestSwitch) {
      throw Holt::Failure("the name of a switch must have 1 to about 250 characters",
                          Holt::Exit::usage);
   }
   connection_.listenerAdd(*this);
   if (connection_.status().connected) {
      onConnected();
   }
}

Publisher::~Publisher() {
   connection_.listenerDel(*this);
   // Answers that are still expected must not come here.
   onDisconnected();
}

Publisher::Status Publisher::status() const {
   Status status = status_;
   status.entities = nodes_.size();
   status.pending = dirty_.size();
   status.inFlight = inFlight_;
   return status;
}

std::string Publisher::subjectOf(std::string_view place) const {
   return subjects_ + std::string(place);
}

// ---- The stream ----

void Publisher::onConnected() {
   ++*epoch_;
   prepare();
}

void Publisher::onDisconnected() {
   ++*epoch_;
   reader_.reset();
   compareDue_ = false;
   status_.publishing = false;
   status_.reason = connection_.status().reason;
   prepareAt_ = metaAt_ = sendAt_ = 0;
   inFlight_ = inFlightBytes_ = 0;
   pace_ = Pace(options_.window, options_.patience);
   for (Node& node : records_) {
      if (std::exchange(node.second.inFlight, false)) {
         node.second.unsure = true;
         node.second.dirty = false;
         mark(node);
      }
   }
}

void Publisher::onRefused(std::string const& what) {
   status_.reason = what;
}

void Publisher::refused(std::string const& why) {
   status_.reason = Kiv::printable(why);
   prepareAt_ = now() + second;
}

void Publisher::prepare() {
   prepareAt_ = 0;
   connection_.ask("$JS.API.STREAM.INFO." + options_.stream.name, {}, streamPatience_,
                   [this, held = epoch_, epoch = *epoch_](Arrived const* answer) {
                      if (*held == epoch) {
                         onStream(answer, false);
                      }
                   });
}

void Publisher::onStream(Arrived const* answer, bool created) {
   if (isMissingStream(answer) && !created) {
      connection_.ask("$JS.API.STREAM.CREATE." + options_.stream.name,
                      streamConfig(options_.stream, options_.prefix).dump(), streamPatience_,
                      [this, held = epoch_, epoch = *epoch_](Arrived const* reply) {
                         if (*held == epoch) {
                            onStream(reply, true);
                         }
                      });
      return;
   }
   constexpr U64 longest = 120 * second;
   streamPatience_ = answer == nullptr ? std::min(2 * streamPatience_, longest) : apiPatience;
   StreamState state;
   if (std::string const wrong =
             readStreamState(answer, options_.stream.name, options_.prefix, state);
       !wrong.empty()) {
      refused(wrong);
      return;
   }
   if (!state.unsuitable.empty()) {
      refused("stream '" + options_.stream.name + "': " + state.unsuitable);
      return;
   }
   if (state.created == stream_ && stored_ != 0) {
      askStream("$JS.API.STREAM.MSG.GET." + options_.stream.name,
                Holt::Json{{"seq", stored_}}.dump(), &Publisher::onLastStored);
   } else {
      stream_ = state.created;
      findHeartbeat();
   }
}

void Publisher::askStream(std::string subject, std::string data,
                          void (Publisher::*then)(Arrived const*)) {
   connection_.ask(std::move(subject), std::move(data), streamPatience_,
                   [this, then, held = epoch_, epoch = *epoch_](Arrived const* answer) {
                      if (*held == epoch) {
                         (this->*then)(answer);
                      }
                   });
}

/// If the stream still has the last message that it has acknowledged, it has lost nothing before
/// it: all that it may lack is what was in flight. Else it is read.
void Publisher::onLastStored(Arrived const* answer) {
   Holt::Json reply;
   if (readApiReply(answer, options_.stream.name, reply).empty()) {
      auto const message = reply.find("message");
      if (message != reply.end() && message->is_object() &&
          message->value("subject", std::string()) == subjectOf(storedPlace_)) {
         begin();
         return;
      }
   }
   findHeartbeat();
}

void Publisher::findHeartbeat() {
   stored_ = 0;
   status_.reason = "reading what the stream has";
   askStream("$JS.API.STREAM.MSG.GET." + options_.stream.name,
             Holt::Json{{"last_by_subj", subjectOf(metaToken)}}.dump(), &Publisher::onHeartbeat);
}

/// A switch without a heartbeat is a new one: nothing is stored before its first heartbeat is. To
/// read what the stream has of a switch costs a server time for each subject of the whole stream.
void Publisher::onHeartbeat(Arrived const* answer) {
   Holt::Json reply;
   std::string const wrong = readApiReply(answer, options_.stream.name, reply);
   if (wrong.empty()) {
      readStream();
   } else if (isError(reply, messageNotFound)) {
      askStream(subjectOf(metaToken), ownMeta(false), &Publisher::onFirstHeartbeat);
   } else {
      refused(wrong);
   }
}

void Publisher::onFirstHeartbeat(Arrived const* answer) {
   Holt::Json reply;
   std::string const wrong = readApiReply(answer, options_.stream.name, reply);
   if (wrong.empty()) {
      found_.clear();
      compareDue_ = true;
   } else {
      refused(wrong);
   }
}

void Publisher::readStream() {
   reader_ = std::make_unique<LastValues>(
         connection_,
         LastValues::Options{
               .stream = options_.stream.name, .filter = subjects_ + ">", .patience = apiPatience},
         static_cast<Consumer::Reader&>(*this));
}

void Publisher::onEntry(Consumer::Entry const& entry) {
   std::string_view place = entry.subject;
   if (!place.starts_with(subjects_)) {
      return;
   }
   place.remove_prefix(subjects_.size());
   if (place == metaToken) {
      return;
   }
   EntityMessage message;
   // What cannot be read is replaced or deleted: no value has this digest.
   U64 digest = 1;
   if (readMessage(entry.data, message).empty()) {
      digest = message.isDeleted() ? 0 : digestOf(place, message.value);
   }
   found_[std::string(place)] = {digest, entry.number};
}

void Publisher::onReading(std::string const& why) {
   if (!why.empty()) {
      status_.reason = why;
   }
}

void Publisher::onCaughtUp() {
   // The reader, which calls this, must not end here.
   compareDue_ = true;
}

void Publisher::compare() {
   reader_.reset();
   compareDue_ = false;
   for (Node& node : records_) {
      Record& record = node.second;
      auto const at = found_.find(node.first);
      digestIs(record, record.root, at != found_.end() ? at->second.first : 0);
      record.unsure = false;
      if (record.entity != nullptr || sourceKnown_) {
         mark(node);
      }
   }
   for (auto const& [place, held] : found_) {
      if (held.first == 0) {
         purges_.push_back({place, held.second, now() + options_.deletions});
         continue;
      }
      auto const [at, added] = records_.try_emplace(place);
      if (added) {
         at->second.digest = held.first;
         if (sourceKnown_) {
            mark(*at);
         }
      }
   }
   found_.clear();
   begin();
}

void Publisher::begin() {
   status_.publishing = true;
   status_.reason.clear();
   metaWhenDone_ = true;
   metaAt_ = now() + options_.heartbeat;
}

// ---- The roots ----

void Publisher::rootAdd(Sarn::Ptr<Kiv::NamedEntity> const& root) {
   for (Root const& other : roots_) {
      if (other.root->nameString() == root->nameString()) {
         throw Holt::Failure("a root named '" + root->nameString() + "' is published already, as " +
                             other.root->kivType().name);
      }
   }
   Root& added = roots_.emplace_back(*this, root);
   index(added, added.token, &*root);
   metaWhenDone_ = true;
}

void Publisher::rootDel(Kiv::NamedEntity& root) {
   for (auto at = roots_.begin(); at != roots_.end(); ++at) {
      if (&*at->root == &root) {
         index(*at, at->token, nullptr);
         for (auto& [place, record] : records_) {
            if (record.root == &*at) {
               record.root = nullptr;
            }
         }
         roots_.erase(at);
         metaWhenDone_ = true;
         return;
      }
   }
}

void Publisher::sourceIs(bool current, U64 since, std::string const& reason) {
   sourceCurrent_ = current;
   sourceSince_ = since;
   sourceReason_ = reason;
   if (current && !sourceKnown_) {
      sourceKnown_ = true;
      for (Node& node : records_) {
         if (node.second.entity == nullptr) {
            mark(node);
         }
      }
   }
   if (status_.publishing) {
      metaAt_ = now();
   }
}

void Publisher::changed(Root& root, Kiv::Change const& change) {
   Entity const& entity = Kiv::entityOf(change);
   auto const at = nodes_.find(&entity);
   FieldDescriptor const* const field = entity.kivType().field(change.attributeId);
   if (at == nodes_.end() || field == nullptr) {
      return;
   }
   Node& node = *at->second;
   if (field->kind == MemberKind::children && change.key == nullptr) {
      index(root, std::string(node.first), &entity);
   } else if (isChild(*field)) {
      std::string place = node.first;
      appendChild(place, *field, change.key);
      Entity const* const child = field->kind == MemberKind::child
                                        ? field->ops->child->get(entity)
                                        : field->ops->collection->findChild(entity, change.key);
      index(root, place, child);
   } else if (field->has(FieldDescriptor::streamed)) {
      mark(node);
   }
}

/// Brings the records at a place and below to what is there now.
void Publisher::index(Root& root, std::string const& place, Entity const* entity) {
   ++walks_;
   if (entity != nullptr) {
      indexBelow(root, place, *entity);
   }
   std::vector<Node*> others;
   auto const other = [&](Node& node) {
      if (node.second.walk != walks_) {
         others.push_back(&node);
      }
   };
   if (auto const at = records_.find(place); at != records_.end()) {
      other(*at);
   }
   std::string const below = place + ".";
   for (auto at = records_.lower_bound(below); at != records_.end() && at->first.starts_with(below);
        ++at) {
      other(*at);
   }
   for (Node* const node : others) {
      gone(*node);
   }
}

void Publisher::indexBelow(Root& root, std::string place, Entity const& entity) {
   Node& node = *records_.try_emplace(place).first;
   Record& record = node.second;
   if (record.entity != &entity) {
      if (record.entity != nullptr) {
         nodes_.erase(record.entity);
      }
      record.entity = &entity;
      nodes_[&entity] = &node;
   }
   digestIs(record, &root, record.digest);
   record.walk = walks_;
   mark(node);
   std::size_t const size = place.size();
   Kiv::forEachChild(entity, [&](Entity& child, FieldDescriptor const& field, void const* key) {
      if (isChild(field)) {
         appendChild(place, field, key);
         indexBelow(root, place, child);
         place.resize(size);
      }
   });
}

void Publisher::gone(Node& node) {
   Record& record = node.second;
   if (record.entity != nullptr) {
      nodes_.erase(record.entity);
      record.entity = nullptr;
   }
   status_.leftOut -= record.leftOut ? 1 : 0;
   record.leftOut = false;
   // A reader drops what is below a deleted entity before it is told of each.
   digestIs(record, nullptr, record.digest);
   mark(node);
}

/// What the stream has of an entity, in the sums of its root.
void Publisher::digestIs(Record& record, Root* root, U64 digest) {
   if (record.root != nullptr && record.digest != 0) {
      record.root->digest -= record.digest;
      --record.root->entities;
   }
   record.root = root;
   record.digest = digest;
   if (root != nullptr && digest != 0) {
      root->digest += digest;
      ++root->entities;
   }
}

void Publisher::mark(Node& node, U64 notBefore) {
   Record& record = node.second;
   if (record.dirty) {
      return;
   }
   record.dirty = true;
   if (!record.inFlight) {
      U64 const due = options_.interval != 0 && record.sent != 0 && record.entity != nullptr
                            ? record.sent + options_.interval
                            : 0;
      dirty_.emplace(std::max(due, notBefore), &node);
   }
}

}  // namespace Fleet
