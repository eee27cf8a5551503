#include "tools/shared/Feed.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <sstream>

#include "Holt/Failure.h"
#include "Holt/Listener.h"
#include "Kiv/Module.h"
#include "Kiv/Printable.h"

namespace Tools {

using Holt::Mount;
using Holt::OfferedRoot;

namespace {

/// Wall time, in nanoseconds since 1970, at which a process was started; 0 if that is not known.
U64 startOf(U32 pid) {
   std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
   std::string text;
   std::getline(file, text);
   // The name in parentheses may contain anything, and field 22 is the 20th after it.
   std::istringstream rest(text.substr(std::min(text.rfind(')') + 1, text.size())));
   std::string field;
   for (int i = 0; i != 20; ++i) {
      rest >> field;
   }
   timespec sinceBoot{};
   if (!rest || ::clock_gettime(CLOCK_BOOTTIME, &sinceBoot) != 0) {
      return 0;
   }
   U64 const ticks = std::strtoull(field.c_str(), nullptr, 10);
   U64 const begin = ticks * (1'000'000'000 / static_cast<U64>(::sysconf(_SC_CLK_TCK)));
   U64 const booted =
         static_cast<U64>(sinceBoot.tv_sec) * 1'000'000'000 + static_cast<U64>(sinceBoot.tv_nsec);
   return begin <= booted ? Holt::wallNow() - (booted - begin) : 0;
}

/// Roots that are mirrored on one connection, at most: a session allows so many mounts and
/// unanswered questions together, and some room is left for questions.
constexpr std::size_t mostMirrors = 60;
static_assert(mostMirrors < Kiv::NboAttrLog::Limits().nesting);

bool isRefused(Mount const* mount) {
   return mount != nullptr && mount->state() == Mount::State::refused;
}

}  // namespace

/// A root with its mirror, which outlives connections.
struct Feed::Mirror final : Kiv::Observer {
   Mirror(Feed& owner, OfferedRoot const& offered)
         : feed(owner), root(offered), mirror(Holt::newRoot(offered.type, offered.name)) {
      mirror->observerAdd(*this, Kiv::Scope::subtree);
   }
   ~Mirror() { mirror->observerDel(*this, Kiv::Scope::subtree); }
   Mirror(Mirror const&) = delete;
   Mirror& operator=(Mirror const&) = delete;

   void onChange(Kiv::Change const&) override { feed.status_.changes += known ? 1 : 0; }

   Feed& feed;
   OfferedRoot root;
   Sarn::Ptr<Kiv::NamedEntity> mirror;
   /// Whether it has been complete once.
   bool known = false;
   /// On this connection; null before the server has offered it.
   Mount const* mount = nullptr;
};

struct Feed::Link {
   Link(int fd, Feed& feed)
         : connection(hub, fd, static_cast<Kiv::NboAttrLog::SessionListener*>(&feed)) {
      hub.clockIs(feed.options_.clock);
   }

