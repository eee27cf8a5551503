#include "Fleet/Connection.h"

#include <nats/nats.h>
#include <sys/eventfd.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "Fleet/Message.h"
#include "Holt/Failure.h"
#include "Kiv/Printable.h"

namespace Fleet {

namespace {

using Lock = std::unique_lock<std::mutex>;

std::string randomText() {
   U64 numbers[2] = {};
   if (::getrandom(numbers, sizeof numbers, 0) != static_cast<ssize_t>(sizeof numbers)) {
      throw Holt::Failure(std::string("getrandom: ") + std::strerror(errno));
   }
   return hexText(numbers[0]) + hexText(numbers[1]);
}

void requireReadable(char const* what, std::string const& path) {
   if (!path.empty() && ::access(path.c_str(), R_OK) != 0) {
      throw Holt::Failure(std::string(what) + " '" + path + "': " + std::strerror(errno));
   }
}

std::string_view textOf(char const* text) {
   return text != nullptr ? std::string_view(text) : std::string_view();
}

std::string_view headerOf(natsMsg* message, char const* name) {
   char const* value = nullptr;
   return natsMsgHeader_Get(message, name, &value) == NATS_OK ? textOf(value)
                                                              : std::string_view();
}

std::size_t sizeOf(natsMsg const* message) {
   constexpr std::size_t rest = 128;
   return static_cast<std::size_t>(natsMsg_GetDataLength(message)) + rest;
}

struct FreeOptions {
   void operator()(natsOptions* options) const { natsOptions_Destroy(options); }
};
using NatsOptions = std::unique_ptr<natsOptions, FreeOptions>;

/// Throws what the library says about a call that has failed.
void require(natsStatus status, std::string const& what) {
   if (status != NATS_OK) {
      natsStatus last = NATS_OK;
      std::string_view const more = textOf(nats_GetLastError(&last));
      throw Holt::Failure(what + ": " + std::string(natsStatus_GetText(status)) +
                          (more.empty() || last != status ? "" : " (" + std::string(more) + ")"));
   }
}

/// The number after the last dot, or 0.
U64 numberAtEnd(std::string_view subject) {
   subject.remove_prefix(subject.rfind('.') + 1);
   U64 number = 0;
   std::from_chars(subject.data(), subject.data() + subject.size(), number);
   return number;
}

std::string joined(std::vector<std::string> const& texts) {
   std::string all;
   for (std::string const& text : texts) {
      all += (all.empty() ? "" : ", ") + text;
   }
   return all;
}

}  // namespace

/// What the threads share, and what is the sender's own.
struct Connection::Shared {
   /// Something that the threads of a connection have for the loop.
   struct Event {
      enum Kind : U8 { message, connected, lost, refused } kind;
      natsMsg* received = nullptr;
      /// Of `connected`: the URL; of the others, a text.
      std::string text;
      std::string inbox;
      U64 longestMessage = 0;
      /// Of `connected`: the number of the connection; of a message, that of its subscription, 0
      /// for answers.
      U64 number = 0;
   };

   struct Outgoing {
      enum Kind : U8 { publish, subscribe, unsubscribe } kind;
      /// Of the connection that it was written for.
      U64 connection;
      /// Of the subscription.
      U64 number;
      std::string subject;
      std::string reply;
      std::string data;
   };

   explicit Shared(Options const& given) : options(given), known(given.urls) {
      if (wake < 0) {
         throw Holt::Failure(std::string("eventfd: ") + std::strerror(errno));
      }
   }
   ~Shared() {
      for (Event const& event : incoming) {
         natsMsg_Destroy(event.received);
      }
      ::close(wake);
   }
   Shared(Shared const&) = delete;
   Shared& operator=(Shared const&) = delete;

   /// What the library's delivery of a subscription needs.
   struct Delivery {
      Shared& shared;
      U64 number;
   };

   void post(Lock const&, Event event) {
      incoming.push_back(std::move(event));
      U64 const one = 1;
      (void)!::write(wake, &one, sizeof one);
   }
   void run();
   void serve();
   void sendAll(natsConnection* nats);
   natsStatus send(natsConnection* nats, Outgoing const& out);
   natsStatus subscribe(natsConnection* nats, std::string const& subject, U64 number);
   NatsOptions natsOptionsOf();
   void remember(natsConnection* nats);

