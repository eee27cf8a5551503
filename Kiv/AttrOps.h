#pragma once

#include "Kiv/Entity.h"

/// The operations of the generic interface and the stream on one attribute: function pointers that
/// `Kiv/Glue/MemberOps.h` instantiates for each member. An entry that does not apply to a kind of
/// member is null. Objects are entities, or values where the member is a field of a value type.
namespace Kiv {

/// An iterator of a collection that stays valid whatever happens to the collection: it skips
/// elements that are erased, and meets each one that is there throughout exactly once. Lives in an
/// `IteratorStorage`.
class CollectionIterator {
public:
   virtual ~CollectionIterator() = default;
   virtual bool valid() = 0;
   virtual void next() = 0;
   /// The current element's key. REQUIRES: valid().
   virtual void const* key() = 0;
   /// The current value; for child entities, the `Entity`.
   virtual void const* value() = 0;
   virtual Entity* child() { return nullptr; }
};

/// The outcome of writing a dirty key.
enum class DirtyKeyResult : U8 {
   /// Drop the key and continue.
   written,
   /// Drop the key and stop: something else comes first.
   writtenAndStop,
   /// Keep the key and stop.
   full,
   /// Only the removal of the former element was written: keep the key and stop.
   erased,
};

/// Keys of one collection whose changes a connection has still to be sent.
class DirtyKeys {
public:
   virtual ~DirtyKeys() = default;
   /// `erased`: the key's former element was removed since the key was last sent.
   virtual void insert(void const* key, bool erased) = 0;
   virtual void remove(void const* key) = 0;
   virtual bool has(void const* key) const = 0;
   virtual std::size_t size() const = 0;
   /// Calls `write(context, key, erased)` for one key after another, in the set's order, and treats
   /// each key as the result says. Returns whether the set is empty at the end.
   virtual bool flush(void* context,
                      DirtyKeyResult (*write)(void* context, void const* key, bool erased)) = 0;
};

/// Decides about a received creation of a child, and is given the child.
class CreationReceiver {
public:
   /// Gets a child that exists already, before an observer can change it.
   virtual void found(Entity& child) = 0;
   /// Whether a missing child is to be created. `key`: null for a singleton child.
   virtual bool wanted(void const* key) = 0;

protected:
   ~CreationReceiver() = default;
};

struct CollectionOps {
   std::size_t (*size)(Entity const& owner);
   /// The value of a key, or null; for child entities, the `Entity`.
   void const* (*find)(Entity const& owner, void const* key);
   Entity* (*findChild)(Entity const& owner, void const* key);
   /// Sets the key's value through the setter. If the value contains its key, `key` is ignored.
   void (*is)(Entity& owner, void const* key, void const* value);
   /// Creates or finds a child through the setter. `args`: the key and the constructor arguments.
   /// Throws `NewEntityArgsException` for arguments of the wrong kind or number.
   Sarn::Ptr<Entity> (*childIs)(Entity& owner, CtorArgs args);
   /// The types of those arguments.
   TypeImpl const* const* childArgTypes;
   std::size_t childArgCount;
   /// Removes through the setter; false if the key was absent.
   bool (*del)(Entity& owner, void const* key);
   void (*delAll)(Entity& owner);
   /// Builds an iterator at the first element.
   CollectionIterator* (*iterator)(Entity& owner, IteratorStorage& storage);
   /// A set of dirty keys; the caller owns it.
   DirtyKeys* (*newDirtyKeys)();

   // The attribute log.
   std::size_t (*keySize)(void const* key);
   void (*encodeKey)(NboAttrLog::Out& out, void const* key);
   /// For an insertion or update: key and value, or only the value if it contains the key.
   std::size_t (*elementSize)(void const* key, void const* value);
   void (*encodeElement)(NboAttrLog::Out& out, void const* key, void const* value);
   /// Applies a received insertion or update; adds the key to `seen`, if not null.
   void (*applyElement)(Entity& owner, NboAttrLog::In& in, DirtyKeys* seen);
   /// Applies a received deletion and removes the key from `seen`, if not null. Puts a removed
   /// child into `removed` before it is published, so that it is known even if an observer throws.
   void (*applyDelete)(Entity& owner, NboAttrLog::In& in, DirtyKeys* seen,
                       Sarn::Ptr<Entity>& removed);
   /// Creates or finds the child that a received creation names; null if it is missing and the
   /// receiver does not want it. An existing child is first given to `receiver.found`; one with
   /// other constant arguments is then replaced. If an observer throws, the receiver gets the child
   /// that is there then.
   Sarn::Ptr<Entity> (*applyCreate)(Entity& owner, NboAttrLog::In& in, DirtyKeys* seen,
                                    CreationReceiver& receiver);
   /// Removes every element whose key is not in `seen` at the moment of its removal.
   void (*delUnseen)(Entity& owner, DirtyKeys const& seen);
};

struct ChildOps {
   Entity* (*get)(Entity const& owner);
   /// Creates or finds it through the setter; `name` is used only for a named child.
   Sarn::Ptr<Entity> (*is)(Entity& owner, std::string_view name);
   /// Removes it through the setter; null if there was none.
   Sarn::Ptr<Entity> (*del)(Entity& owner);
};

struct QueueOps {
   std::size_t (*size)(Entity const& owner);
   U32 (*frontSequence)(Entity const& owner);
   /// The number that the next element gets.
   U32 (*nextSequence)(Entity const& owner);
   /// The element with that number. REQUIRES: it is in the queue.
   void const* (*at)(Entity const& owner, U32 sequence);
   void (*enq)(Entity& owner, void const* value);
   bool (*deq)(Entity& owner);
   void (*delAll)(Entity& owner);
   /// Builds an iterator at the first element; its keys are the sequence numbers, as U32.
   CollectionIterator* (*iterator)(Entity& owner, IteratorStorage& storage);
   std::size_t (*elementSize)(void const* value);
   void (*encodeElement)(NboAttrLog::Out& out, void const* value);
   /// Reads an element and appends it under the given number, dropping earlier elements that would
   /// not be in sequence. If observers append meanwhile, it gets the next number instead.
   void (*applyEnq)(Entity& owner, U32 sequence, NboAttrLog::In& in);
   /// Drops the elements before `sequence`; if that empties the queue, it continues with this
   /// number.
   void (*applyFront)(Entity& owner, U32 sequence);
};

struct AttrOps {
   /// Op 0: copy-constructs the value in raw storage; for a child, a `Sarn::Ptr<Entity>`.
   void (*read)(void const* object, void* result);
   /// Op 1: runs the setter.
   void (*write)(void* object, void const* value);

   // Single values in the attribute log.
   /// The encoded size if it is the same for every value, else 0.
   std::size_t fixedSize;
   std::size_t (*encodedSize)(Entity const& entity);
   void (*encode)(Entity const& entity, NboAttrLog::Out& out);
   /// Decodes the complete value, then calls the setter.
   void (*apply)(Entity& entity, NboAttrLog::In& in);

   ChildOps const* child;
   CollectionOps const* collection;
   QueueOps const* queue;
};

}  // namespace Kiv
