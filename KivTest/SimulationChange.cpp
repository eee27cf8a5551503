#include "KivTest/SimulationChange.h"

#include <algorithm>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "Kiv/Types.h"

namespace KivTest {

namespace {

using Kiv::AnyValue;
using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeImpl;

/// The key in such a value is replaced by that of the element in which it is stored.
std::string domainText(std::string const& domain) {
   return "Ptp::IntfDomainNumberInfo(portDSKey=Ptp::PortDSKey(intf=\"\", vlanId=none), "
          "activeRegionDomain=" +
          domain + ")";
}

std::string opaqueText(std::string const& content) {
   return "KivTest::Opaque(content=" + content + ")";
}

/// Text forms of values for types whose random bytes are seldom valid, or seldom different.
std::vector<std::string> const* textsOf(std::string_view type) {
   static std::map<std::string, std::vector<std::string>, std::less<>> const all = {
         {"bool", {"false", "true"}},
         // The two zeros are equal, so that setters take one for the other.
         {"double", {"0", "-0", "0", "-0", "1", "-2.5", "1e300", "inf", "nan"}},
         {"float", {"0", "-0", "0", "-0", "1", "-2.5", "1e30", "inf", "nan"}},
         {"Kiv::Seconds", {"0", "-0", "1", "2.5", "inf"}},
         {"KivTest::Opaque", {opaqueText("0"), opaqueText("-0"), opaqueText("1")}},
         {"Dorn::IntfId", {"\"\"", "Ethernet1", "Ethernet2", "Ethernet3/1", "Vlan7", "eth0"}},
         {"Ptp::PortDSKey",
          {"Ptp::PortDSKey(intf=\"\", vlanId=none)", "Ptp::PortDSKey(intf=Ethernet1, vlanId=none)",
           "Ptp::PortDSKey(intf=Ethernet1, vlanId=10)", "Ptp::PortDSKey(intf=Vlan7, vlanId=7)",
           "Ptp::PortDSKey(intf=Ethernet3/1, vlanId=4094)"}},
         {"Ptp::IntfDomainNumberInfo",
          {domainText("none"), domainText("0"), domainText("24"), domainText("255")}},
   };
   auto const found = all.find(type);
   return found == all.end() ? nullptr : &found->second;
}

std::vector<U8> encodedKey(FieldDescriptor const& field, void const* key) {
   Kiv::CollectionOps const& ops = *field.ops->collection;
   std::vector<U8> bytes(ops.keySize(key));
   Kiv::NboAttrLog::Out out(bytes.data(), bytes.size());
   ops.encodeKey(out, key);
   return bytes;
}

class Changer {
public:
   Changer(Chance& chance, ChangeBounds const& bounds) : chance_(chance), bounds_(bounds) {}

   void change(Entity& root) {
      std::vector<Entity*> all;
      gather(root, all);
      // The root has most of the members, but half of the changes are made below it.
      Entity& entity = chance_.oneIn(2) ? root : *all[chance_.below(all.size())];
      // Some types below it have one collection among many values; make sure that it is changed,
      // too.
      bool const valuesToo = &entity == &root || !chance_.oneIn(3);
      std::vector<FieldDescriptor const*> fields;
      Kiv::forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
         if (field.ops != nullptr && !field.has(FieldDescriptor::constant) &&
             (valuesToo || field.kind != MemberKind::single)) {
            fields.push_back(&field);
         }
      });
      if (!fields.empty()) {
         Sarn::Ptr<Entity> const keep(&entity);  // an observer may remove it
         change(entity, *fields[chance_.below(fields.size())]);
      }
   }

private:
   static void gather(Entity& entity, std::vector<Entity*>& all) {
      all.push_back(&entity);
      for (Entity* const child : childrenInOrder(entity)) {
         gather(*child, all);
      }
   }