   // Callbacks of the library.
   static void onMessage(natsConnection*, natsSubscription*, natsMsg* message, void* closure);
   static void onClosed(natsConnection* connection, void* closure);
   static void onError(natsConnection* connection, natsSubscription*, natsStatus, void* closure);
   static void onComplete(void* closure);

   Options const& options;
   /// Of the sender: all servers that are known.
   std::vector<std::string> known;
   /// Of the sender: by their numbers.
   std::map<U64, natsSubscription*> subscriptions;
   /// Of the sender: of subscriptions that were gone at once.
   std::vector<std::unique_ptr<Delivery>> useless;
   int const wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);

   std::mutex mutex;
   /// For the sender: there is something to send, the connection is closed, or this is the end.
   std::condition_variable work;
   /// For the library's delivery: there is room.
   std::condition_variable room;
   std::vector<Event> incoming;
   std::size_t bytes = 0;
   std::vector<Outgoing> outgoing;
   /// Counts connections.
   U64 connection = 0;
   bool ending = false;
   /// No more messages are wanted: their delivery must not wait.
   bool closing = false;
   bool closed = false;
   /// Subscriptions that the library may still deliver for.
   std::size_t delivering = 0;
   std::string closedWhy;
   std::thread sender;
};

void Connection::Shared::onMessage(natsConnection*, natsSubscription*, natsMsg* message,
                                   void* closure) {
   auto const& delivery = *static_cast<Delivery*>(closure);
   Shared& shared = delivery.shared;
   Lock lock(shared.mutex);
   shared.room.wait(lock,
                    [&] { return shared.bytes < shared.options.incoming || shared.closing; });
   if (shared.closing) {
      natsMsg_Destroy(message);
      return;
   }
   shared.bytes += sizeOf(message);
   shared.post(lock, {Event::message, message, {}, {}, 0, delivery.number});
}

void Connection::Shared::onClosed(natsConnection* connection, void* closure) {
   auto& shared = *static_cast<Shared*>(closure);
   char const* why = nullptr;
   natsStatus const status = natsConnection_GetLastError(connection, &why);
   Lock const lock(shared.mutex);
   shared.closed = true;
   shared.closedWhy = !textOf(why).empty() ? why : natsStatus_GetText(status);
   shared.work.notify_all();
}

void Connection::Shared::onError(natsConnection* connection, natsSubscription*, natsStatus status,
                                 void* closure) {
   auto& shared = *static_cast<Shared*>(closure);
   char const* why = nullptr;
   (void)natsConnection_GetLastError(connection, &why);
   std::string text = !textOf(why).empty() ? why : natsStatus_GetText(status);
   Lock const lock(shared.mutex);
   shared.post(lock, {Event::refused, nullptr, std::move(text), {}, 0, 0});
}

void Connection::Shared::onComplete(void* closure) {
   std::unique_ptr<Delivery> const delivery(static_cast<Delivery*>(closure));
   Shared& shared = delivery->shared;
   Lock const lock(shared.mutex);
   --shared.delivering;
   shared.work.notify_all();
}

NatsOptions Connection::Shared::natsOptionsOf() {
   natsOptions* made = nullptr;
   require(natsOptions_Create(&made), "NATS");
   NatsOptions result(made);
   std::vector<char const*> urls;
   for (std::string const& url : known) {
      urls.push_back(url.c_str());
   }
   constexpr U64 millisecond = 1'000'000;
   auto const milliseconds = [](U64 time) {
      return std::max<S64>(1, static_cast<S64>(time / millisecond));
   };
   require(natsOptions_SetServers(made, urls.data(), static_cast<int>(urls.size())),
           joined(known));
   require(natsOptions_SetName(made, options.name.c_str()), "the client's name");
   require(natsOptions_SetAllowReconnect(made, false), "NATS");
   // One thread for all subscriptions of the process.
   require(natsOptions_UseGlobalMessageDelivery(made, true), "NATS");
   require(natsOptions_SetTimeout(made, milliseconds(options.patience)), "NATS");
   require(natsOptions_SetPingInterval(made, milliseconds(options.probe)), "NATS");
   require(natsOptions_SetMaxPingsOut(made, 2), "NATS");
   require(natsOptions_SetWriteDeadline(made, milliseconds(options.patience)), "NATS");
   require(natsOptions_SetClosedCB(made, &onClosed, this), "NATS");
   require(natsOptions_SetErrorHandler(made, &onError, this), "NATS");
   if (!options.user.empty()) {
      require(natsOptions_SetUserInfo(made, options.user.c_str(), options.password.c_str()),
              "the user");
   }
   if (!options.credentials.empty()) {
      require(natsOptions_SetUserCredentialsFromFiles(made, options.credentials.c_str(), nullptr),
              options.credentials);
   }
   if (options.tls) {
      require(natsOptions_SetSecure(made, true), "TLS");
   }
   if (!options.tlsCa.empty()) {
      require(natsOptions_LoadCATrustedCertificates(made, options.tlsCa.c_str()), options.tlsCa);
   }
   if (!options.tlsCertificate.empty()) {
      require(natsOptions_LoadCertificatesChain(made, options.tlsCertificate.c_str(),
                                                options.tlsKey.c_str()),
              options.tlsCertificate);
   }
   return result;
}