   Kiv::NboAttrLog::Hub hub;
   Kiv::NboAttrLog::FdConnection connection;
};

Feed::Feed(Options options) : options_(std::move(options)), pause_(options_.pause) {
   connectAt_ = now();
   status_.since = Holt::wallNow();
   status_.reason = options_.socket + ": not connected yet";
}

Feed::~Feed() {
   listeners_.clear();
   link_.reset();
}

std::vector<Kiv::NamedEntity*> Feed::roots() const {
   std::vector<Kiv::NamedEntity*> all;
   for (auto const& mirror : mirrors_) {
      if (mirror->known) {
         all.push_back(mirror->mirror.get());
      }
   }
   return all;
}

void Feed::listenerAdd(Listener& listener) {
   listeners_.push_back(&listener);
   for (auto const& mirror : mirrors_) {
      if (mirror->known) {
         listener.onRoot(mirror->mirror);
      }
   }
}

void Feed::listenerDel(Listener& listener) noexcept {
   std::erase(listeners_, &listener);
}

//--- The connection -------------------------------------------------------------------------------

void Feed::connect() {
   try {
      link_ = std::make_unique<Link>(
            Holt::connectTo(options_.socket, std::chrono::milliseconds::zero()), *this);
   } catch (Holt::Failure const& failure) {
      lost(failure.what());
      return;
   }
   ++status_.connections;
   rootsKnown_ = false;
   asked_ = 0;
   probeAt_ = now();
   rootsAt_ = now();
}

void Feed::lost(Sarn::String const& reason) {
   for (auto const& mirror : mirrors_) {
      mirror->mount = nullptr;
   }
   link_.reset();
   connectAt_ = now() + pause_;
   pause_ = std::min(pause_ * 2, options_.longestPause);
   statusIs(false, reason);
}

/// Asks whether the server still answers, and what it offers.
void Feed::probe() {
   U64 const time = now();
   auto& session = link_->connection.session();
   if (time >= probeAt_ && asked_ == 0) {
      asked_ = time;
      session.syncIs(++token_);
   }
   if (time >= probeAt_) {
      probeAt_ = time + options_.probe;
   }
   if (time >= rootsAt_) {
      rootsAt_ = time + options_.rootsEvery;
      session.rootsAsk();
   }
}

Sarn::String Feed::whyNotCurrent() const {
   if (link_ == nullptr) {
      return status_.reason;
   }
   if (asked_ != 0 && now() - asked_ >= options_.silence) {
      return options_.socket + ": the server does not answer";
   }
   if (!rootsKnown_) {
      return options_.socket + ": connected; the server has not told its roots yet";
   }
   bool any = false;
   for (auto const& mirror : mirrors_) {
      Mount const* const mount = mirror->mount;
      if (isRefused(mount) || (status_.current && !mirror->known)) {
         continue;
      }
      if (mount == nullptr || !mount->complete()) {
         return Kiv::printable(mirror->root.name) + ": the mirror is not complete yet";
      }
      any = true;
   }
   // Whoever wants certain roots knows what it means if there are none.
   return any || options_.wanted
                ? ""
                : options_.socket + ": the server offers nothing that can be mirrored here";
}

std::vector<Sarn::String> Feed::leftOut() const {
   std::vector<Sarn::String> all = leftOut_;
   for (auto const& mirror : mirrors_) {
      if (isRefused(mirror->mount)) {
         all.push_back(Kiv::printable(mirror->root.name) +
                       ": the server refuses the mirror: " + mirror->mount->reason());
      }
   }
   return all;
}

void Feed::review() {
   Sarn::String const reason = whyNotCurrent();
   statusIs(reason.empty(), reason);
}

void Feed::statusIs(bool current, Sarn::String const& reason) {
   bool changed = current != status_.current;
   if (changed) {
      status_.since = Holt::wallNow();
   }
   status_.reason = reason;
   status_.current = current;
   if (current) {
      pause_ = options_.pause;
      U32 const pid = link_->connection.session().peer().pid;
      if (status_.start == 0 || (changed && pid != pid_)) {
         U64 const start = pid != 0 ? startOf(pid) : 0;
         status_.start = start != 0 ? start : status_.since;
         pid_ = pid;
         changed = true;
      }
   }
   if (changed) {
      auto const told = listeners_;
      for (Listener* const listener : told) {
         listener->onStatus(status_);
      }
   }
}

//--- Roots ----------------------------------------------------------------------------------------

void Feed::onRoots(Kiv::NboAttrLog::Session&, std::vector<OfferedRoot> const& roots) {
   rootsKnown_ = true;
   leftOut_.clear();
   for (OfferedRoot const& root : roots) {
      if (!options_.wanted || options_.wanted(root)) {
         mirror(root);
      }
   }
   std::vector<Mirror*> gone;
   for (auto const& mirror : mirrors_) {
      if (std::ranges::none_of(roots, [&mirror](OfferedRoot const& root) {
             return Holt::isSame(root, mirror->root);
          })) {
         gone.push_back(mirror.get());
      }
   }
   std::ranges::for_each(gone, [this](Mirror* mirror) { drop(*mirror); });
}

void Feed::mirror(OfferedRoot const& root) {
   auto at = std::ranges::find_if(
         mirrors_, [&root](auto const& mirror) { return Holt::isSame(mirror->root, root); });
   if (at == mirrors_.end()) {
      if (mirrors_.size() == mostMirrors) {
         leftOut_.push_back(Kiv::printable(root.name) + ": " + std::to_string(mostMirrors) +
                            " others are mirrored already");
         return;
      }
      try {
         at = mirrors_.insert(at, std::make_unique<Mirror>(*this, root));
      } catch (Holt::Failure const& failure) {
         leftOut_.push_back(Kiv::printable(root.name) + ": " + failure.what());
         return;
      }
   }
   if ((*at)->mount == nullptr) {
      (*at)->mount = &link_->connection.session().mountIs((*at)->mirror, Holt::MountMode::reader);
   }
}

void Feed::drop(Mirror& mirror) {
   if (mirror.known) {
      auto const told = listeners_;
      for (Listener* const listener : told) {
         listener->onRootGone(*mirror.mirror);
      }
   }
   std::erase_if(mirrors_, [&mirror](auto const& one) { return one.get() == &mirror; });
}

void Feed::onMount(Kiv::NboAttrLog::Session&, Mount& mount) {
   auto const at = std::ranges::find_if(
         mirrors_, [&mount](auto const& mirror) { return mirror->mirror.get() == &mount.root(); });
   if (at == mirrors_.end()) {
      return;
   }
   if (mount.state() == Mount::State::gone) {
      drop(**at);
   } else if (mount.complete() && !(*at)->known) {
      (*at)->known = true;
      auto const told = listeners_;
      for (Listener* const listener : told) {
         listener->onRoot((*at)->mirror);
      }
   }
}

void Feed::onSynced(Kiv::NboAttrLog::Session&, U32 token) {
   if (token == token_) {
      asked_ = 0;
   }
}

//--- The loop -------------------------------------------------------------------------------------

void Feed::appendTo(std::vector<pollfd>& polled) {
   if (link_ != nullptr) {
      link_->connection.flush();
      polled.push_back({link_->connection.fd(), link_->connection.events(), 0});
   }
}

U64 Feed::deadline() const {
   if (link_ == nullptr) {
      return connectAt_;
   }
   U64 first = std::min(probeAt_, rootsAt_);
   if (asked_ != 0 && status_.current) {
      first = std::min(first, asked_ + options_.silence);
   }
   U64 const expires = link_->hub.deadline();
   return expires != 0 ? std::min(first, expires) : first;
}

void Feed::onTurn(std::span<pollfd const> polled) {
   if (link_ == nullptr) {
      if (now() >= connectAt_) {
         connect();
      }
      if (link_ == nullptr) {
         return;
      }
   } else if (!polled.empty()) {
      link_->connection.onReady(polled[0].revents);
      link_->hub.expire();
   }
   if (link_->connection.done()) {
      lost(options_.socket + ": the connection is lost: " + link_->connection.closeReason());
      return;
   }
   probe();
   review();
}

}  // namespace Tools
