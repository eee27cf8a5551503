#include "tools/ptpgnmi/Subscriber.h"

#include <algorithm>

#include "tools/ptpgnmi/Wire.h"

namespace Ptpgnmi {

namespace {

/// Of SAMPLE, if the client leaves it to the server.
constexpr U64 usualInterval = 1'000'000'000;

/// The place above all that a pattern may lead to.
Elems literalPart(Elems const& pattern) {
   Elems literal;
   for (Elem const& elem : pattern) {
      if (elem.name == "*" || elem.name == "...") {
         break;
      }
      literal.push_back({elem.name, {}});
      bool const whole = std::none_of(elem.keys.begin(), elem.keys.end(),
                                      [](auto const& key) { return key.second == "*"; });
      if (!whole || elem.keys.empty()) {
         // A list without keys: all its entries. What is no list ends here, too, which deletes more
         // than is subscribed to, and no client has more.
         break;
      }
      literal.back().keys = elem.keys;
   }
   return literal;
}

}  // namespace

/// One path of the subscription.
class Subscriber::Entry final : public Watch {
public:
   Entry(Subscriber& owner, Subscription const& subscription, U64 now)
         : owner_(owner),
           subscription_(subscription),
           interest_(owner.tree_.interest(subscription.path)) {
      interest_.watches.push_back(this);
      if (!isStream()) {
         return;
      }
      if (isSample() && subscription_.sampleInterval == 0) {
         subscription_.sampleInterval = usualInterval;
      }
      nextSample_ = isSample() ? now + subscription_.sampleInterval : 0;
      nextHeartbeat_ =
            subscription_.heartbeatInterval != 0 ? now + subscription_.heartbeatInterval : 0;
   }
   ~Entry() {
      std::erase(interest_.watches, this);
      owner_.tree_.release(interest_);
   }
   Entry(Entry const&) = delete;
   Entry& operator=(Entry const&) = delete;

   Elems const& path() const noexcept { return subscription_.path; }
   void addAllTo(Pending& pending) {
      for (LeafId const leaf : owner_.tree_.leavesOf(interest_)) {
         pending.add(leaf, false);
      }
   }
   /// Adds what is due by the clock.
   void sample(U64 now) {
      if (nextSample_ != 0 && now >= nextSample_) {
         nextSample_ = following(nextSample_, subscription_.sampleInterval, now);
         if (subscription_.suppressRedundant) {
            while (!changed_.empty()) {
               owner_.out_.add(changed_.take().leaf, false);
            }
            changed_.settle();
         } else {
            addAllTo(owner_.out_);
         }
      }
      if (nextHeartbeat_ != 0 && now >= nextHeartbeat_) {
         nextHeartbeat_ = following(nextHeartbeat_, subscription_.heartbeatInterval, now);
         addAllTo(owner_.out_);
      }
   }
   U64 deadline() const noexcept {
      return nextSample_ == 0      ? nextHeartbeat_
             : nextHeartbeat_ == 0 ? nextSample_
                                   : std::min(nextSample_, nextHeartbeat_);
   }
   std::size_t bytes() const noexcept { return sizeof *this + changed_.bytes(); }

   void onAdded(LeafId leaf) override { note(leaf, false); }
   void onChanged(LeafId leaf) override { note(leaf, true); }
   void onRemoved(LeafId leaf) override {
      changed_.remove(leaf);
      owner_.out_.remove(leaf);
   }
   void onDeleted(std::string const& path) override {
      if (isStream()) {
         owner_.deleted(path);
      }
   }

private:
   bool isStream() const noexcept { return owner_.list_.mode == ListMode::stream; }
   bool isSample() const noexcept { return subscription_.mode == SubscriptionMode::sample; }
   void note(LeafId leaf, bool change) {
      if (!isStream()) {
         return;
      }
      if (!isSample()) {
         owner_.out_.add(leaf, change);
      } else if (subscription_.suppressRedundant) {
         changed_.add(leaf, change);
      }
   }
   /// The next time of a period, none of those that were missed.
   static U64 following(U64 at, U64 interval, U64 now) {
      return at + ((now - at) / interval + 1) * interval;
   }

