#include "tools/statedb/Snapshot.h"

#include <nlohmann/json.hpp>

#include "Holt/State/Json.h"
#include "Kiv/GenericIfImpl.h"
#include "Kiv/Path.h"
#include "Kiv/Visit.h"

namespace Statedb {

using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;

namespace {

std::string valueJson(Kiv::ValueRef value) {
   return Holt::jsonLine(Holt::jsonOf(value));
}

class Appender {
public:
   Appender(std::vector<RowChange>& out, S64 root) : out_(out), root_(root) {}

   void all(Entity const& entity, std::string const& path) {
      forEachField(entity.kivType(), [&](FieldDescriptor const& field) {
         if (isKept(field)) {
            member(entity, path, field);
         }
      });
   }

   void member(Entity const& entity, std::string const& path, FieldDescriptor const& field) {
      std::string const outer = std::exchange(path_, path);
      visitMember(entity, field, *this);
      path_ = outer;
   }

   void value(FieldDescriptor const& field, Kiv::ValueRef value) { put(field, {}, value); }
   void child(FieldDescriptor const& field, Entity const* child) {
      if (child != nullptr) {
         below(field, {}, *child);
      }
      put({path_, field.name, {}, child != nullptr ? "{}" : "null"});
   }
   void collection(FieldDescriptor const& field, Kiv::CollectionCursor& at) {
      for (; at->valid(); at->next()) {
         std::string const key = Kiv::keyText({*field.keyType, at->key()});
         if (Entity const* const child = at->child()) {
            below(field, key, *child);
         } else {
            put(field, key, {*field.type, at->value()});
         }
      }
   }
   void queue(FieldDescriptor const& field, Kiv::CollectionCursor& at, U32) {
      Holt::Json elements = Holt::Json::array();
      for (; at->valid(); at->next()) {
         elements.push_back(Holt::jsonOf({*field.type, at->value()}));
      }
      put({path_, field.name, {}, Holt::jsonLine(elements)});
   }

   void element(Entity const& entity, std::string const& path, FieldDescriptor const& field,
                void const* key) {
      path_ = path;
      Kiv::Present const now(entity, field, key);
      std::string const text = Kiv::keyText({*field.keyType, key});
      if (now.child() != nullptr) {
         below(field, text, *now.child());
      } else if (now) {
         put(field, text, now.value());
      }
   }

private:
   void put(FieldDescriptor const& field, std::string const& key, Kiv::ValueRef value) {
      put({path_, field.name, key, valueJson(value)});
   }
   void put(ValueRow row) {
      out_.push_back({RowChange::Kind::putValue, root_, {}, std::move(row)});
   }
   void below(FieldDescriptor const& field, std::string const& key, Entity const& child) {
      Holt::Json arguments = Holt::Json::object();
      forEachGivenMember(child.kivType(), [&](FieldDescriptor const& given) {
         arguments[given.name] = Holt::jsonOf(Kiv::Present(child, given).value());
      });
      Sarn::String const* const name = Kiv::entityName(child);
      std::string const path = pathBelow(path_, field.name, key);
      out_.push_back({RowChange::Kind::putEntity,
                      root_,
                      {path, path_, field.name, key, name != nullptr ? *name : "",
                       Holt::jsonLine(arguments)},
                      {}});
      std::string const outer = std::exchange(path_, path);
      all(child, path);
      path_ = outer;
   }

   std::vector<RowChange>& out_;
   S64 root_;
   /// Of the entity whose members are visited.
   std::string path_;
};

}  // namespace

bool isKept(FieldDescriptor const& field) {
   return field.ops != nullptr && field.has(FieldDescriptor::streamed) &&
          field.kind != MemberKind::operation && field.kind != MemberKind::none &&
          (field.kind != MemberKind::single ||
           (field.ops->write != nullptr && !field.has(FieldDescriptor::constant)));
}

std::string pathBelow(std::string const& entity, char const* attribute, std::string const& key) {
   std::string path = entity;
   path += entity.empty() ? "" : ".";
   path += attribute;
   return key.empty() ? path : path + "[" + key + "]";
}

std::string pathWithin(Kiv::NamedEntity const& root, Entity const& entity) {
   std::size_t const own = Kiv::entityPath(root).size();
   std::string const path = Kiv::entityPath(entity);
   return path.size() == own ? std::string() : path.substr(own + 1);
}

void appendMember(std::vector<RowChange>& out, S64 root, Entity const& entity,
                  std::string const& path, FieldDescriptor const& field, void const* key) {
   Appender appender(out, root);
   if (key != nullptr) {
      appender.element(entity, path, field, key);
   } else {
      appender.member(entity, path, field);
   }
}

RootRows rowsOf(Kiv::NamedEntity const& root) {
   std::vector<RowChange> changes;
   Appender(changes, 0).all(root, {});
   RootRows rows;
   for (RowChange& change : changes) {
      if (change.kind == RowChange::Kind::putEntity) {
         rows.entities.push_back(std::move(change.entity));
      } else {
         rows.values.push_back(std::move(change.value));
      }
   }
   return rows;
}

}  // namespace Statedb