/// Keeps what the server says about others, for the time when it is gone.
void Connection::Shared::remember(natsConnection* nats) {
   char** servers = nullptr;
   int count = 0;
   if (natsConnection_GetDiscoveredServers(nats, &servers, &count) != NATS_OK) {
      return;
   }
   constexpr std::size_t most = 64;
   known = options.urls;
   for (int i = 0; i != count; ++i) {
      if (known.size() < most && std::find(known.begin(), known.end(), servers[i]) == known.end()) {
         known.emplace_back(servers[i]);
      }
      std::free(servers[i]);
   }
   std::free(servers);
}

void Connection::Shared::sendAll(natsConnection* nats) {
   std::vector<Outgoing> batch;
   for (;;) {
      {
         Lock lock(mutex);
         work.wait(lock, [&] { return ending || closed || !outgoing.empty(); });
         if (closed || (ending && outgoing.empty())) {
            return;
         }
         batch.clear();
         batch.swap(outgoing);
      }
      for (Outgoing const& out : batch) {
         if (out.connection != connection) {
            continue;
         }
         if (natsStatus const status = send(nats, out); status != NATS_OK) {
            // The library closes the connection if it is useless; whoever has asked gets no answer.
            Lock const lock(mutex);
            post(lock, {Event::refused, nullptr,
                        out.subject + ": " + natsStatus_GetText(status), {}, 0, 0});
         }
      }
   }
}

natsStatus Connection::Shared::send(natsConnection* nats, Outgoing const& out) {
   auto const size = static_cast<int>(out.data.size());
   switch (out.kind) {
      case Outgoing::subscribe:
         return subscribe(nats, out.subject, out.number);
      case Outgoing::unsubscribe:
         if (auto const at = subscriptions.find(out.number); at != subscriptions.end()) {
            natsSubscription* const subscription = at->second;
            subscriptions.erase(at);
            (void)natsSubscription_Unsubscribe(subscription);
            natsSubscription_Destroy(subscription);
         }
         return NATS_OK;
      case Outgoing::publish:
         break;
   }
   return out.reply.empty()
                ? natsConnection_Publish(nats, out.subject.c_str(), out.data.data(), size)
                : natsConnection_PublishRequest(nats, out.subject.c_str(), out.reply.c_str(),
                                                out.data.data(), size);
}

natsStatus Connection::Shared::subscribe(natsConnection* nats, std::string const& subject,
                                         U64 number) {
   std::unique_ptr<Delivery> delivery(new Delivery{*this, number});
   natsSubscription* subscription = nullptr;
   natsStatus const status = natsConnection_Subscribe(&subscription, nats, subject.c_str(),
                                                      &onMessage, delivery.get());
   if (status != NATS_OK) {
      return status;
   }
   subscriptions[number] = subscription;
   (void)natsSubscription_SetPendingLimits(subscription, -1, static_cast<int>(options.incoming));
   {
      Lock const lock(mutex);
      ++delivering;
   }
   if (natsSubscription_SetOnCompleteCB(subscription, &onComplete, delivery.get()) == NATS_OK) {
      (void)delivery.release();  // `onComplete` deletes it
   } else {
      Lock const lock(mutex);
      --delivering;
      useless.push_back(std::move(delivery));
   }
   return NATS_OK;
}

