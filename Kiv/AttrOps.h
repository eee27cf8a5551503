#pragma once

#include "Kiv/Entity.h"

/// What the generic interface and the stream can do with one attribute, by function pointers that
/// `Kiv/Glue/MemberOps.h` instantiates for each member. An entry that a kind of member does not
/// have is null. Objects are entities, or values where the member is a value type's field.
namespace Kiv {

/// A collection's iterator that stays valid whatever happens to the collection: an element that is
/// erased is skipped, one that is there throughout is met exactly once. Lives in an
/// `IteratorStorage`.
class CollectionIterator {
public:
   virtual ~CollectionIterator() = default;
   virtual bool valid() = 0;
   virtual void next() = 0;
   /// The current element's key. REQUIRES: valid().
   virtual void const* key() = 0;
   /// The current value, or for child entities the `Entity`.
   virtual void const* value() = 0;
   virtual Entity* child() { return nullptr; }
};

/// What became of a dirty key that was to be written.
enum class DirtyKeyResult : U8 {
   /// Drop it, go on.
   written,
   /// Drop it, something else comes first.
   writtenAndStop,
   /// Keep it, stop.
   full,
   /// Only that its former element is gone is written: keep the key, stop.
   erased,
};

/// Keys of one collection that a connection has still to be told of.
class DirtyKeys {
public:
   virtual ~DirtyKeys() = default;
   /// `erased`: the key's former element was removed since the reader was last told.
   virtual void insert(void const* key, bool erased) = 0;
   virtual void remove(void const* key) = 0;
   virtual bool has(void const* key) const = 0;
   virtual std::size_t size() const = 0;
   /// Calls `write(context, key, erased)` for key after key, in the set's order, and does with
   /// each key as it says. Returns whether the set is empty at the end.
   virtual bool flush(void* context,
                      DirtyKeyResult (*write)(void* context, void const* key, bool erased)) = 0;
};

/// Whoever receives the creation of a child.
class CreationReceiver {
public:
   /// The child that is there already, before an observer can change it.
   virtual void found(Entity& child) = 0;
   /// Whether a child that is not there is to be created. `key`: null for a singleton child.
   virtual bool wanted(void const* key) = 0;

protected:
   ~CreationReceiver() = default;
};

struct CollectionOps {
   std::size_t (*size)(Entity const& owner);
   /// The value of a key, or null; for child entities the `Entity`.
   void const* (*find)(Entity const& owner, void const* key);
   Entity* (*findChild)(Entity const& owner, void const* key);
   /// Sets the key's value through the setter; the key of a value that contains it is ignored.
   void (*is)(Entity& owner, void const* key, void const* value);
   /// Creates or finds a child through the setter; `args`: the key and the constructor arguments.
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
   /// Of an insertion or update: key and value, or the value alone when it contains the key.
   std::size_t (*elementSize)(void const* key, void const* value);
   void (*encodeElement)(NboAttrLog::Out& out, void const* key, void const* value);
   /// Applies a received insertion or update; `seen`, if not null, is told of the key.
   void (*applyElement)(Entity& owner, NboAttrLog::In& in, DirtyKeys* seen);
   /// Applies a received deletion. A child that is removed is put into `removed` before anybody is
   /// told, so that it is known also when an observer throws. `seen`, if not null, loses the key.
   void (*applyDelete)(Entity& owner, NboAttrLog::In& in, DirtyKeys* seen,
                       Sarn::Ptr<Entity>& removed);
   /// Creates or finds the child that a received creation names; null if there is none and the
   /// receiver does not want it. An existing child is first given to `receiver.found`; one with
   /// other constant arguments is then replaced. When an observer throws, the receiver is given
   /// what is there by then.
   Sarn::Ptr<Entity> (*applyCreate)(Entity& owner, NboAttrLog::In& in, DirtyKeys* seen,
                                    CreationReceiver& receiver);
   /// Removes every element whose key is not in `seen` when its turn comes.
   void (*delUnseen)(Entity& owner, DirtyKeys const& seen);
};

struct ChildOps {
   Entity* (*get)(Entity const& owner);
   /// Creates or finds it through the setter; `name` only where the child is named.
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
   /// Reads an element and appends it under the given number, dropping what would not be in
   /// sequence before it; under the next number if observers append while this is dropped.
   void (*applyEnq)(Entity& owner, U32 sequence, NboAttrLog::In& in);
   /// Drops the elements before `sequence`; an emptied queue goes on with that number.
   void (*applyFront)(Entity& owner, U32 sequence);
};

struct AttrOps {
   /// Op 0: copy-constructs the value in raw storage; for a child a `Sarn::Ptr<Entity>`.
   void (*read)(void const* object, void* result);
   /// Op 1: the setter's steps.
   void (*write)(void* object, void const* value);

   // Single values in the attribute log.
   /// The encoded size where it is the same for every value, else 0.
   std::size_t fixedSize;
   std::size_t (*encodedSize)(Entity const& entity);
   void (*encode)(Entity const& entity, NboAttrLog::Out& out);
   /// Decodes the whole value, then goes through the setter.
   void (*apply)(Entity& entity, NboAttrLog::In& in);

   ChildOps const* child;
   CollectionOps const* collection;
   QueueOps const* queue;
};

}  // namespace Kiv
