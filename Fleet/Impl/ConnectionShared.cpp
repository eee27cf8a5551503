#include "Fleet/Impl/ConnectionShared.h"

#include <sys/random.h>

#include <algorithm>
#include <cstdlib>

#include "Fleet/Message.h"

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

/// Throws what the library says about a call that has failed, without the place in its sources.
void require(natsStatus status, std::string const& what) {
   if (status == NATS_OK) {
      return;
   }
   natsStatus last = NATS_OK;
   std::string_view more = textOf(nats_GetLastError(&last));
   if (std::size_t const place = more.find(".c:"); place != std::string_view::npos) {
      more.remove_prefix(std::min(more.size(), more.find("): ", place)));
      more.remove_prefix(std::min(more.size(), std::size_t{3}));
   }
   std::string text = natsStatus_GetText(status);
   if (last == status && !more.empty() && more != text) {
      text += " (" + std::string(more) + ")";
   }
   throw Holt::Failure(what + ": " + text);
}

std::string joined(std::vector<std::string> const& texts) {
   std::string all;
   for (std::string const& text : texts) {
      all += (all.empty() ? "" : ", ") + text;
   }
   return all;
}

}  // namespace

void Connection::Shared::onMessage(natsConnection*, natsSubscription*, natsMsg* message,
                                   void* closure) {
   auto const& delivery = *static_cast<Delivery*>(closure);
   Shared& shared = delivery.shared;
   Lock lock(shared.mutex);
   shared.room.wait(lock, [&] { return shared.bytes < shared.options.incoming || shared.closing; });
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

std::unique_ptr<natsOptions, void (*)(natsOptions*)> Connection::Shared::natsOptionsOf() {
   natsOptions* made = nullptr;
   require(natsOptions_Create(&made), "NATS");
   std::unique_ptr<natsOptions, void (*)(natsOptions*)> result(made, &natsOptions_Destroy);
   std::vector<char const*> urls;
   for (std::string const& url : known) {
      urls.push_back(url.c_str());
   }
   constexpr U64 millisecond = 1'000'000;
   auto const milliseconds = [](U64 time) {
      return std::max<S64>(1, static_cast<S64>(time / millisecond));
   };
   require(natsOptions_SetServers(made, urls.data(), static_cast<int>(urls.size())), joined(known));
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
            post(lock, {Event::refused,
                        nullptr,
                        out.subject + ": " + natsStatus_GetText(status),
                        {},
                        0,
                        0});
         }
      }
   }
}

natsStatus Connection::Shared::send(natsConnection* nats, Outgoing const& out) {
   auto const size = static_cast<int>(out.data.size());
   switch (out.kind) {
      case Outgoing::subscription:
         return subscribe(nats, out.subject, out.number);
      case Outgoing::end:
         if (auto const at = subscriptions.find(out.number); at != subscriptions.end()) {
            natsSubscription* const subscription = at->second;
            subscriptions.erase(at);
            (void)natsSubscription_Unsubscribe(subscription);
            natsSubscription_Destroy(subscription);
         }
         return NATS_OK;
      case Outgoing::message:
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
   natsStatus const status =
         natsConnection_Subscribe(&subscription, nats, subject.c_str(), &onMessage, delivery.get());
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
   auto const made = natsOptionsOf();
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

}  // namespace Fleet
