#include "tools/ptpgnmi/GrpcServer.h"

#include <grpcpp/grpcpp.h>
#include <grpcpp/resource_quota.h>

#include <atomic>
#include <thread>

#include "Holt/Failure.h"
#include "tools/ptpgnmi/gnmi.grpc.pb.h"

namespace Ptpgnmi {

namespace {

grpc::Status statusOf(Code code, std::string const& message) {
   return code == Code::ok ? grpc::Status::OK
                           : grpc::Status(static_cast<grpc::StatusCode>(code), message);
}

std::string bytesOf(grpc::ByteBuffer const& buffer) {
   std::vector<grpc::Slice> slices;
   std::string bytes;
   if (buffer.Dump(&slices).ok()) {
      bytes.reserve(buffer.Length());
      for (grpc::Slice const& slice : slices) {
         bytes.append(reinterpret_cast<char const*>(slice.begin()), slice.size());
      }
   }
   return bytes;
}

grpc::ByteBuffer bufferOf(std::string const& bytes) {
   grpc::Slice const slice(bytes);
   return {&slice, 1};
}

/// Counts what is under way, up to a bound.
class Bounded {
public:
   explicit Bounded(std::size_t most) : most_(most) {}
   bool enter() {
      if (++count_ > most_) {
         --count_;
         return false;
      }
      return true;
   }
   void leave() { --count_; }
   std::size_t most() const noexcept { return most_; }

private:
   std::size_t most_;
   std::atomic<std::size_t> count_ = 0;
};

/// What the calls share.
struct Shared {
   Engine& engine;
   Mailbox& mailbox;
   Bounded streams;
   Bounded answers;
};

/// Get calls that may wait for the loop at once.
constexpr std::size_t mostAnswers = 64;

/// One Subscribe call. Callbacks of gRPC come one at a time for each of read, write and done; they
/// only post. The object lives until both gRPC and the engine are done with it.
class SubscribeCall final : public grpc::ServerBidiReactor<grpc::ByteBuffer, grpc::ByteBuffer>,
                            public Stream,
                            public std::enable_shared_from_this<SubscribeCall> {
public:
   explicit SubscribeCall(Shared& shared) : shared_(shared) {}

   /// Passes the call to the engine.
   void begin() {
      self_ = shared_from_this();
      post([](Engine& engine, std::shared_ptr<SubscribeCall> const& call) { engine.opened(call); });
   }

   // `Stream`, on the thread of the loop:
   void write(std::string message) override {
      outgoing_ = bufferOf(message);
      StartWrite(&outgoing_);
   }
   void readNext() override { StartRead(&incoming_); }
   void finish(Code code, std::string const& message) override {
      if (!finished_) {
         finished_ = true;
         Finish(statusOf(code, message));
      }
   }

   // On threads of gRPC:
   void OnReadDone(bool ok) override {
      post([ok, bytes = ok ? bytesOf(incoming_) : std::string()](
                 Engine& engine, std::shared_ptr<SubscribeCall> const& call) {
         if (ok) {
            engine.received(*call, bytes);
         } else {
            engine.closed(*call);
         }
      });
   }
   void OnWriteDone(bool) override {
      post([](Engine& engine, std::shared_ptr<SubscribeCall> const& call) {
         engine.written(*call);
      });
   }
   void OnCancel() override {
      post([](Engine& engine, std::shared_ptr<SubscribeCall> const& call) {
         engine.gone(*call);
         call->finish(Code::ok, "");
      });
   }
   void OnDone() override {
      shared_.streams.leave();
      post([](Engine& engine, std::shared_ptr<SubscribeCall> const& call) { engine.gone(*call); });
      self_.reset();
   }

private:
   template <class Act>
   void post(Act act) {
      shared_.mailbox.post([&engine = shared_.engine, call = shared_from_this(),
                            act = std::move(act)] { act(engine, call); });
   }

   Shared& shared_;
   std::shared_ptr<SubscribeCall> self_;
   grpc::ByteBuffer incoming_;
   grpc::ByteBuffer outgoing_;
   bool finished_ = false;
};

/// A Subscribe call that is refused at once.
class RefusedCall final : public grpc::ServerBidiReactor<grpc::ByteBuffer, grpc::ByteBuffer> {
public:
   explicit RefusedCall(grpc::Status const& status) { Finish(status); }
   void OnDone() override { delete this; }
};

using Raw = gnmi::gNMI::WithRawCallbackMethod_Get<
      gnmi::gNMI::WithRawCallbackMethod_Capabilities<gnmi::gNMI::WithRawCallbackMethod_Set<
            gnmi::gNMI::WithRawCallbackMethod_Subscribe<gnmi::gNMI::Service>>>>;

/// Messages are bytes here: the engine reads and writes them.
class Service final : public Raw {
public:
   explicit Service(Shared& shared) : shared_(shared) {}

