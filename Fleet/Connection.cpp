#include "Fleet/Connection.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "Fleet/Impl/ConnectionShared.h"
#include "Kiv/Printable.h"

namespace Fleet {

namespace {

using Guard = std::lock_guard<std::mutex>;

void requireReadable(char const* what, std::string const& path) {
   if (!path.empty() && ::access(path.c_str(), R_OK) != 0) {
      throw Holt::Failure(std::string(what) + " '" + path + "': " + std::strerror(errno));
   }
}

std::string_view headerOf(natsMsg* message, char const* name) {
   char const* value = nullptr;
   return natsMsgHeader_Get(message, name, &value) == NATS_OK ? textOf(value) : std::string_view();
}

/// The number after the last dot, or 0.
U64 numberAtEnd(std::string_view subject) {
   subject.remove_prefix(subject.rfind('.') + 1);
   U64 number = 0;
   std::from_chars(subject.data(), subject.data() + subject.size(), number);
   return number;
}

}  // namespace

Connection::Connection(Options options) : options_(std::move(options)) {
   if (options_.urls.empty()) {
      throw Holt::Failure("no NATS server is given", Holt::Exit::usage);
   }
   if (options_.tlsCertificate.empty() != options_.tlsKey.empty()) {
      throw Holt::Failure("a certificate for TLS needs its key, and a key its certificate",
                          Holt::Exit::usage);
   }
   requireReadable("credentials", options_.credentials);
   requireReadable("trusted certificates", options_.tlsCa);
   requireReadable("certificate", options_.tlsCertificate);
   requireReadable("key", options_.tlsKey);
   status_.since = Holt::wallNow();
   status_.reason = "not connected yet";
   shared_ = std::make_unique<Shared>(options_);
   shared_->sender = std::thread([shared = shared_.get()] { shared->run(); });
}

Connection::~Connection() {
   {
      Guard const lock(shared_->mutex);
      shared_->ending = true;
      shared_->closing = true;
      shared_->work.notify_all();
      shared_->room.notify_all();
   }
   shared_->sender.join();
}

void Connection::listenerDel(Listener const& listener) noexcept {
   std::erase(listeners_, &listener);
}

void Connection::publish(std::string subject, std::string data) {
   if (!status_.connected) {
      return;
   }
   Guard const lock(shared_->mutex);
   shared_->outgoing.push_back(
         {Shared::Outgoing::message, number_, 0, std::move(subject), {}, std::move(data)});
   shared_->work.notify_all();
}

U64 Connection::ask(std::string subject, std::string data, U64 patience, Answer answer) {
   U64 const number = ++numbers_;
   // Without a connection it is answered in the next turn.
   U64 const until = status_.connected ? now() + patience : 1;
   questions_.emplace(number, Question{until, std::move(answer)});
   due_ = due_ == 0 ? until : std::min(due_, until);
   if (status_.connected) {
      Guard const lock(shared_->mutex);
      shared_->outgoing.push_back({Shared::Outgoing::message, number_, 0, std::move(subject),
                                   inbox_ + "." + std::to_string(number), std::move(data)});
      shared_->work.notify_all();
   }
   return number;
}

std::string Connection::open(Handler handler) {
   U64 const number = ++numbers_;
   handlers_.emplace(number, std::make_shared<Handler>(std::move(handler)));
   std::string subject = inbox_ + "s." + std::to_string(number);
   Guard const lock(shared_->mutex);
   shared_->outgoing.push_back({Shared::Outgoing::subscription, number_, number, subject, {}, {}});
   shared_->work.notify_all();
   return subject;
}

void Connection::close(std::string_view subject) {
   U64 const number = numberAtEnd(subject);
   if (handlers_.erase(number) != 0 && status_.connected) {
      Guard const lock(shared_->mutex);
      shared_->outgoing.push_back({Shared::Outgoing::end, number_, number, {}, {}, {}});
      shared_->work.notify_all();
   }
}

void Connection::appendTo(std::vector<pollfd>& polled) {
   polled.push_back({shared_->wake, POLLIN, 0});
}

U64 Connection::deadline() const {
   return questions_.empty() ? 0 : due_;
}

void Connection::onTurn(std::span<pollfd const> polled) {
   if (polled[0].revents != 0) {
      take();
   }
   if (!questions_.empty() && now() >= due_) {
      expire();
   }
}

void Connection::take() {
   U64 count = 0;
   (void)!::read(shared_->wake, &count, sizeof count);
   std::vector<Shared::Event> events;
   {
      Guard const lock(shared_->mutex);
      events.swap(shared_->incoming);
   }
   std::size_t taken = 0;
   for (Shared::Event& event : events) {
      switch (event.kind) {
         case Shared::Event::message: {
            natsMsg* const message = event.received;
            Arrived arrived;
            arrived.subject = textOf(natsMsg_GetSubject(message));
            arrived.reply = textOf(natsMsg_GetReply(message));
            auto const size = static_cast<std::size_t>(natsMsg_GetDataLength(message));
            arrived.data =
                  size != 0 ? std::string_view(natsMsg_GetData(message), size) : std::string_view();
            if (size == 0) {
               std::string_view const status = headerOf(message, "Status");
               std::from_chars(status.data(), status.data() + status.size(), arrived.status);
               arrived.lastConsumer = headerOf(message, "Nats-Last-Consumer");
               arrived.stalled = headerOf(message, "Nats-Consumer-Stalled");
            }
            this->arrived(arrived, event.number);
            taken += sizeOf(message);
            natsMsg_Destroy(message);
            event.received = nullptr;
            break;
         }
         case Shared::Event::connected:
            inbox_ = event.inbox;
            status_.url = event.text;
            status_.longestMessage = event.longestMessage;
            ++status_.connections;
            number_ = event.number;
            statusIs(true, {});
            break;
         case Shared::Event::lost:
            statusIs(false, event.text);
            break;
         case Shared::Event::refused:
            tell([text = Kiv::printable(event.text)](Listener& listener) {
               listener.onRefused(text);
            });
            break;
      }
   }
   if (taken != 0) {
      Guard const lock(shared_->mutex);
      shared_->bytes -= taken;
      shared_->room.notify_all();
   }
}

void Connection::arrived(Arrived const& message, U64 subscription) {
   if (subscription == 0) {
      auto const at = questions_.find(numberAtEnd(message.subject));
      if (at != questions_.end()) {
         Answer const answer = std::move(at->second.answer);
         questions_.erase(at);
         answer(&message);
      }
   } else if (auto const at = handlers_.find(subscription); at != handlers_.end()) {
      // It may close itself.
      std::shared_ptr<Handler> const handler = at->second;
      (*handler)(message);
   }
}

void Connection::statusIs(bool connected, std::string const& reason) {
   status_.reason = Kiv::printable(reason);
   if (status_.connected == connected) {
      return;
   }
   status_.connected = connected;
   status_.since = Holt::wallNow();
   if (!connected) {
      status_.url.clear();
      handlers_.clear();
      std::map<U64, Question> const unanswered = std::exchange(questions_, {});
      for (auto const& [number, question] : unanswered) {
         question.answer(nullptr);
      }
   }
   tell([connected](Listener& listener) {
      connected ? listener.onConnected() : listener.onDisconnected();
   });
}

/// Calls those that are listeners by then: one may remove another.
void Connection::tell(std::function<void(Listener&)> const& call) {
   for (Listener* const listener : std::vector(listeners_)) {
      if (std::find(listeners_.begin(), listeners_.end(), listener) != listeners_.end()) {
         call(*listener);
      }
   }
}

void Connection::expire() {
   U64 const time = now();
   std::vector<Answer> overdue;
   due_ = 0;
   for (auto at = questions_.begin(); at != questions_.end();) {
      if (at->second.deadline <= time) {
         overdue.push_back(std::move(at->second.answer));
         at = questions_.erase(at);
      } else {
         due_ = due_ == 0 ? at->second.deadline : std::min(due_, at->second.deadline);
         ++at;
      }
   }
   for (Answer const& answer : overdue) {
      answer(nullptr);
   }
}

}  // namespace Fleet
