#pragma once

#include <deque>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Holt/State/Path.h"
#include "tools/ptpexport/Events.h"
#include "tools/ptpexport/Http/Body.h"

namespace Ptpexport {

/// One reader of events: what it has still to be sent. See `Events`.
///
///     up to date     backlog_ empty or not, behind_ empty
///     behind         backlog_ full, then what is at the paths of behind_
///     far behind     backlog_ full, then "again"
class EventStream final : public Body {
public:
   /// A place and everything below it.
   struct Selected {
      Holt::OfferedRoot root;
      Sarn::String below;
   };
   using Message = std::shared_ptr<std::string const>;

   /// `selected`: empty for everything.
   EventStream(Events& events, std::vector<Selected> selected);
   ~EventStream() override;

   /// Whether it is to be sent a change.
   bool selects(Holt::OfferedRoot const& root, std::string_view path) const;
   /// A change that it selects. `isEntity`: whether an entity was created or deleted.
   void change(Holt::OfferedRoot const& root, Sarn::String const& path, bool isEntity,
               bool isDeleted, Message const& message);
   /// The state has become old, or is up to date again.
   void source();
   /// Another message that must not be lost.
   void tell(Message const& message);
   /// Time for a comment, if it has nothing else.
   void comment();

   std::size_t read(std::span<char> into) override;
   bool ended() const override { return false; }
   std::size_t heldBytes() const noexcept { return text_.size() + queued_ + behindBytes_; }

private:
   struct Behind {
      Holt::OfferedRoot const* root;
      Sarn::String path;
      /// Whether an entity there was deleted, even if there is another now.
      bool deleted;
   };

   bool isBehind() const { return far_ || !behind_.empty() || sourceDue_; }
   void enqueue(Message const& message);
   void remember(Holt::OfferedRoot const& root, Sarn::String const& path, bool isEntity,
                 bool isDeleted);
   void forgetBelow(Sarn::String const& path);
   std::list<Behind>::iterator forget(std::list<Behind>::iterator at);
   void render(std::size_t most);
   void renderBehind();
   void renderPlace(Behind const& behind);
   void ready();

   Events& events_;
   std::vector<Selected> selected_;
   /// Roots that paths of `behind_` begin with.
   std::list<Holt::OfferedRoot> roots_;
   std::deque<Message> backlog_;
   std::size_t queued_ = 0;
   /// In the order of their first change that was not kept.
   std::list<Behind> behind_;
   std::unordered_map<std::string_view, std::list<Behind>::iterator> places_;
   std::size_t behindBytes_ = 0;
   /// Changes that were not kept.
   U64 coalesced_ = 0;
   bool far_ = false;
   bool sourceDue_ = false;
   bool commentDue_ = false;
   /// What is rendered, and how much of that has been read.
   std::string text_;
   std::size_t sent_ = 0;
};

/// A server-sent message whose data is a line. `event`: its name, or null.
std::string eventText(char const* event, std::string const& line);

}  // namespace Ptpexport
