// Rows as a live state.
#include <nlohmann/json.hpp>
#include <optional>
#include <unordered_map>

#include "Holt/Failure.h"
#include "Holt/State/Json.h"
#include "Holt/State/Key.h"
#include "Holt/State/Place.h"
#include "Holt/State/Values.h"
#include "Kiv/AttrOps.h"
#include "Kiv/Visit.h"
#include "tools/statedb/Snapshot.h"

namespace Statedb {

using Holt::Failure;
using Kiv::AnyValue;
using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

class Restorer {
public:
   Restorer(Kiv::NamedEntity& root, std::vector<RejectedRow>& rejected)
         : root_(Sarn::String(root.kivType().name) + "=" + root.nameString()), rejected_(rejected) {
      entities_[""] = &root;
   }

   void entity(EntityRow const& row) {
      trying(row.path, row.arguments, [&] {
         FieldDescriptor const& field = memberOf(row.parent, row.attribute);
         Entity& parent = *entities_.at(row.parent);
         Entity* made = nullptr;
         if (field.kind == MemberKind::child) {
            made = singleton(parent, field, row.name);
         } else if (field.kind == MemberKind::children) {
            made = inCollection(parent, field, row);
         }
         if (made == nullptr) {
            throw Failure("'" + row.attribute + "' holds no such entity");
         }
         entities_[row.path] = made;
      });
   }

   void value(ValueRow const& row) {
      trying(pathBelow(row.entity, row.attribute.c_str(), row.key), row.value, [&] {
         FieldDescriptor const& field = memberOf(row.entity, row.attribute);
         Entity& entity = *entities_.at(row.entity);
         Holt::Json const json = Holt::parseJson(row.value, "its value");
         switch (field.kind) {
            case MemberKind::single:
               single(entity, field, json);
               break;
            case MemberKind::child:
               if (json.is_null()) {
                  field.ops->child->del(entity);
               }
               break;
            case MemberKind::map:
            case MemberKind::ordered:
               element(entity, field, row.key, json);
               break;
            case MemberKind::queue:
               queue(entity, field, json);
               break;
            default:
               throw Failure("'" + row.attribute + "' has no values");
         }
      });
   }

private:
   template <class Do>
   void trying(std::string const& path, std::string const& value, Do&& doIt) {
      try {
         doIt();
      } catch (Failure const& failure) {
         rejected_.push_back({root_, path, value, failure.what()});
      } catch (Kiv::Exception const& refused) {
         rejected_.push_back({root_, path, value, refused.what()});
      }
   }

   FieldDescriptor const& memberOf(std::string const& entity, std::string const& attribute) {
      auto const at = entities_.find(entity);
      if (at == entities_.end()) {
         throw Failure(entity + " could not be restored");
      }
      Kiv::TypeImpl const& type = at->second->kivType();
      FieldDescriptor const* const field = type.field(std::string_view(attribute));
      if (field == nullptr) {
         throw Failure(Holt::unknownMember(type, attribute));
      }
      if (!isKept(*field)) {
         throw Failure("'" + attribute + "' of " + type.name + " cannot be set");
      }
      return *field;
   }

   static Entity* singleton(Entity& parent, FieldDescriptor const& field, std::string const& name) {
      Kiv::ChildOps const& ops = *field.ops->child;
      Entity const* const there = ops.get(parent);
      if (there != nullptr && field.has(FieldDescriptor::named) &&
          *Kiv::entityName(*there) != name) {
         ops.del(parent);
      }
      ops.is(parent, name);
      return ops.get(parent);
   }

   static Entity* inCollection(Entity& parent, FieldDescriptor const& field, EntityRow const& row) {
      AnyValue key(*field.keyType);
      Holt::parseKey(row.key, key);
      Holt::Json const arguments = Holt::parseJson(row.arguments, "its arguments");
      std::vector<std::unique_ptr<AnyValue>> values;
      std::vector<Kiv::ValueRef> args{key.ref()};
      forEachGivenMember(*field.type, [&](FieldDescriptor const& given) {
         auto const at = arguments.find(given.name);
         if (at == arguments.end()) {
            throw Failure(Sarn::String("cannot be created: '") + given.name + "' is missing");
         }
         values.push_back(std::make_unique<AnyValue>(*given.type));
         Holt::readJson(*at, *values.back());
         args.push_back(values.back()->ref());
      });
      field.ops->collection->childIs(parent, args);
      return field.ops->collection->findChild(parent, key.get());
   }

   static void single(Entity& entity, FieldDescriptor const& field, Holt::Json const& json) {
      AnyValue value(*field.type);
      Holt::readJson(json, value);
      try {
         field.ops->write(&entity, value.get());
      } catch (Kiv::RangeException const&) {
         Sarn::String const why = Holt::outOfBoundsText(field, value.ref());
         if (why.empty()) {
            throw;
         }
         throw Failure(why);
      }
   }

   static void element(Entity& entity, FieldDescriptor const& field, std::string const& keyText,
                       Holt::Json const& json) {
      AnyValue key(*field.keyType);
      Holt::parseKey(keyText, key);
      AnyValue value(*field.type);
      Holt::readJson(json, value);
      if (!Holt::hasOwnKey(field, key.ref(), value.ref())) {
         throw Failure("the value has a different key");
      }
      field.ops->collection->is(entity, key.get(), value.get());
   }

   static void queue(Entity& entity, FieldDescriptor const& field, Holt::Json const& json) {
      if (!json.is_array()) {
         throw Failure("a queue is a list of values");
      }
      std::vector<std::unique_ptr<AnyValue>> values;
      for (Holt::Json const& each : json) {
         values.push_back(std::make_unique<AnyValue>(*field.type));
         Holt::readJson(each, *values.back());
      }
      for (auto const& value : values) {
         field.ops->queue->enq(entity, value->get());
      }
   }

   std::string root_;
   std::vector<RejectedRow>& rejected_;
   std::unordered_map<std::string, Entity*> entities_;
};

}  // namespace

void restore(Kiv::NamedEntity& root, RootRows const& rows, std::vector<RejectedRow>& rejected) {
   Restorer restorer(root, rejected);
   for (EntityRow const& row : rows.entities) {
      restorer.entity(row);
   }
   for (ValueRow const& row : rows.values) {
      restorer.value(row);
   }
}

}  // namespace Statedb