   grpc::ServerUnaryReactor* Capabilities(grpc::CallbackServerContext* context,
                                          grpc::ByteBuffer const*,
                                          grpc::ByteBuffer* response) override {
      return answered(context, response, [](Engine& engine) { return engine.capabilities(); });
   }
   grpc::ServerUnaryReactor* Get(grpc::CallbackServerContext* context,
                                 grpc::ByteBuffer const* request,
                                 grpc::ByteBuffer* response) override {
      return answered(context, response,
                      [bytes = bytesOf(*request)](Engine& engine) { return engine.get(bytes); });
   }
   grpc::ServerUnaryReactor* Set(grpc::CallbackServerContext* context, grpc::ByteBuffer const*,
                                 grpc::ByteBuffer*) override {
      auto* const reactor = context->DefaultReactor();
      reactor->Finish({grpc::StatusCode::UNIMPLEMENTED, "Set is not implemented: read-only"});
      return reactor;
   }
   grpc::ServerBidiReactor<grpc::ByteBuffer, grpc::ByteBuffer>* Subscribe(
         grpc::CallbackServerContext*) override {
      if (!shared_.streams.enter()) {
         return new RefusedCall({grpc::StatusCode::RESOURCE_EXHAUSTED,
                                 "there are " + std::to_string(shared_.streams.most()) +
                                       " subscribers already, the most that are allowed"});
      }
      auto const call = std::make_shared<SubscribeCall>(shared_);
      call->begin();
      return call.get();
   }

private:
   template <class Answer>
   grpc::ServerUnaryReactor* answered(grpc::CallbackServerContext* context,
                                      grpc::ByteBuffer* response, Answer answer) {
      auto* const reactor = context->DefaultReactor();
      if (!shared_.answers.enter()) {
         reactor->Finish({grpc::StatusCode::RESOURCE_EXHAUSTED,
                          std::to_string(shared_.answers.most()) +
                                " requests are waiting already, the most that are allowed"});
         return reactor;
      }
      shared_.mailbox.post([this, reactor, response, answer = std::move(answer)] {
         grpc::Status status;
         try {
            *response = bufferOf(answer(shared_.engine));
         } catch (Refusal const& refusal) {
            status = statusOf(refusal.code(), refusal.what());
         }
         shared_.answers.leave();
         reactor->Finish(status);
      });
      return reactor;
   }

   Shared& shared_;
};

std::shared_ptr<grpc::ServerCredentials> credentialsOf(Listening const& listening) {
   if (listening.insecure) {
      return grpc::InsecureServerCredentials();
   }
   grpc::SslServerCredentialsOptions options(
         listening.clientAuthorities.empty()
               ? GRPC_SSL_DONT_REQUEST_CLIENT_CERTIFICATE
               : GRPC_SSL_REQUEST_AND_REQUIRE_CLIENT_CERTIFICATE_AND_VERIFY);
   options.pem_root_certs = listening.clientAuthorities;
   options.pem_key_cert_pairs.push_back({listening.key, listening.certificate});
   return grpc::SslServerCredentials(options);
}

}  // namespace

struct GrpcServer::Impl {
   Impl(Engine& engine, Mailbox& mailbox, Limits const& limits)
         : shared{engine, mailbox, Bounded(limits.subscribers), Bounded(mostAnswers)},
           service(shared) {}

   Shared shared;
   Service service;
   std::unique_ptr<grpc::Server> server;
   int port = 0;
};

GrpcServer::GrpcServer(Engine& engine, Mailbox& mailbox, Limits const& limits,
                       Listening const& listening)
      : impl_(std::make_unique<Impl>(engine, mailbox, limits)) {
   grpc::ServerBuilder builder;
   grpc::ResourceQuota quota("ptpgnmi");
   quota.Resize(256 << 20);
   builder.SetResourceQuota(quota);
   builder.SetMaxReceiveMessageSize(static_cast<int>(limits.request));
   builder.SetMaxSendMessageSize(-1);
   builder.AddChannelArgument(GRPC_ARG_ALLOW_REUSEPORT, 0);
   builder.AddChannelArgument(GRPC_ARG_MAX_CONCURRENT_STREAMS, 64);
   builder.AddChannelArgument(GRPC_ARG_MAX_METADATA_SIZE, 16 << 10);
   // A client that vanished is noticed, and its subscription ends.
   builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIME_MS, 30'000);
   builder.AddChannelArgument(GRPC_ARG_KEEPALIVE_TIMEOUT_MS, 20'000);
   if (!listening.address.empty()) {
      builder.AddListeningPort(listening.address, credentialsOf(listening), &impl_->port);
   }
   builder.RegisterService(&impl_->service);
   impl_->server = builder.BuildAndStart();
   if (impl_->server == nullptr || (!listening.address.empty() && impl_->port == 0)) {
      throw Holt::Failure("cannot listen on " + listening.address +
                                ": the address is in use or not of this machine, or the "
                                "certificate and its key do not fit",
                          Holt::Exit::connection);
   }
}

GrpcServer::~GrpcServer() {
   // It waits for every call, and calls wait for what they have posted.
   std::atomic<bool> done = false;
   std::thread ending([this, &done] {
      impl_->server->Shutdown(std::chrono::system_clock::now());
      done = true;
   });
   while (!done) {
      impl_->shared.mailbox.serve(10);
   }
   ending.join();
   impl_->shared.mailbox.serve(0);
}

int GrpcServer::port() const noexcept {
   return impl_->port;
}

std::shared_ptr<grpc::Channel> GrpcServer::channel() {
   return impl_->server->InProcessChannel({});
}

}  // namespace Ptpgnmi
