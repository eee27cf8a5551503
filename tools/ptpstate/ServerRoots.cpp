#include "tools/ptpstate/ServerRoots.h"

#include <poll.h>

#include <algorithm>

#include "Holt/Failure.h"
#include "Kiv/Printable.h"
#include "tools/shared/Progress.h"

namespace Ptpstate {

using namespace Holt;

namespace {

/// Between two attempts to connect again.
constexpr std::chrono::milliseconds pause{200};

}  // namespace

ServerRoots::ServerRoots(Tools::ClientOptions const& options, int interruptFd)
      : options_(options), interruptFd_(interruptFd) {
   connect();
}

void ServerRoots::connect() {
   client_.reset();
   client_ = std::make_unique<Client>(options_.socket, options_.patience());
   Tools::showWaiting(*client_);
   client_->interruptFd = interruptFd_;
   for (Mirrored& each : mirrored_) {
      each.mount = &client_->mountIs(each.mirror, MountMode::reader);
   }
}

Sarn::Ptr<Kiv::NamedEntity> ServerRoots::mirror(OfferedRoot const& root) {
   auto const known = std::find_if(mirrored_.begin(), mirrored_.end(),
                                   [&root](auto const& each) { return isSame(each.root, root); });
   if (known != mirrored_.end()) {
      return known->mirror;
   }
   Sarn::Ptr<Kiv::NamedEntity> const mirror = newRoot(root.type, root.name);
   mirrored_.push_back({root, mirror, &client_->mountIs(mirror, MountMode::reader)});
   return mirror;
}

void ServerRoots::waitComplete() {
   for (Mirrored const& each : mirrored_) {
      client_->waitComplete(*each.mount);
   }
}

std::vector<Mount*> ServerRoots::mounts() const {
   std::vector<Mount*> mounts;
   for (Mirrored const& each : mirrored_) {
      mounts.push_back(each.mount);
   }
   return mounts;
}

bool ServerRoots::turn(int otherFd, std::chrono::milliseconds timeout) {
   if (client_ != nullptr && client_->over()) {
      trouble_ = trouble();
      client_.reset();
   }
   if (client_ == nullptr) {
      try {
         connect();
      } catch (Failure const&) {  // the server is not back yet
         client_.reset();
         pollfd polled{otherFd, POLLIN, 0};
         return ::poll(&polled, 1, static_cast<int>(std::min(timeout, pause).count())) > 0;
      }
   }
   bool const other = client_->turn(otherFd, timeout);
   bool complete = true;
   for (Mirrored const& each : mirrored_) {
      if (each.mount->state() == Mount::State::refused) {
         throw Failure(each.root.name + ": the server refused the mirror: " + each.mount->reason(),
                       Exit::connection);
      }
      complete = complete && each.mount->complete();
   }
   if (complete && !client_->over()) {
      trouble_.clear();
   }
   return other;
}

Sarn::String ServerRoots::trouble() const {
   return client_ != nullptr && client_->over()
                ? "connection lost: " + Kiv::printable(client_->closeReason())
                : trouble_;
}

Sarn::String ServerRoots::lostText() const {
   return client_ != nullptr && client_->over()
                ? options_.socket + ": the connection is lost: " + client_->closeReason()
                : Sarn::String();
}

}  // namespace Ptpstate