   /// Bytes that are often a valid encoding of something small.
   std::vector<U8> bytes(std::size_t size) {
      std::vector<U8> all(size);
      for (U8& byte : all) {
         switch (chance_.below(8)) {
            case 0:
               byte = static_cast<U8>(chance_.below(256));
               break;
            case 1:
            case 2:
               byte = static_cast<U8>(chance_.below(5));
               break;
            default:
               byte = 0;
         }
      }
      return all;
   }

   /// Fills `value` with a random value of its type, or with the default if random bytes are not
   /// valid.
   void draw(AnyValue& value) {
      TypeImpl const& type = value.type();
      if (bounds_.text != 0 && type.kind == Kiv::TypeKind::string && chance_.oneIn(3)) {
         new (value.room()) Sarn::String(1 + chance_.below(bounds_.text),
                                         static_cast<char>('a' + chance_.below(26)));
         value.constructed();
         return;
      }
      if (std::vector<std::string> const* const texts = textsOf(type.name)) {
         std::string const& text = (*texts)[chance_.below(texts->size())];
         Kiv::CharRange range(text);
         type.genericIfStrepToValue(value.room(), range);
         value.constructed();
         return;
      }
      for (int attempt = 0; attempt != 8; ++attempt) {
         std::vector<U8> const encoded = bytes(64);
         Kiv::NboAttrLog::In in(encoded.data(), encoded.data() + encoded.size());
         try {
            type.support->decode(value.room(), in);
            value.constructed();
            return;
         } catch (Kiv::Exception const&) {
         }
      }
      type.support->construct(value.room());
      value.constructed();
   }

   /// The key of an existing element, or sometimes a random key.
   void drawKey(Entity& entity, FieldDescriptor const& field, AnyValue& key) {
      Kiv::CollectionOps const& ops = *field.ops->collection;
      std::size_t const size = ops.size(entity);
      if (size == 0 || (size < bounds_.elements && chance_.oneIn(3))) {
         draw(key);
         return;
      }
      std::vector<std::vector<U8>> keys;
      Kiv::IteratorStorage storage;
      Kiv::CollectionIterator* const at = ops.iterator(entity, storage);
      for (; at->valid(); at->next()) {
         keys.push_back(encodedKey(field, at->key()));
      }
      at->~CollectionIterator();
      auto const drawn = keys.begin() + static_cast<std::ptrdiff_t>(chance_.below(keys.size()));
      std::nth_element(keys.begin(), drawn, keys.end());
      Kiv::NboAttrLog::In in(drawn->data(), drawn->data() + drawn->size());
      field.keyType->support->decode(key.room(), in);
      key.constructed();
   }

   void change(Entity& entity, FieldDescriptor const& field) {
      try {
         switch (field.kind) {
            case MemberKind::single:
               changeSingle(entity, field);
               break;
            case MemberKind::child:
               changeChild(entity, field);
               break;
            case MemberKind::children:
            case MemberKind::map:
            case MemberKind::ordered:
               changeCollection(entity, field);
               break;
            case MemberKind::queue:
               changeQueue(entity, field);
               break;
            case MemberKind::none:
            case MemberKind::operation:
               break;
         }
      } catch (Kiv::RangeException const&) {
      }
   }

   void changeSingle(Entity& entity, FieldDescriptor const& field) {
      if (field.ops->write != nullptr) {
         AnyValue value(*field.type);
         draw(value);
         field.ops->write(&entity, value.get());
      }
   }

   void changeChild(Entity& entity, FieldDescriptor const& field) {
      static constexpr char const* names[] = {"one", "two", ""};
      if (chance_.oneIn(2)) {
         field.ops->child->del(entity);
      }
      if (!chance_.oneIn(3)) {
         field.ops->child->is(entity, names[chance_.below(std::size(names))]);
      }
   }

