// The leaves of a state that somebody subscribes to, and who.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>

#include "Kiv/AnyValue.h"
#include "Kiv/Entity.h"
#include "tools/ptpgnmi/Model.h"

namespace Ptpgnmi {

/// The number of a leaf in its tree; used again when the leaf is gone.
using LeafId = U32;

/// Is told what happens to the leaves of one `Interest`. Called inside setters: it only takes note.
class Watch {
public:
   virtual void onAdded(LeafId leaf) = 0;
   virtual void onChanged(LeafId leaf) = 0;
   /// The leaf is gone, and its number means nothing more.
   virtual void onRemoved(LeafId leaf) = 0;
   /// Everything at this path is gone. `path`: a `gnmi.Path`, encoded.
   virtual void onDeleted(std::string const& path) = 0;

protected:
   ~Watch() = default;
};

/// The leaves that a pattern leads to. All who subscribe to the same pattern share one.
struct Interest {
   explicit Interest(Elems const& elems) : pattern(elems) {}

   Pattern pattern;
   std::vector<Watch*> watches;
   /// In the order in which they came; may contain leaves that are gone if `isStale`.
   std::vector<LeafId> leaves;
   bool isStale = false;
   /// How many hold it.
   std::size_t holders = 0;
};

/// One tree of paths over all mirrored roots. It observes each root once, whatever the number of
/// subscribers, and knows only what one of them subscribes to: a change there is a lookup, and a
/// call of each `Watch`. The encoded form of a leaf is made when the first subscriber needs it, and
/// serves all until the value changes.
///
///     root -- change --> Tree -- entity, attribute --> Group --> Leaf --> Interest --> Watch ...
///                                                                 |
///                                              encoded path and value, by encoding
///
/// Threads: that of the roots.
class Tree final : private Kiv::Observer {
public:
   explicit Tree(Model const& model) : model_(model) {}
   ~Tree();
   Tree(Tree const&) = delete;
   Tree& operator=(Tree const&) = delete;

   Model const& model() const noexcept { return model_; }

   /// Adds a root; subscribers are told of what they want of it.
   void rootIs(Sarn::Ptr<Kiv::NamedEntity> const& root);
   /// Removes a root; subscribers are told that it is gone.
   void rootDel(Kiv::NamedEntity const& root);
   std::vector<Kiv::NamedEntity const*> roots() const;

   /// The interest in a pattern, made if it is new. Each call is matched by one of `release`.
   Interest& interest(Elems const& pattern);
   void release(Interest& interest);
   /// Its leaves.
   std::vector<LeafId> const& leavesOf(Interest& interest);

   /// `path` and `val` of a `gnmi.Update`, encoded. Valid until the next change or call.
   std::string const& update(LeafId leaf, Encoding encoding);
   /// How many leaves there have ever been at once: all `LeafId`s are less.
   std::size_t leafCount() const noexcept { return leaves_.size(); }

   /// Visits what a pattern leads to, whether or not anybody subscribes: each leaf with its
   /// elements, and how many of them lead to the place that the pattern names.
   using Visit = std::function<void(Elems const& path, std::size_t named, Value const& value)>;
   void walk(Pattern const& pattern, Visit const& visit) const;

private:
   struct Group;
   struct Rec;
   using MemberKey = std::pair<Kiv::AttributeId, std::string>;

   struct Slot {
      /// Below the member.
      Elems below;
      LeafId leaf;
   };
   static constexpr LeafId noLeaf = ~LeafId{0};

   /// A value of an entity, and its leaves.
   struct Group {
      Rec* rec;
      Kiv::FieldDescriptor const* field;
      /// Of an element of a collection; else null.
      std::unique_ptr<Kiv::AnyValue> key;
      std::vector<Slot> slots;
      bool varies;
   };
   /// An entity of which something is wanted.
   struct Rec {
      Sarn::Ptr<Kiv::Entity> entity;
      Elems path;
      std::vector<std::pair<Interest*, Pattern::State>> states;
      /// By attribute and key.
      std::map<MemberKey, std::unique_ptr<Rec>> children;
      std::map<MemberKey, Group> elements;
      std::map<Kiv::AttributeId, Group> singles;
   };
   struct Leaf {
      /// Null if the number is free.
      Group* group = nullptr;
      std::string path;
      std::vector<Interest*> interests;
      /// By encoding; empty if it has to be made.
      std::array<std::string, 3> updates;
   };
   class Walker;

   void onChange(Kiv::Change const& change) override;
   void reconcile(Rec& rec, Kiv::FieldDescriptor const& field, void const* key);
   void reconcileValue(Rec& rec, Kiv::FieldDescriptor const& field, Kiv::ValueRef key,
                       MemberKey const& at, Kiv::ValueRef value);
   void reconcileChild(Rec& rec, Kiv::FieldDescriptor const& field, Kiv::ValueRef key,
                       MemberKey const& at, Kiv::Entity* child);
   Group* groupOf(Rec& rec, MemberKey const& at);
   void coverValue(Rec& rec, Kiv::FieldDescriptor const& field, Kiv::ValueRef key,
                   Kiv::ValueRef value, Interest& interest, Pattern::State state);
   void coverChild(Rec& rec, Kiv::FieldDescriptor const& field, Kiv::ValueRef key,
                   Kiv::Entity const& child, Interest& interest, Pattern::State state);
   void cover(Rec& rec, Interest& interest, Pattern::State state);
   void coverRoot(Sarn::Ptr<Kiv::NamedEntity> const& root, Interest& interest);
   void wants(Group& group, Slot& slot, Elems const& memberPath, Interest& interest);
   void changed(Group const& group);
   void forget(Rec& rec, std::vector<std::pair<Interest*, Pattern::State>> const& told);
   void forget(Group const& group, std::vector<std::pair<Interest*, Pattern::State>> const& told);
   void removed(Rec& rec);
   void encode(Group const& group, Encoding encoding);

   Model const& model_;
   std::vector<Sarn::Ptr<Kiv::NamedEntity>> roots_;
   std::map<Kiv::Entity const*, std::unique_ptr<Rec>> rootRecs_;
   std::unordered_map<Kiv::Entity const*, Rec*> recs_;
   std::map<Elems, std::unique_ptr<Interest>> interests_;
   std::vector<Leaf> leaves_;
   std::vector<LeafId> free_;
};

}  // namespace Ptpgnmi
