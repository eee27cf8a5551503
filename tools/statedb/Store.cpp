#include "tools/statedb/Store.h"

#include <algorithm>

#include "Holt/Times.h"

namespace Statedb {

Store::Store(Database& database, Options options) : options_(std::move(options)), disk_(database) {}

void Store::rootIs(Sarn::Ptr<Kiv::NamedEntity> const& root, S64 number) {
   recorders_.emplace_back(root, number);
}

bool Store::hasChanges() const noexcept {
   return std::any_of(recorders_.begin(), recorders_.end(),
                      [](Recorder const& recorder) { return recorder.hasChanges(); });
}

U64 Store::syncAsked() {
   if (options_.sync != Sync::always) {
      return 0;
   }
   return hasChanges() ? given_ + 1 : given_;
}

void Store::appendTo(std::vector<pollfd>& polled) {
   polled.push_back({disk_.fd(), POLLIN, 0});
}

U64 Store::deadline() const {
   if (!disk_.idle() || !hasChanges()) {
      return 0;
   }
   return options_.sync == Sync::always ? 1 : std::max<U64>(1, due_);
}

void Store::onTurn(std::span<pollfd const> polled) {
   if (polled[0].revents != 0) {
      hear();
   }
   if (disk_.idle() && hasChanges()) {
      U64 const now = Holt::steadyNow();
      if (options_.sync == Sync::always || now >= due_) {
         due_ = now + options_.interval;
         give();
      }
   }
   if (!failure_.empty() && server_ != nullptr && server_->awaitsConfirmation()) {
      server_->syncsRefused("not confirmed, since the disk fails: " + failure_ +
                            "; the change is served, and is kept once the disk works again");
   }
}

void Store::hear() {
   Disk::News const news = disk_.news();
   if (!news.failure.empty() && news.failure != failure_) {
      failure_ = news.failure;
      if (options_.onFailure) {
         options_.onFailure(failure_);
      }
   }
   if (!news.written) {
      return;
   }
   if (!failure_.empty()) {
      failure_.clear();
      if (options_.onFailure) {
         options_.onFailure({});
      }
   }
   confirm();
}

void Store::give() {
   Batch batch;
   batch.at = Holt::timeText(Holt::wallNow(), Holt::TimeForm::universal);
   for (Recorder& recorder : recorders_) {
      recorder.take(batch);
   }
   ++given_;
   if (!batch.changes.empty()) {
      disk_.give(std::move(batch));
   } else {  // all of it has been removed again
      confirm();
   }
}

void Store::confirm() {
   written_ = given_;
   if (server_ != nullptr) {
      server_->confirmedIs(written_);
   }
}

std::string Store::finish() {
   std::string failure = disk_.finish();
   hear();
   if (failure.empty() && hasChanges()) {
      give();
      failure = disk_.finish();
      hear();
   }
   return failure;
}

}  // namespace Statedb