   void changeCollection(Entity& entity, FieldDescriptor const& field) {
      Kiv::CollectionOps const& ops = *field.ops->collection;
      if (chance_.oneIn(16)) {
         ops.delAll(entity);
         return;
      }
      // A large collection grows in jumps.
      bool const jumps = bounds_.elements > 6 && chance_.oneIn(8);
      for (std::size_t left = jumps ? chance_.below(bounds_.elements) : 0; left != 0; --left) {
         changeElement(entity, field);
      }
      changeElement(entity, field);
   }

   void changeElement(Entity& entity, FieldDescriptor const& field) {
      Kiv::CollectionOps const& ops = *field.ops->collection;
      AnyValue key(*field.keyType);
      drawKey(entity, field, key);
      std::size_t const action = chance_.below(8);
      if (action < 2) {
         ops.del(entity, key.get());
      } else if (field.kind == MemberKind::children) {
         if (action == 2) {
            ops.del(entity, key.get());
         }
         create(entity, field, key.get());
      } else {
         AnyValue value(*field.type);
         draw(value);
         ops.is(entity, key.get(), value.get());
      }
   }

   /// Creates a child through a creation message, in which the constructor's arguments are untyped.
   /// A child with different constant arguments is replaced.
   void create(Entity& entity, FieldDescriptor const& field, void const* key) {
      Kiv::CollectionOps const& ops = *field.ops->collection;
      std::vector<U8> message = encodedKey(field, key);
      std::size_t const arguments = argumentsSize(field, message);
      for (std::size_t left = arguments; left != 0; --left) {
         message.push_back(static_cast<U8>(chance_.below(2)));
      }
      Kiv::NboAttrLog::In in(message.data(), message.data() + message.size());
      struct : Kiv::CreationReceiver {
         void found(Kiv::Entity&) override {}
         bool wanted(void const*) override { return true; }
      } receiver;
      ops.applyCreate(entity, in, nullptr, receiver);
   }

   /// The size of a child's arguments after its key. It is fixed, and found by trial.
   static std::size_t argumentsSize(FieldDescriptor const& field, std::vector<U8> message) {
      static std::map<FieldDescriptor const*, std::size_t> sizes;
      auto const known = sizes.find(&field);
      if (known != sizes.end()) {
         return known->second;
      }
      for (std::size_t size = 0;; ++size, message.push_back(0)) {
         Kiv::NboAttrLog::In in(message.data(), message.data() + message.size());
         try {
            field.type->entity->stream->newEntityForAttrLog(in);
            return sizes[&field] = size;
         } catch (Kiv::NboAttrLog::FaultException const&) {
         }
      }
   }

   void changeQueue(Entity& entity, FieldDescriptor const& field) {
      Kiv::QueueOps const& queue = *field.ops->queue;
      if (chance_.oneIn(12)) {
         queue.delAll(entity);
      } else if (chance_.oneIn(3)) {
         queue.deq(entity);
      } else {
         for (std::size_t left = 1 + chance_.below(3); left != 0; --left) {
            AnyValue value(*field.type);
            draw(value);
            queue.enq(entity, value.get());
         }
         while (queue.size(entity) > bounds_.elements) {
            queue.deq(entity);
         }
      }
   }

   Chance& chance_;
   ChangeBounds bounds_;
};

}  // namespace

std::vector<Entity*> childrenInOrder(Entity const& entity) {
   std::vector<std::tuple<Kiv::AttributeId, std::vector<U8>, Entity*>> keyed;
   Kiv::forEachChild(entity, [&](Entity& child, FieldDescriptor const& field, void const* key) {
      keyed.emplace_back(field.fieldId, key != nullptr ? encodedKey(field, key) : std::vector<U8>(),
                         &child);
   });
   std::sort(keyed.begin(), keyed.end());
   std::vector<Entity*> children;
   for (auto const& child : keyed) {
      children.push_back(std::get<Entity*>(child));
   }
   return children;
}

void changeAtRandom(Entity& root, Chance& chance, ChangeBounds const& bounds) {
   Changer(chance, bounds).change(root);
}

}  // namespace KivTest
