#include "Kiv/GenericIfImpl.h"

#include <algorithm>
#include <cstring>

namespace Kiv {
namespace GenericIfImpl {
namespace {

U8 wholeValueOp(TypeImpl const& type, void* result, void const* object, AttributeOp op,
                ValueRef other) {
   if (type.support == nullptr) {
      return statusRefused;
   }
   switch (op) {
      case AttributeOp::differsFromDefault:
         *static_cast<U8*>(result) = type.support->differsFromDefault(object) ? 1 : 0;
         return statusOk;
      case AttributeOp::isEq:
         if (!other.isA(type)) {
            throwTypeException(type.name);
         }
         *static_cast<U8*>(result) = type.support->isEq(object, other.address) ? 1 : 0;
         return statusOk;
      default:
         return statusRefused;
   }
}

U8 childOp(FieldDescriptor const& field, void* result, Entity& owner, AttributeOp op,
           ValueRef argument) {
   using Child = Sarn::Ptr<Entity>;
   switch (op) {
      case AttributeOp::read:
         std::construct_at(static_cast<Child*>(result), field.ops->child->get(owner));
         return statusOk;
      case AttributeOp::write: {
         auto const* const name = static_cast<Sarn::String const*>(argument.address);
         bool const named = field.has(FieldDescriptor::named);
         if (named && name == nullptr) {
            return statusRefused;
         }
         if (named && !argument.isA(typeOf<Sarn::String>())) {
            throwTypeException(typeOf<Sarn::String>().name);
         }
         std::construct_at(static_cast<Child*>(result),
                           field.ops->child->is(owner, named ? std::string_view(*name) : ""));
         return statusOk;
      }
      case AttributeOp::del:
         std::construct_at(static_cast<Child*>(result), field.ops->child->del(owner));
         return statusOk;
      default:
         return statusRefused;
   }
}

}  // namespace

U8 attributeOp(TypeImpl const& type, void* result, void* object, FieldDescriptor const* wanted,
               U8 code, ValueRef other, ValueRef argument) {
   auto const op = static_cast<AttributeOp>(code);
   if (wanted == nullptr) {
      return wholeValueOp(type, result, object, op, other);
   }
   if (wanted->fieldId == nameFieldId && type.named) {
      if (op != AttributeOp::name) {
         return statusRefused;
      }
      auto const& entity = static_cast<NamedEntity const&>(*static_cast<Entity const*>(object));
      std::construct_at(static_cast<Sarn::String*>(result), entity.nameString());
      return statusOk;
   }
   FieldDescriptor const* const field = type.field(wanted->fieldId);
   if (field == nullptr) {
      return statusUnknownField;
   }
   if (field->kind == MemberKind::child) {
      return childOp(*field, result, *static_cast<Entity*>(object), op, argument);
   }
   if (field->kind != MemberKind::single) {
      return statusRefused;
   }
   if (op == AttributeOp::read) {
      field->ops->read(object, result);
      return statusOk;
   }
   if (op == AttributeOp::write && field->ops->write != nullptr) {
      if (!argument.isA(*field->type)) {
         throwTypeException(field->type->name);
      }
      field->ops->write(object, argument.address);
      return statusOk;
   }
   return statusRefused;
}

FieldDescriptor const& collectionField(Entity const& object, FieldDescriptor const& wanted) {
   TypeImpl const& type = object.kivType();
   FieldDescriptor const* const field = type.field(wanted.fieldId);
   if (field == nullptr || field->ops == nullptr ||
       (field->ops->collection == nullptr && field->ops->queue == nullptr)) {
      throw TypeException(Sarn::String(type.name) + "." +
                          (field != nullptr ? field->name : std::to_string(wanted.fieldId)) +
                          " is not a collection");
   }
   return *field;
}

CollectionIterator* begin(Entity& object, FieldDescriptor const& wanted, IteratorStorage& storage) {
   AttrOps const& ops = *collectionField(object, wanted).ops;
   return ops.queue != nullptr ? ops.queue->iterator(object, storage)
                               : ops.collection->iterator(object, storage);
}

bool iterator(Entity& object, IteratorStorage& storage, FieldDescriptor const& field,
              IteratorOp op) {
   if (op == IteratorOp::begin) {
      return begin(object, field, storage)->valid();
   }
   collectionField(object, field);  // throws if it is not a collection: then there is no iterator
   auto* const at = std::launder(reinterpret_cast<CollectionIterator*>(storage.bytes));
   if (op == IteratorOp::destroy) {
      at->~CollectionIterator();
      return false;
   }
   if (op == IteratorOp::next) {
      at->next();
   }
   return at->valid();
}

void const* iterKey(FieldDescriptor const&, IteratorStorage& storage) {
   return std::launder(reinterpret_cast<CollectionIterator*>(storage.bytes))->key();
}

void const* iterObj(FieldDescriptor const&, IteratorStorage& storage) {
   return std::launder(reinterpret_cast<CollectionIterator*>(storage.bytes))->value();
}

bool iterDel(Entity& object, FieldDescriptor const& wanted, IteratorStorage& storage) {
   FieldDescriptor const& field = collectionField(object, wanted);
   void const* const key = iterKey(field, storage);
   if (QueueOps const* const queue = field.ops->queue) {
      return *static_cast<U32 const*>(key) == queue->frontSequence(object) && queue->deq(object);
   }
   return field.ops->collection->del(object, key);
}

}  // namespace GenericIfImpl

FieldDescriptor const* TypeImpl::field(std::string_view wanted) const noexcept {
   for (U16 i = 0; i != rowCount; ++i) {
      if (rows[i].kind != MemberKind::none && wanted == rows[i].name) {
         return &rows[i];
      }
   }
   return base != nullptr ? base->field(wanted) : nullptr;
}

bool TypeImpl::isA(TypeImpl const& other) const noexcept {
   for (TypeImpl const* at = this; at != nullptr; at = at->base) {
      if (at == &other) {
         return true;
      }
   }
   return moduleAt == nullptr && other.moduleAt == nullptr && std::strcmp(name, other.name) == 0;
}

bool TypeImpl::isCtorArg(AttributeId id) const noexcept {
   return std::find(ctorArgs.begin(), ctorArgs.end(), id) != ctorArgs.end();
}

bool ValueRef::isA(TypeImpl const& wanted) const noexcept {
   // Each library has its own objects for built-in types and optionals.
   return address != nullptr && (type == &wanted || std::strcmp(type->name, wanted.name) == 0);
}

void checkCtorArgs(std::string_view made, CtorArgs args, std::span<TypeImpl const* const> wanted) {
   if (args.size() != wanted.size()) {
      throwNewEntityArgsException(made, "takes " + std::to_string(wanted.size()) + ", was given " +
                                              std::to_string(args.size()));
   }
   for (std::size_t i = 0; i != args.size(); ++i) {
      if (!args[i].isA(*wanted[i])) {
         throwNewEntityArgsException(
               made, "argument " + std::to_string(i + 1) + " is a " + wanted[i]->name + ", not " +
                           (args[i].address != nullptr ? args[i].type->name : "nothing"));
      }
   }
}

void TypeImpl::genericIfConstructFromCtorArgs(void* dst, CtorArgs args) const {
   if (entity != nullptr) {
      std::construct_at(static_cast<Sarn::Ptr<Entity>*>(dst),
                        entity->genericIfConstructFromCtorArgs(args));
   } else {
      support->constructFromCtorArgs(dst, args);
   }
}

U8 TypeImpl::genericIfAttributeOp(void* result, void* object, FieldDescriptor const* wanted, U8 op,
                                  ValueRef other, ValueRef argument) const {
   return GenericIfImpl::attributeOp(*this, result, object, wanted, op, other, argument);
}

Sarn::String TypeImpl::genericIfStrRep(void const* value) const {
   Sarn::String out;
   values->genericIfStrRep(out, value);
   return out;
}

void TypeImpl::genericIfStrepToValue(void* dst, CharRange& text) const {
   values->genericIfStrepToValue(dst, text);
}

void AnyValue::read(void const* object, FieldDescriptor const& field) {
   field.ops->read(object, room());
   constructed();
}

Sarn::String attributeText(Entity const& entity, FieldDescriptor const& field) {
   AnyValue value(*field.type);
   value.read(&entity, field);
   return field.type->genericIfStrRep(value.get());
}

}  // namespace Kiv
