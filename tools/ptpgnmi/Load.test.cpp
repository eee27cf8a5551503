// What a hundred subscribers cost: 64 ports with 16 Sync a second, over connections of this
// machine, for a few seconds. It prints what it measures; the bounds are those of a busy machine.
#include <grpcpp/generic/generic_stub.h>
#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <thread>

#include "Holt/Times.h"
#include "PtpLib/PtpStatusStatedbTypes.h"
#include "tools/ptpgnmi/GrpcServer.h"
#include "tools/ptpgnmi/gnmi.grpc.pb.h"

namespace Ptpgnmi {
namespace {

constexpr int subscribers = 100;
constexpr int ports = 64;
constexpr int ticks = 48;  // 16 a second

U64 cpu(clockid_t clock) {
   timespec at{};
   ::clock_gettime(clock, &at);
   return static_cast<U64>(at.tv_sec) * 1'000'000'000 + static_cast<U64>(at.tv_nsec);
}

/// Makes times recognisable, however long the machine has been up.
constexpr U64 offset = 1'000'000'000'000'000;

/// What a client does with what comes.
enum class Does : U8 {
   /// Parses it, as a client does that runs on another machine.
   parse,
   /// Takes it, so that the machine has time for the server.
   take,
   /// Reads nothing.
   stop,
};

class Reader final : public grpc::ClientBidiReactor<gnmi::SubscribeRequest, grpc::ByteBuffer> {
public:
   using Stub = grpc::TemplatedGenericStub<gnmi::SubscribeRequest, grpc::ByteBuffer>;

   Reader(std::shared_ptr<grpc::Channel> const& channel, gnmi::SubscribeRequest const& request,
          Does does)
         : stub_(channel), request_(request), does_(does) {
      stub_.PrepareBidiStreamingCall(&context_, "/gnmi.gNMI/Subscribe", {}, this);
      StartWrite(&request_);
      if (does_ != Does::stop) {
         StartRead(&response_);
      }
      StartCall();
   }
   void OnReadDone(bool ok) override {
      if (!ok) {
         return;
      }
      ++messages;
      bytes += response_.Length();
      synced = synced || response_.Length() == 2;
      if (does_ == Does::parse) {
         parse();
      }
      StartRead(&response_);
   }
   void OnDone(grpc::Status const&) override { done = true; }
   void cancel() { context_.TryCancel(); }

   std::atomic<bool> synced = false;
   std::atomic<bool> done = false;
   std::atomic<U64> updates = 0;
   std::atomic<U64> messages = 0;
   std::atomic<U64> bytes = 0;
   std::vector<U64> delays;

private:
   void parse() {
      gnmi::SubscribeResponse response;
      grpc::SerializationTraits<gnmi::SubscribeResponse>::Deserialize(&response_, &response);
      U64 const now = Holt::steadyNow() + offset;
      for (auto const& update : response.update().update()) {
         ++updates;
         if (U64 const at = update.val().uint_val(); at > offset && at <= now) {
            delays.push_back(now - at);
         }
      }
   }

