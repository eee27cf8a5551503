// The server over a channel within the process, with its loop in a thread of its own.
#include "tools/ptpgnmi/GrpcServer.h"

#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <future>
#include <thread>

#include "Holt/Failure.h"
#include "PtpLib/PtpStatusStatedbTypes.h"
#include "tools/ptpgnmi/gnmi.grpc.pb.h"

namespace Ptpgnmi {
namespace {

/// A state, the server and their loop, which one thread owns.
class GnmiServer : public testing::Test {
protected:
   void start() {
      ASSERT_EQ(::pipe(stop_), 0);
      std::promise<std::shared_ptr<grpc::Channel>> made;
      auto channel = made.get_future();
      thread_ = std::thread([this, &made] {
         auto const status = Ptp::statusFactory("ptp/status");
         Engine engine(limits);
         engine.rootIs(status);
         engine.readyIs(true);
         Holt::Loop loop;
         loop.add(mailbox);
         loop.add(engine);
         {
            GrpcServer server(engine, mailbox, limits, {});
            status_ = &*status;
            engine_ = &engine;
            made.set_value(server.channel());
            loop.run(stop_[0]);
         }
         left_ = engine.subscribers();
      });
      stub = gnmi::gNMI::NewStub(channel.get());
   }
   void stop() {
      if (thread_.joinable()) {
         ::close(stop_[1]);
         thread_.join();
         ::close(stop_[0]);
      }
   }
   ~GnmiServer() override { stop(); }

   /// Does something on the thread of the loop, and waits for it.
   void onLoop(std::function<void(Ptp::Status&, Engine&)> const& act) {
      std::promise<void> done;
      mailbox.post([&] {
         act(*status_, *engine_);
         done.set_value();
      });
      done.get_future().get();
   }
   static gnmi::SubscribeRequest subscription(gnmi::SubscriptionList::Mode mode) {
      gnmi::SubscribeRequest request;
      auto& list = *request.mutable_subscribe();
      list.set_mode(mode);
      list.set_encoding(gnmi::PROTO);
      auto& path = *list.add_subscription()->mutable_path();
      path.set_origin("ptplib");
      path.add_elem()->set_name("tree");
      path.add_elem()->set_name("enabled");
      return request;
   }

