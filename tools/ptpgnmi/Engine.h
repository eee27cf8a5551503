// What the server knows and whom it serves, without gRPC.
#pragma once

#include <map>
#include <memory>

#include "Holt/Loop.h"
#include "tools/ptpgnmi/OwnModel.h"
#include "tools/ptpgnmi/Subscriber.h"

namespace Ptpgnmi {

/// The trees over the mirrored roots, and the subscribers. A source of a loop: it sends what is due
/// before each wait.
///
/// Threads: that of the loop, which owns the roots.
class Engine final : public Holt::Source {
public:
   /// `clock`: that of the loop. Nanoseconds.
   explicit Engine(Limits const& limits, U64 (*clock)() noexcept = &Holt::steadyNow);
   ~Engine();

   /// Adds a root to all trees, or removes it.
   void rootIs(Sarn::Ptr<Kiv::NamedEntity> const& root);
   void rootDel(Kiv::NamedEntity const& root);
   /// Whether the roots are complete. Until they are for the first time, requests are refused as
   /// unavailable, for a reason.
   void readyIs(bool ready, std::string const& why = {});

   /// Answers a `gnmi.GetRequest` with a `gnmi.GetResponse`. Throws `Refusal`.
   std::string get(std::string_view request);
   /// A `gnmi.CapabilityResponse`.
   std::string capabilities() const;

   // What happens to a stream.

   void opened(std::shared_ptr<Stream> const& stream);
   /// A `gnmi.SubscribeRequest` has come.
   void received(Stream& stream, std::string_view request);
   /// The client will say nothing more.
   void closed(Stream& stream);
   void written(Stream& stream);
   /// The call has ended.
   void gone(Stream& stream);

   std::size_t subscribers() const noexcept { return calls_.size(); }
   /// Bytes that are kept for subscribers.
   std::size_t subscriberBytes() const noexcept;

   // `Source`:
   void appendTo(std::vector<pollfd>& polled) override;
   U64 deadline() const override;
   void onTurn(std::span<pollfd const>) override {}

private:
   struct Call {
      std::shared_ptr<Stream> stream;
      /// Null until the first request.
      std::unique_ptr<Subscriber> subscriber;
      U64 opened;
   };

   void checkReady() const;
   Tree& treeOf(std::string const& origin);
   std::string notification(Asked const& asked, GetQuery const& query, std::size_t room);
   void refuse(Stream& stream, Refusal const& refusal);

   Limits limits_;
   U64 (*clock_)() noexcept;
   std::vector<std::unique_ptr<Model>> models_;
   std::vector<std::unique_ptr<Tree>> trees_;
   std::map<Stream*, Call> calls_;
   bool ready_ = false;
   std::string why_ = "the source has not been reached yet";
};

}  // namespace Ptpgnmi
