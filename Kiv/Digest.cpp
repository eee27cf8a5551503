#include "Kiv/Digest.h"

#include <algorithm>

#include "Kiv/AttrOps.h"
#include "Kiv/GenericIfImpl.h"
#include "Kiv/Hash128.h"
#include "Kiv/NboAttrLog.h"

namespace Kiv {

namespace {

constexpr char hexDigits[] = "0123456789abcdef";

/// Whether the attribute log mirrors the member: what is streamed, and what a constructor fixes.
bool isMirrored(FieldDescriptor const& field) noexcept {
   return field.ops != nullptr &&
          (field.has(FieldDescriptor::streamed) || field.has(FieldDescriptor::constant));
}

int valueOfDigit(char c) noexcept {
   if (c >= '0' && c <= '9') {
      return c - '0';
   }
   char const lower = static_cast<char>(c | 0x20);
   return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

Sarn::String Digest::text() const {
   Sarn::String text(32, '0');
   for (unsigned i = 0; i != 16; ++i) {
      text[i] = hexDigits[high >> (60 - 4 * i) & 15];
      text[16 + i] = hexDigits[low >> (60 - 4 * i) & 15];
   }
   return text;
}

std::optional<Digest> Digest::parse(std::string_view text) noexcept {
   if (text.size() != 32) {
      return std::nullopt;
   }
   Digest digest;
   for (std::size_t i = 0; i != 32; ++i) {
      int const digit = valueOfDigit(text[i]);
      if (digit < 0) {
         return std::nullopt;
      }
      U64& half = i < 16 ? digest.high : digest.low;
      half = half << 4 | static_cast<U64>(digit);
   }
   return digest;
}

class Digester::Hash : public Hash128 {
public:
   void addString(std::string_view v) noexcept {
      addU64(v.size());
      add(v.data(), v.size());
   }
   void addDigest(Digest const& digest) noexcept {
      addU64(digest.high);
      addU64(digest.low);
   }
   Digest digest() noexcept {
      Result const result = finish();
      return {result.first, result.second};
   }
};

/// Combines the digests of what has no order.
class Digester::Sum {
public:
   void add(Digest const& digest) noexcept {
      ++count_;
      total_.low += digest.low;
      total_.high += digest.high + (total_.low < digest.low ? 1 : 0);
   }
   /// Adds nothing to the hash if there was nothing to combine.
   void addTo(Hash& hash, FieldDescriptor const& field) const noexcept {
      if (count_ != 0) {
         hash.addU16(field.fieldId);
         hash.addU64(count_);
         hash.addDigest(total_);
      }
   }

private:
   U64 count_ = 0;
   Digest total_;
};

/// Adds what `write` writes, exactly `size` bytes.
template <class Write>
void Digester::addEncoded(Hash& hash, std::size_t size, Write const& write) {
   if (size <= Hash::roomSize) [[likely]] {
      NboAttrLog::Out out(hash.room(size), size);
      write(out);
      return;
   }
   scratch_.resize(std::max(size, scratch_.size()));
   NboAttrLog::Out out(scratch_.data(), size);
   write(out);
   hash.add(scratch_.data(), size);
}

/// Returns whether the entity has any children.
bool Digester::addOwn(Hash& hash, Entity const& entity) {
   bool anyChild = false;
   ++entities_;
   ++visited_;
   hash.addString(entity.kivType().name);
   if (Sarn::String const* const name = entityName(entity)) {
      hash.addString(*name);
   }
   forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
      if (!isMirrored(field)) {
         return;
      }
      AttrOps const& ops = *field.ops;
      if (field.kind == MemberKind::single) {
         std::size_t const size = ops.fixedSize != 0 ? ops.fixedSize : ops.encodedSize(entity);
         longest_ = std::max(longest_, size);
         hash.addU16(field.fieldId);
         addEncoded(hash, size, [&](NboAttrLog::Out& out) { ops.encode(entity, out); });
      } else if (field.kind == MemberKind::queue) {
         addQueue(hash, entity, field);
      } else if (field.kind == MemberKind::map || field.kind == MemberKind::ordered) {
         addElements(hash, entity, field);
      } else if (field.kind == MemberKind::child) {
         anyChild = anyChild || ops.child->get(entity) != nullptr;
      } else if (field.kind == MemberKind::children) {
         anyChild = anyChild || ops.collection->size(entity) != 0;
      }
   });
   return anyChild;
}

void Digester::addElements(Hash& hash, Entity const& entity, FieldDescriptor const& field) {
   CollectionOps const& ops = *field.ops->collection;
   if (ops.size(entity) == 0) {
      return;
   }
   Sum sum;
   for (CollectionCursor at(const_cast<Entity&>(entity), field); at->valid(); at->next()) {
      ++visited_;
      std::size_t const size = ops.elementSize(at->key(), at->value());
      longest_ = std::max(longest_, size);
      Hash element;
      addEncoded(element, size,
                 [&](NboAttrLog::Out& out) { ops.encodeElement(out, at->key(), at->value()); });
      sum.add(element.digest());
   }
   sum.addTo(hash, field);
}

void Digester::addQueue(Hash& hash, Entity const& entity, FieldDescriptor const& field) {
   QueueOps const& ops = *field.ops->queue;
   if (ops.size(entity) == 0) {
      return;
   }
   hash.addU16(field.fieldId);
   hash.addU64(ops.size(entity));
   for (CollectionCursor at(const_cast<Entity&>(entity), field); at->valid(); at->next()) {
      ++visited_;
      std::size_t const size = ops.elementSize(at->value());
      longest_ = std::max(longest_, sizeof(U32) + size);
      addEncoded(hash, size, [&](NboAttrLog::Out& out) { ops.encodeElement(out, at->value()); });
   }
}

/// Adds `of(child)` of every child for which it has a value.
template <class Of>
void Digester::addChildren(Hash& hash, Entity const& entity, Of const& of) {
   forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
      if (!isMirrored(field)) {
         return;
      }
      Sum sum;
      auto const addOne = [&](Entity const& child) {
         if (std::optional<Digest> const digest = of(child)) {
            sum.add(*digest);
         }
      };
      if (field.kind == MemberKind::child) {
         if (Entity const* const child = field.ops->child->get(entity)) {
            addOne(*child);
         }
      } else if (field.kind == MemberKind::children && field.ops->collection->size(entity) != 0) {
         CollectionCursor at(const_cast<Entity&>(entity), field);
         for (; at->valid() && !exceeded(); at->next()) {
            addOne(*at->child());
         }
      }
      sum.addTo(hash, field);
   });
}