/// One connection, from the attempt to its end.
void Connection::Shared::serve() {
   {
      Lock const lock(mutex);
      closed = closing = false;
      closedWhy.clear();
   }
   NatsOptions const made = natsOptionsOf();
   natsConnection* nats = nullptr;
   require(natsConnection_Connect(&nats, made.get()), joined(known));
   std::string const inbox = options.inbox + "." + randomText();
   natsStatus const status = subscribe(nats, inbox + ".*", 0);
   if (status == NATS_OK) {
      char url[512] = "";
      (void)natsConnection_GetConnectedUrl(nats, url, sizeof url);
      remember(nats);
      {
         Lock const lock(mutex);
         post(lock, {Event::connected, nullptr, url, inbox,
                     static_cast<U64>(natsConnection_GetMaxPayload(nats)), connection});
      }
      sendAll(nats);
      (void)natsConnection_FlushTimeout(nats, 500);
   }
   std::vector<natsSubscription*> ended;
   {
      Lock const lock(mutex);
      closing = true;
      room.notify_all();
      for (auto const& [number, subscription] : subscriptions) {
         ended.push_back(subscription);
      }
   }
   subscriptions.clear();
   natsConnection_Close(nats);
   {
      // The callbacks use this object.
      Lock lock(mutex);
      work.wait(lock, [&] { return closed && delivering == 0; });
   }
   for (natsSubscription* const each : ended) {
      natsSubscription_Destroy(each);
   }
   natsConnection_Destroy(nats);
   require(status, inbox);
}

void Connection::Shared::run() {
   U64 pause = options.pause;
   for (;;) {
      std::string why;
      try {
         {
            Lock const lock(mutex);
            ++connection;
            outgoing.clear();
         }
         serve();
         pause = options.pause;
      } catch (Holt::Failure const& failure) {
         why = failure.what();
      } catch (std::bad_alloc const&) {
         why = "out of memory";
      }
      Lock lock(mutex);
      if (why.empty()) {
         why = "connection lost: " + closedWhy;
      }
      if (ending) {
         break;
      }
      post(lock, {Event::lost, nullptr, std::move(why), {}, 0, 0});
      work.wait_for(lock, std::chrono::nanoseconds(pause), [&] { return ending; });
      if (ending) {
         break;
      }
      pause = std::min(2 * pause, options.longestPause);
   }
   nats_ReleaseThreadMemory();
}

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
      Lock const lock(shared_->mutex);
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
   Lock const lock(shared_->mutex);
   shared_->outgoing.push_back(
         {Shared::Outgoing::publish, number_, 0, std::move(subject), {}, std::move(data)});
   shared_->work.notify_all();
}

U64 Connection::ask(std::string subject, std::string data, U64 patience, Answer answer) {
   U64 const number = ++numbers_;
   // Without a connection it is answered in the next turn.
   U64 const until = status_.connected ? now() + patience : 1;
   questions_.emplace(number, Question{until, std::move(answer)});
   due_ = due_ == 0 ? until : std::min(due_, until);
   if (status_.connected) {
      Lock const lock(shared_->mutex);
      shared_->outgoing.push_back({Shared::Outgoing::publish, number_, 0, std::move(subject),
                                   inbox_ + "." + std::to_string(number), std::move(data)});
      shared_->work.notify_all();
   }
   return number;
}

std::string Connection::open(Handler handler) {
   U64 const number = ++numbers_;
   handlers_.emplace(number, std::make_shared<Handler>(std::move(handler)));
   std::string subject = inbox_ + "s." + std::to_string(number);
   Lock const lock(shared_->mutex);
   shared_->outgoing.push_back({Shared::Outgoing::subscribe, number_, number, subject, {}, {}});
   shared_->work.notify_all();
   return subject;
}

void Connection::close(std::string_view subject) {
   U64 const number = numberAtEnd(subject);
   if (handlers_.erase(number) != 0 && status_.connected) {
      Lock const lock(shared_->mutex);
      shared_->outgoing.push_back(
            {Shared::Outgoing::unsubscribe, number_, number, {}, {}, {}});
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
      Lock const lock(shared_->mutex);
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
            arrived.data = size != 0 ? std::string_view(natsMsg_GetData(message), size)
                                     : std::string_view();
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
      Lock const lock(shared_->mutex);
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