   Subscriber& owner_;
   Subscription subscription_;
   Interest& interest_;
   /// Since the last sample, where only changes are sampled.
   Pending changed_;
   U64 nextSample_ = 0;
   U64 nextHeartbeat_ = 0;
};

Subscriber::Subscriber(std::shared_ptr<Stream> stream, Tree& tree, SubscriptionList list,
                       Limits const& limits, U64 now)
      : stream_(std::move(stream)),
        tree_(tree),
        list_(std::move(list)),
        limits_(limits),
        prefix_(prefixBytes(list_.origin, list_.target)) {
   for (Subscription const& subscription : list_.subscriptions) {
      std::string const why = tree_.model().objection(subscription.path, tree_.roots());
      if (!why.empty()) {
         throw Refusal(Code::invalidArgument, pathText(subscription.path) + ": " + why);
      }
   }
   for (Subscription const& subscription : list_.subscriptions) {
      entries_.push_back(std::make_unique<Entry>(*this, subscription, now));
   }
   beginRound();
   if (list_.mode != ListMode::poll) {
      // To hear of what a client may not say. In mode POLL, each answer is followed by the next.
      stream_->readNext();
   }
}

Subscriber::~Subscriber() = default;

void Subscriber::beginRound() {
   if (!list_.updatesOnly) {
      for (auto const& entry : entries_) {
         entry->addAllTo(out_);
      }
   }
   syncDue_ = true;
   syncAfter_ = out_.pushed();
}

bool Subscriber::polled() {
   if (list_.mode != ListMode::poll) {
      return false;
   }
   beginRound();
   return true;
}

void Subscriber::deleted(std::string const& path) {
   if (deleteAll_) {
      return;
   }
   if (deletes_.insert(path).second) {
      deleteBytes_ += path.size();
   }
   if (deletes_.size() > limits_.deletions) {
      deletes_.clear();
      deleteBytes_ = 0;
      deleteAll_ = true;
   }
}

U64 Subscriber::deadline() const noexcept {
   U64 first = 0;
   auto const consider = [&first](U64 at) {
      first = at != 0 && (first == 0 || at < first) ? at : first;
   };
   for (auto const& entry : entries_) {
      consider(entry->deadline());
   }
   if (!writing_ && (!out_.empty() || !deletes_.empty() || deleteAll_)) {
      consider(lastSent_ + limits_.gather);
   }
   return first;
}

bool Subscriber::flush(U64 now, U64 wall) {
   for (auto const& entry : entries_) {
      entry->sample(now);
   }
   if (writing_) {
      return true;
   }
   bool const something = !out_.empty() || !deletes_.empty() || deleteAll_;
   if (!something) {
      out_.settle();
   }
   if (syncDue_ && out_.popped() >= syncAfter_) {
      syncDue_ = false;
      sendSync();
   } else if (something && (syncDue_ || now >= lastSent_ + limits_.gather)) {
      send(now, wall);
   } else if (finished_) {
      stream_->finish(Code::ok, "");
      return false;
   }
   return true;
}

void Subscriber::sendSync() {
   std::string message;
   Wire::number(message, 3, 1);
   writing_ = true;
   stream_->write(std::move(message));
   if (list_.mode == ListMode::once) {
      finished_ = true;
   } else if (list_.mode == ListMode::poll) {
      stream_->readNext();
   }
}

void Subscriber::send(U64 now, U64 wall) {
   std::string notification;
   notification.reserve(std::min<std::size_t>(limits_.message + 1024, 256 + 160 * out_.size()));
   Wire::number(notification, 1, wall);
   Wire::bytes(notification, 2, prefix_);
   if (deleteAll_) {
      // Forget first: what is added now belongs to this message or to later ones.
      deleteAll_ = false;
      for (auto const& entry : entries_) {
         deletes_.insert(pathBytes(literalPart(entry->path())));
         entry->addAllTo(out_);
      }
   }
   // Deletions come after updates in the encoded message, but count first.
   std::string deletes;
   for (std::string const& path : deletes_) {
      Wire::bytes(deletes, 5, path);
   }
   deletes_.clear();
   deleteBytes_ = 0;
   while (!out_.empty() && notification.size() + deletes.size() < limits_.message) {
      Pending::Taken const taken = out_.take();
      std::string const& update = tree_.update(taken.leaf, list_.encoding);
      U64 const duplicates = taken.count - 1U;
      notification += static_cast<char>(4 << 3 | 2);
      std::size_t const tail = duplicates != 0 ? 1 + Wire::varintSize(duplicates) : 0;
      Wire::varint(notification, update.size() + tail);
      notification += update;
      if (duplicates != 0) {
         Wire::number(notification, 4, duplicates);
      }
   }
   notification += deletes;
   std::string message;
   message.reserve(notification.size() + 8);
   Wire::bytes(message, 1, notification);
   writing_ = true;
   lastSent_ = now;
   stream_->write(std::move(message));
}

std::size_t Subscriber::bytes() const noexcept {
   std::size_t bytes = sizeof *this + out_.bytes() + deleteBytes_ +
                       deletes_.size() * (sizeof(std::string) + 4 * sizeof(void*));
   for (auto const& entry : entries_) {
      bytes += entry->bytes();
   }
   return bytes;
}

}  // namespace Ptpgnmi