/// Adds what cannot change during the life of a child, its key included.
void Digester::addIdentity(Hash& hash, Entity const& child) {
   if (Sarn::String const* const name = entityName(child)) {
      hash.addString(*name);
   }
   forEachCtorArg(child.kivType(), [&](FieldDescriptor const& field) {
      if (field.has(FieldDescriptor::constant) || field.has(FieldDescriptor::key)) {
         hash.addU16(field.fieldId);
         addEncoded(hash, field.ops->encodedSize(child),
                    [&](NboAttrLog::Out& out) { field.ops->encode(child, out); });
      }
   });
}

Digest Digester::own(Entity const& entity) {
   Hash hash;
   addOwn(hash, entity);
   return hash.digest();
}

Digest Digester::tree(Entity const& root) {
   Hash own;
   bool const anyChild = addOwn(own, root);
   Hash hash;
   hash.addDigest(own.digest());
   if (anyChild) {
      addChildren(hash, root, [this](Entity const& child) { return std::optional(tree(child)); });
   }
   return hash.digest();
}

std::optional<Digest> Digester::treeUpTo(Entity const& root, U64 most) {
   most_ = most < ~visited_ ? visited_ + most : ~U64(0);
   Digest const digest = tree(root);
   bool const whole = !exceeded();
   most_ = ~U64(0);
   return whole ? std::optional(digest) : std::nullopt;
}

Digest Digester::node(Entity const& entity, Counts counts, void* context) {
   Hash own;
   bool const anyChild = addOwn(own, entity);
   Hash hash;
   hash.addDigest(own.digest());
   if (!anyChild) {
      return hash.digest();
   }
   addChildren(hash, entity, [&](Entity const& child) -> std::optional<Digest> {
      if (counts != nullptr && !counts(context, child)) {
         return std::nullopt;
      }
      ++visited_;
      Hash identity;
      addIdentity(identity, child);
      return identity.digest();
   });
   return hash.digest();
}

Digest digest(Entity const& entity) {
   return Digester().own(entity);
}

Digest treeDigest(Entity const& root) {
   return Digester().tree(root);
}

}  // namespace Kiv
