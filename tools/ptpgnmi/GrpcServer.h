// The gRPC side of the server. Only its source includes gRPC.
#pragma once

#include <memory>
#include <string>

#include "tools/ptpgnmi/Engine.h"
#include "tools/ptpgnmi/Mailbox.h"

namespace grpc {
class Channel;
}

namespace Ptpgnmi {

/// Who may connect, and how.
struct Listening {
   /// "127.0.0.1:9339", "[::]:9339"; port 0 for any. Empty: only channels within the process.
   std::string address;
   /// Without TLS.
   bool insecure = false;
   /// Contents of PEM files.
   std::string certificate;
   std::string key;
   /// The authorities whose clients may connect; empty: any client may.
   std::string clientAuthorities;
};

/// Takes calls on threads of gRPC and passes them to the engine on the thread of the loop, which
/// never waits for gRPC: each call has at most one message under way.
///
/// Threads: made and destroyed on that of the loop. REQUIRES: mailbox and engine outlive it.
class GrpcServer {
public:
   /// Begins to listen. Throws `Holt::Failure`.
   GrpcServer(Engine& engine, Mailbox& mailbox, Limits const& limits, Listening const& listening);
   /// Ends all calls, and serves the mailbox until they have ended.
   ~GrpcServer();
   GrpcServer(GrpcServer const&) = delete;
   GrpcServer& operator=(GrpcServer const&) = delete;

   /// The port that it listens on; 0 if on none.
   int port() const noexcept;
   /// A channel within the process.
   std::shared_ptr<grpc::Channel> channel();

private:
   struct Impl;
   std::unique_ptr<Impl> impl_;
};

}  // namespace Ptpgnmi
