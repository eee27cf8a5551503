#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "Kiv/Entity.h"

/// Digests of entities: 128 bits that are equal for equal state, in every process and on every
/// machine, however the state has come about. Two states that differ have different digests, except
/// with a probability of 1 in 2^128. A digest finds accidents, not forgeries: the hash is
/// MurmurHash3 (x64, 128 bits, seed 0), which is not cryptographic.
///
///     if (Kiv::treeDigest(*config) != Kiv::treeDigest(*mirror)) { ... }
///
/// What counts is what the attribute log mirrors, bit by bit: 0.0 and -0.0 differ.
///
///     own  = hash ( type name, name if it has one, { id, value }
///                   { id, count, sum of hash ( key, value ) }      maps: in any order
///                   { id, count, values } )                       queues: in their order
///     tree = hash ( own, { id, count, sum of the children's trees } )
///
/// Members come in the order of their ids, values as in the attribute log. A collection, queue or
/// child that is empty or absent is left out. Local and derived members do not count, nor do the
/// sequence numbers of a queue: they depend on how many elements it once had.
namespace Kiv {

/// The digest of an entity or a tree.
struct Digest {
   U64 high = 0;
   U64 low = 0;

   friend bool operator==(Digest const&, Digest const&) = default;

   /// 32 hexadecimal digits, in lower case.
   Sarn::String text() const;
   /// No value unless `text` consists of 32 hexadecimal digits.
   static std::optional<Digest> parse(std::string_view text) noexcept;
};

/// The digest of the entity's attributes, constructor arguments, maps and queues, without its
/// children. O(size).
Digest digest(Entity const& entity);
/// The digest of the entity and of everything below it. O(size of the tree).
Digest treeDigest(Entity const& root);

/// Computes digests one after another. It keeps the memory that a value of more than 1 KiB needs,
/// and allocates nothing else. Throws std::bad_alloc if there is no memory for such a value.
class Digester {
public:
   /// Whether a child counts.
   using Counts = bool (*)(void* context, Entity const& child);

   Digest own(Entity const& entity);
   Digest tree(Entity const& root);
   /// The same; no value if the tree has more than `most` entities and elements of collections.
   std::optional<Digest> treeUpTo(Entity const& root, U64 most);
   /// The digest of the entity's own state and of which children it has: of their keys, names and
   /// constant arguments, but not of what is in them. `counts`: null if all children count.
   Digest node(Entity const& entity, Counts counts = nullptr, void* context = nullptr);

   /// The entities whose state was read so far.
   U64 entities() const noexcept { return entities_; }
   /// These, the elements of their collections and the children that were looked at: a measure of
   /// the time that it took.
   U64 visited() const noexcept { return visited_; }
   /// The longest value among them, with its key, in the bytes of its message in the attribute log.
   std::size_t longest() const noexcept { return longest_; }
   void forgetLongest() noexcept { longest_ = 0; }
   /// Forgets all of these.
   void restart() noexcept {
      entities_ = 0;
      visited_ = 0;
      longest_ = 0;
   }

private:
   class Sum;
   class Hash;

   bool addOwn(Hash& hash, Entity const& entity);
   void addElements(Hash& hash, Entity const& entity, FieldDescriptor const& field);
   void addQueue(Hash& hash, Entity const& entity, FieldDescriptor const& field);
   void addIdentity(Hash& hash, Entity const& child);
   template <class Of>
   void addChildren(Hash& hash, Entity const& entity, Of const& of);
   template <class Write>
   void addEncoded(Hash& hash, std::size_t size, Write const& write);
   bool exceeded() const noexcept { return visited_ > most_; }

   std::vector<U8> scratch_;
   U64 entities_ = 0;
   U64 visited_ = 0;
   U64 most_ = ~U64(0);
   std::size_t longest_ = 0;
};

}  // namespace Kiv
