// The threads of a connection: the only code that uses the library of NATS.
#pragma once

#include <nats/nats.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <map>
#include <mutex>
#include <thread>

#include "Fleet/Connection.h"
#include "Holt/Failure.h"

namespace Fleet {

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
      enum Kind : U8 { message, subscription, end } kind;
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

   void post(std::unique_lock<std::mutex> const&, Event event) {
      incoming.push_back(std::move(event));
      U64 const one = 1;
      (void)!::write(wake, &one, sizeof one);
   }
   void run();
   void serve();
   void sendAll(natsConnection* nats);
   natsStatus send(natsConnection* nats, Outgoing const& out);
   natsStatus subscribe(natsConnection* nats, std::string const& subject, U64 number);
   std::unique_ptr<natsOptions, void (*)(natsOptions*)> natsOptionsOf();
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

/// A text that may be null.
inline std::string_view textOf(char const* text) {
   return text != nullptr ? std::string_view(text) : std::string_view();
}

/// What a message counts for, in bytes.
inline std::size_t sizeOf(natsMsg const* message) {
   constexpr std::size_t rest = 128;
   return static_cast<std::size_t>(natsMsg_GetDataLength(message)) + rest;
}

}  // namespace Fleet
