#include "KivTest/SimulationTree.h"

#include <algorithm>

#include "Kiv/AttrOps.h"
#include "Kiv/Path.h"
#include "Kiv/Types.h"

namespace KivTest {

namespace {

using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

/// Iterates over a collection; the iterator lives as long as the scope.
class Walk {
public:
   Walk(Entity& owner, FieldDescriptor const& field)
         : at_(field.ops->collection->iterator(owner, storage_)) {}
   ~Walk() { at_->~CollectionIterator(); }
   Walk(Walk const&) = delete;
   Walk& operator=(Walk const&) = delete;

   Kiv::CollectionIterator* operator->() { return at_; }

private:
   Kiv::IteratorStorage storage_;
   Kiv::CollectionIterator* at_;
};

class Comparison {
public:
   explicit Comparison(std::vector<FieldDescriptor const*> const& ignored) : ignored_(ignored) {}

   /// Empty, or the first difference.
   std::string entities(Entity& expected, Entity& actual) {
      if (&expected.kivType() != &actual.kivType()) {
         return path(expected) + ": " + actual.kivType().name + ", not " + expected.kivType().name;
      }
      std::string difference;
      Kiv::forEachField(expected.kivType(), [&](FieldDescriptor const& field) {
         bool const ignored = std::find(ignored_.begin(), ignored_.end(), &field) != ignored_.end();
         if (difference.empty() && !ignored) {
            difference = members(expected, actual, field);
         }
      });
      return difference;
   }

private:
   static std::string path(Entity& entity) { return Kiv::entityPath(entity); }
   static std::string path(Entity& entity, FieldDescriptor const& field) {
      return path(entity) + "." + field.name;
   }
   static std::string path(Entity& entity, FieldDescriptor const& field, void const* key) {
      return path(entity, field) + "[" + Kiv::keyText({*field.keyType, key}) + "]";
   }
   static std::string differs(std::string const& where, std::string const& expected,
                              std::string const& actual) {
      return where + ": " + actual + ", not " + expected;
   }

   static std::vector<U8> encoded(Kiv::TypeImpl const& type, void const* value) {
      std::vector<U8> bytes(type.support->encodedSize(value));
      Kiv::NboAttrLog::Out out(bytes.data(), bytes.size());
      type.support->encode(out, value);
      return bytes;
   }

   /// Whether the values are identical in a dump: NaNs are, although they compare unequal; the two
   /// zeros are not, although they compare equal.
   static bool alike(Kiv::TypeImpl const& type, void const* a, void const* b) {
      return type.support->isEq(a, b) ? encoded(type, a) == encoded(type, b)
                                      : type.genericIfStrRep(a) == type.genericIfStrRep(b);
   }

   std::string members(Entity& expected, Entity& actual, FieldDescriptor const& field) {
      // Constant members are sent when the entity is created.
      bool const travels = field.has(FieldDescriptor::streamed) ||
                           (field.has(FieldDescriptor::constant) && field.ops != nullptr);
      if (!travels) {
         return {};
      }
      switch (field.kind) {
         case MemberKind::single:
            return values(expected, actual, field);
         case MemberKind::child:
            return children(expected, actual, field);
         case MemberKind::children:
         case MemberKind::map:
         case MemberKind::ordered:
            return collections(expected, actual, field);
         case MemberKind::queue:
            return queues(expected, actual, field);
         case MemberKind::none:
         case MemberKind::operation:
            break;
      }
      return {};
   }

   static std::string values(Entity& expected, Entity& actual, FieldDescriptor const& field) {
      Kiv::AnyValue a(*field.type);
      Kiv::AnyValue b(*field.type);
      field.ops->read(&expected, a.room());
      a.constructed();
      field.ops->read(&actual, b.room());
      b.constructed();
      if (alike(*field.type, a.get(), b.get())) {
         return {};
      }
      return differs(path(expected, field), field.type->genericIfStrRep(a.get()),
                     field.type->genericIfStrRep(b.get()));
   }

   std::string children(Entity& expected, Entity& actual, FieldDescriptor const& field) {
      Entity* const a = field.ops->child->get(expected);
      Entity* const b = field.ops->child->get(actual);
      if (a == nullptr || b == nullptr) {
         return a == b ? std::string()
                       : differs(path(expected, field), a != nullptr ? "there" : "absent",
                                 b != nullptr ? "there" : "absent");
      }
      Sarn::String const* const name = Kiv::entityName(*a);
      if (name != nullptr && *name != *Kiv::entityName(*b)) {
         return differs(path(expected, field), *name, *Kiv::entityName(*b));
      }
      return entities(*a, *b);
   }

   std::string collections(Entity& expected, Entity& actual, FieldDescriptor const& field) {
      Kiv::CollectionOps const& ops = *field.ops->collection;
      for (Walk at(actual, field); at->valid(); at->next()) {
         if (ops.find(expected, at->key()) == nullptr) {
            return path(actual, field, at->key()) + ": there, not absent";
         }
      }
      for (Walk at(expected, field); at->valid(); at->next()) {
         void const* const b = ops.find(actual, at->key());
         if (b == nullptr) {
            return path(expected, field, at->key()) + ": absent, not there";
         }
         if (field.kind == MemberKind::children) {
            std::string difference = entities(*at->child(), *ops.findChild(actual, at->key()));
            if (!difference.empty()) {
               return difference;
            }
         } else if (!alike(*field.type, at->value(), b)) {
            return differs(path(expected, field, at->key()),
                           field.type->genericIfStrRep(at->value()),
                           field.type->genericIfStrRep(b));
         }
      }
      return {};
   }

   static std::string queues(Entity& expected, Entity& actual, FieldDescriptor const& field) {
      Kiv::QueueOps const& queue = *field.ops->queue;
      U32 const front = queue.frontSequence(expected);
      U32 const next = queue.nextSequence(expected);
      if (front != queue.frontSequence(actual) || next != queue.nextSequence(actual)) {
         auto const range = [&](Entity& entity) {
            return "from " + std::to_string(queue.frontSequence(entity)) + " up to " +
                   std::to_string(queue.nextSequence(entity));
         };
         return differs(path(expected, field), range(expected), range(actual));
      }
      for (U32 sequence = front; sequence != next; ++sequence) {
         if (!alike(*field.type, queue.at(expected, sequence), queue.at(actual, sequence))) {
            return differs(path(expected, field) + "[" + std::to_string(sequence) + "]",
                           field.type->genericIfStrRep(queue.at(expected, sequence)),
                           field.type->genericIfStrRep(queue.at(actual, sequence)));
         }
      }
      return {};
   }

   std::vector<FieldDescriptor const*> const& ignored_;
};

}  // namespace

std::string firstDifference(Entity& expected, Entity& actual,
                            std::vector<FieldDescriptor const*> const& ignored) {
   return Comparison(ignored).entities(expected, actual);
}

std::size_t entityCount(Entity& root) {
   std::size_t count = 1;
   Kiv::forEachChild(root, [&](Entity& child, FieldDescriptor const&, void const*) {
      count += entityCount(child);
   });
   return count;
}

}  // namespace KivTest