   Stub stub_;
   grpc::ClientContext context_;
   gnmi::SubscribeRequest request_;
   grpc::ByteBuffer response_;
   Does does_;
};

gnmi::SubscribeRequest everything() {
   gnmi::SubscribeRequest request;
   auto& list = *request.mutable_subscribe();
   list.set_encoding(gnmi::PROTO);
   auto& subscription = *list.add_subscription();
   subscription.set_mode(gnmi::ON_CHANGE);
   subscription.mutable_path()->set_origin("ptplib");
   subscription.mutable_path()->add_elem()->set_name("tree");
   return request;
}

/// What each port's Sync changes.
void sync(Ptp::Status& status, std::vector<Sarn::Ptr<Ptp::PortDS>> const& all, U32 tick) {
   (void)status;
   for (auto const& port : all) {
      port->syncMessageReceivedIs(tick);
      port->lostResponsesPeerDelayIs(tick);
      port->peerMeanPathDelayIs(static_cast<S64>(tick));
      port->precisePeerMeanPathDelayIs(tick);
      port->neighborRateRatioIs(1 + tick * 1e-9);
      port->lastGptpResidenceTimeIs(Holt::steadyNow() + offset);
   }
}

TEST(GnmiLoad, AHundredSubscribersOf64PortsAndOneThatStopsReading) {
   Limits limits;
   Mailbox mailbox;
   auto const status = Ptp::statusFactory("ptp/status");
   std::vector<Sarn::Ptr<Ptp::PortDS>> all;
   for (int i = 1; i <= ports; ++i) {
      Ptp::PortDSKey const key(Dorn::IntfId("Ethernet" + std::to_string(i)),
                               Bridging::VlanIdOrNone());
      all.push_back(status->portDSIs(key, Ptp::PortIdentity()));
   }
   Engine engine(limits);
   engine.rootIs(status);
   engine.readyIs(true);
   Holt::Loop loop;
   loop.add(mailbox);
   loop.add(engine);
   std::vector<std::unique_ptr<Reader>> readers;
   std::vector<U64> delays;
   {
      GrpcServer server(engine, mailbox, limits, {"127.0.0.1:0", true, "", "", ""});
      grpc::ChannelArguments apart;
      apart.SetInt(GRPC_ARG_USE_LOCAL_SUBCHANNEL_POOL, 1);
      for (int i = 0; i <= subscribers; ++i) {
         readers.push_back(std::make_unique<Reader>(
               grpc::CreateCustomChannel("127.0.0.1:" + std::to_string(server.port()),
                                         grpc::InsecureChannelCredentials(), apart),
               everything(),
               i == 0             ? Does::parse
               : i != subscribers ? Does::take
                                  : Does::stop));
      }
      U64 const patience = Holt::steadyNow() + 30'000'000'000;
      auto const synced = [&readers] {
         return std::all_of(readers.begin(), readers.end() - 1,
                            [](auto const& reader) { return reader->synced.load(); });
      };
      while (!synced() && Holt::steadyNow() < patience) {
         loop.turn(-1, std::chrono::milliseconds(20));
      }
      ASSERT_TRUE(synced());

      U64 const wallBefore = Holt::steadyNow();
      U64 const loopBefore = cpu(CLOCK_THREAD_CPUTIME_ID);
      U64 const allBefore = cpu(CLOCK_PROCESS_CPUTIME_ID);
      std::size_t highest = 0;
      std::size_t lowest = ~std::size_t{0};
      for (U32 tick = 1; tick <= ticks; ++tick) {
         sync(*status, all, tick);
         U64 const next = wallBefore + tick * 62'500'000ULL;
         for (U64 now = Holt::steadyNow(); now < next; now = Holt::steadyNow()) {
            loop.turn(-1, std::chrono::milliseconds((next - now) / 1'000'000 + 1));
         }
         highest = std::max(highest, engine.subscriberBytes());
         lowest = std::min(lowest, engine.subscriberBytes());
      }
      double const seconds = static_cast<double>(Holt::steadyNow() - wallBefore) / 1e9;
      double const loopShare =
            static_cast<double>(cpu(CLOCK_THREAD_CPUTIME_ID) - loopBefore) / 1e7 / seconds;
      double const allShare =
            static_cast<double>(cpu(CLOCK_PROCESS_CPUTIME_ID) - allBefore) / 1e7 / seconds;
      for (auto const& reader : readers) {
         reader->cancel();
      }
      for (int i = 0; i != 500 && !std::all_of(readers.begin(), readers.end(),
                                               [](auto const& r) { return r->done.load(); });
           ++i) {
         loop.turn(-1, std::chrono::milliseconds(10));
      }
      U64 messages = 0;
      U64 bytes = 0;
      for (auto const& reader : readers) {
         ASSERT_TRUE(reader->done);
         bytes += reader->bytes;
         messages += reader->messages;
         delays.insert(delays.end(), reader->delays.begin(), reader->delays.end());
      }
      std::sort(delays.begin(), delays.end());
      ASSERT_FALSE(delays.empty());
      rusage usage{};
      ::getrusage(RUSAGE_SELF, &usage);
      U64 const updates = readers[0]->updates;
      std::printf(
            "%.0f updates/s to each in %.0f messages/s and %.1f MB/s to all; CPU: thread of the "
            "loop %.1f %%, server and clients together %.1f %%; delay median %.1f ms, 99 %% %.1f "
            "ms; kept for 101 subscribers: %zu to %zu bytes; peak RSS %ld MB with clients\n",
            static_cast<double>(updates) / seconds, static_cast<double>(messages) / seconds,
            static_cast<double>(bytes) / 1e6 / seconds, loopShare, allShare,
            static_cast<double>(delays[delays.size() / 2]) / 1e6,
            static_cast<double>(delays[delays.size() * 99 / 100]) / 1e6, lowest, highest,
            usage.ru_maxrss / 1024);
      // 101 sets of six bytes a leaf, however much the one that stopped has missed.
      EXPECT_LT(highest, 101U * 64 * 1024);
      EXPECT_GT(updates, ports * 6U * ticks / 4);
   }
}

}  // namespace
}  // namespace Ptpgnmi