   Limits limits;
   Mailbox mailbox;
   std::unique_ptr<gnmi::gNMI::Stub> stub;
   std::size_t left_ = 99;

private:
   int stop_[2];
   std::thread thread_;
   Ptp::Status* status_ = nullptr;
   Engine* engine_ = nullptr;
};

TEST_F(GnmiServer, AnswersCapabilitiesAndGetAndRefusesSet) {
   start();
   {
      grpc::ClientContext context;
      gnmi::CapabilityResponse response;
      ASSERT_TRUE(stub->Capabilities(&context, {}, &response).ok());
      EXPECT_EQ(response.gnmi_version(), "0.10.0");
      EXPECT_EQ(response.supported_models_size(), 2);
      EXPECT_EQ(response.supported_encodings_size(), 3);
   }
   {
      grpc::ClientContext context;
      gnmi::GetRequest request;
      request.set_encoding(gnmi::PROTO);
      *request.add_path() =
            subscription(gnmi::SubscriptionList::ONCE).subscribe().subscription(0).path();
      gnmi::GetResponse response;
      ASSERT_TRUE(stub->Get(&context, request, &response).ok());
      EXPECT_FALSE(response.notification(0).update(0).val().bool_val());
   }
   grpc::ClientContext context;
   gnmi::SetResponse response;
   EXPECT_EQ(stub->Set(&context, {}, &response).error_code(), grpc::StatusCode::UNIMPLEMENTED);
}

TEST_F(GnmiServer, StreamsAChangeAndForgetsAClientThatLeaves) {
   start();
   grpc::ClientContext context;
   auto const stream = stub->Subscribe(&context);
   ASSERT_TRUE(stream->Write(subscription(gnmi::SubscriptionList::STREAM)));
   gnmi::SubscribeResponse response;
   ASSERT_TRUE(stream->Read(&response));
   EXPECT_EQ(response.update().update_size(), 1);
   ASSERT_TRUE(stream->Read(&response));
   EXPECT_TRUE(response.sync_response());
   onLoop([](Ptp::Status& status, Engine& engine) {
      EXPECT_EQ(engine.subscribers(), 1U);
      status.enabledIs(true);
   });
   ASSERT_TRUE(stream->Read(&response));
   EXPECT_TRUE(response.update().update(0).val().bool_val());
   context.TryCancel();
   EXPECT_EQ(stream->Finish().error_code(), grpc::StatusCode::CANCELLED);
   std::size_t left = 1;
   for (int i = 0; i != 500 && left != 0; ++i) {
      onLoop([&left](Ptp::Status&, Engine& engine) { left = engine.subscribers(); });
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
   }
   EXPECT_EQ(left, 0U);
}

TEST_F(GnmiServer, AClientThatHasNothingMoreToSayIsStillServed) {
   start();
   grpc::ClientContext context;
   auto const stream = stub->Subscribe(&context);
   ASSERT_TRUE(stream->Write(subscription(gnmi::SubscriptionList::STREAM)));
   stream->WritesDone();
   gnmi::SubscribeResponse response;
   ASSERT_TRUE(stream->Read(&response));
   ASSERT_TRUE(stream->Read(&response));
   onLoop([](Ptp::Status& status, Engine&) { status.enabledIs(true); });
   ASSERT_TRUE(stream->Read(&response));
   EXPECT_TRUE(response.update().update(0).val().bool_val());
   context.TryCancel();
}

TEST_F(GnmiServer, OneSubscriberTooManyIsRefused) {
   limits.subscribers = 2;
   start();
   std::vector<std::unique_ptr<grpc::ClientContext>> contexts;
   std::vector<
         std::unique_ptr<grpc::ClientReaderWriter<gnmi::SubscribeRequest, gnmi::SubscribeResponse>>>
         streams;
   gnmi::SubscribeResponse response;
   for (int i = 0; i != 3; ++i) {
      contexts.push_back(std::make_unique<grpc::ClientContext>());
      streams.push_back(stub->Subscribe(contexts.back().get()));
      streams.back()->Write(subscription(gnmi::SubscriptionList::STREAM));
      EXPECT_EQ(streams.back()->Read(&response), i != 2);
   }
   grpc::Status const status = streams.back()->Finish();
   EXPECT_EQ(status.error_code(), grpc::StatusCode::RESOURCE_EXHAUSTED);
   EXPECT_EQ(status.error_message(), "there are 2 subscribers already, the most that are allowed");
}

TEST_F(GnmiServer, EndsWithSubscribersThatDoNotRead) {
   start();
   grpc::ClientContext context;
   auto const stream = stub->Subscribe(&context);
   ASSERT_TRUE(stream->Write(subscription(gnmi::SubscriptionList::STREAM)));
   gnmi::SubscribeResponse response;
   ASSERT_TRUE(stream->Read(&response));
   stop();
   EXPECT_EQ(left_, 0U);
   while (stream->Read(&response)) {
   }
   EXPECT_FALSE(stream->Finish().ok());
}

TEST_F(GnmiServer, AnAddressThatCannotBeUsedIsNamed) {
   Engine engine(limits);
   try {
      GrpcServer const server(engine, mailbox, limits, {"203.0.113.1:1", true, "", "", ""});
      FAIL();
   } catch (Holt::Failure const& failure) {
      EXPECT_EQ(failure.status(), Holt::Exit::connection);
      EXPECT_EQ(std::string(failure.what()).substr(0, 34), "cannot listen on 203.0.113.1:1: th");
   }
}

}  // namespace
}  // namespace Ptpgnmi
