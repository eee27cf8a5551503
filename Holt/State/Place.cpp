#include "Holt/State/Place.h"

#include "Holt/Failure.h"
#include "Holt/Nearest.h"
#include "Holt/State/Key.h"

namespace Holt {

using Kiv::AnyValue;
using Kiv::Entity;
using Kiv::FieldDescriptor;
using Kiv::MemberKind;
using Kiv::TypeImpl;

Sarn::String unknownMember(TypeImpl const& type, Sarn::String const& name) {
   std::vector<std::string_view> members;
   forEachField(type, [&](FieldDescriptor const& field) { members.emplace_back(field.name); });
   return Sarn::String(type.name) + " has no attribute '" + name + "'" + didYouMean(name, members);
}

namespace {

/// Reads the field `fields[0]` of the value at `object`, then the next one within it.
void readInside(void const* object, std::span<FieldDescriptor const* const> fields,
                AnyValue& value) {
   if (fields.size() == 1) {
      value.read(object, *fields[0]);
      return;
   }
   AnyValue outer(*fields[0]->type);
   outer.read(object, *fields[0]);
   readInside(outer.get(), fields.subspan(1), value);
}

/// Writes a field within a value: reads the value around it, changes that, and writes it back.
void writeInside(void* object, std::span<FieldDescriptor const* const> fields,
                 AnyValue const& value) {
   FieldDescriptor const& field = *fields[0];
   if (field.ops->write == nullptr) {
      throw Failure(Sarn::String(field.name) + " is read-only");
   }
   if (fields.size() == 1) {
      field.ops->write(object, value.get());
      return;
   }
   AnyValue inner(*field.type);
   inner.read(object, field);
   writeInside(const_cast<void*>(inner.get()), fields.subspan(1), value);
   field.ops->write(object, inner.get());
}

}  // namespace

/// A failure whose message already has the path.
struct Place::Placed : Failure {
   using Failure::Failure;
};

void Place::fail(std::string_view what) const {
   throw Placed(path_ + ": " + Sarn::String(what));
}

/// Runs what a setter may refuse, and puts the path before its message.
template <class Do>
void Place::refusing(Do&& doIt) const {
   try {
      doIt();
   } catch (Placed const&) {
      throw;
   } catch (Failure const& error) {
      fail(error.what());
   } catch (Kiv::Exception const& error) {
      fail(error.what());
   }
}

Place::Place(Sarn::Ptr<Entity> const& root, Sarn::String const& rootName,
             std::vector<PathStep> const& steps)
      : owner_(root), path_(rootName), ownerPath_(rootName) {
   for (std::size_t i = 0; i != steps.size(); ++i) {
      step(steps[i], i + 1 == steps.size());
   }
}

void Place::step(PathStep const& step, bool last) {
   bool const inValue = field_ != nullptr;
   TypeImpl const& type = !inValue          ? owner_->kivType()
                          : inside_.empty() ? *field_->type
                                            : *inside_.back()->type;
   FieldDescriptor const* const field = type.field(std::string_view(step.name));
   if (field == nullptr) {
      fail(unknownMember(type, step.name));
   }
   if (!inValue) {
      ownerPath_ = path_;
   }
   path_ += '.';
   path_ += field->name;
   if (inValue) {
      if (step.key) {
         fail("a field takes no key");
      }
      inside_.push_back(field);
      return;
   }
   if (field->kind == MemberKind::operation) {
      fail("is an operation; it has no value");
   }
   field_ = field;
   keyIs(step);
   if (!last && field->type->kind == Kiv::TypeKind::entity) {
      descend();
   } else if (!last && field->keyType != nullptr && key_ == nullptr) {
      fail("is a collection; a key in brackets is missing");
   }
}

void Place::keyIs(PathStep const& step) {
   key_.reset();
   if (!step.key) {
      return;
   }
   if (field_->keyType == nullptr) {
      fail("is not a collection; it takes no key");
   }
   if (hasWildcard(*step.key)) {
      fail("'" + *step.key +
           "' fits several keys, but one is needed; a '*' that belongs to a key stands in double "
           "quotes");
   }
   auto key = std::make_unique<AnyValue>(*field_->keyType);
   refusing([&] { parseKey(*step.key, *key); });
   key_ = std::move(key);
   path_ += "[" + keyText(key_->ref()) + "]";
}

void Place::descend() {
   if (field_->kind == MemberKind::children && key_ == nullptr) {
      fail("is a collection; a key in brackets is missing");
   }
   Entity* const next = entity();
   if (next == nullptr) {
      fail("does not exist");
   }
   owner_ = Sarn::Ptr<Entity>(next);
   field_ = nullptr;
   key_.reset();
}

Entity* Place::entity() const {
   if (field_ == nullptr) {
      return owner_.get();
   }
   return present().child();
}

bool Place::exists() const {
   return isCollection() || (leadsToEntity() ? entity() != nullptr : static_cast<bool>(present()));
}

bool Place::leadsToEntity() const noexcept {
   return field_ == nullptr || (field_->type->kind == Kiv::TypeKind::entity && !isCollection());
}

bool Place::isCollection() const noexcept {
   return field_ != nullptr && field_->keyType != nullptr && key_ == nullptr;
}

/// What is here now, ignoring fields within a value. REQUIRES: not the root.
Kiv::Present Place::present() const {
   return {*owner_, *field_, key().address};
}

/// Reads the value here, ignoring fields within it.
void Place::read(AnyValue& value) const {
   Kiv::Present const now = present();
   if (!now) {
      fail("does not exist");
   }
   value.copy(now.value().address);
}

Sarn::String Place::text() const {
   return valueText(*value());
}

std::unique_ptr<AnyValue> Place::value() const {
   if (field_ == nullptr || field_->type->kind == Kiv::TypeKind::entity) {
      fail("does not exist");
   }
   auto value = std::make_unique<AnyValue>(*field_->type);
   read(*value);
   if (!inside_.empty()) {
      auto inner = std::make_unique<AnyValue>(*inside_.back()->type);
      readInside(value->get(), inside_, *inner);
      value = std::move(inner);
   }
   return value;
}

void Place::checkStreamed() const {
   if (!field_->has(FieldDescriptor::streamed)) {
      fail("is not streamed to the server; only the process that holds the state can set it");
   }
}

void Place::write(AnyValue const& value) {
   if (field_->kind == MemberKind::single) {
      if (field_->ops->write == nullptr) {
         fail("is read-only");
      }
      checkStreamed();
      try {
         field_->ops->write(owner_.get(), value.get());
      } catch (Kiv::RangeException const&) {
         Sarn::String const why = outOfBoundsText(*field_, value.ref());
         if (why.empty()) {
            throw;
         }
         fail(why);
      }
   } else {
      checkStreamed();
      if (!hasOwnKey(*field_, key(), value.ref())) {
         fail("the value " + valueText(value) + " has a different key");
      }
      field_->ops->collection->is(*owner_, key_->get(), value.get());
   }
}

void Place::checkSettable() const {
   if (field_ == nullptr || field_->type->kind == Kiv::TypeKind::entity) {
      fail("is an entity; 'add' creates one, 'del' removes it, 'set' sets its attributes");
   }
   if (field_->kind == MemberKind::queue) {
      fail("is a queue; 'add' appends to it, 'del' takes its front");
   }
   if (isCollection()) {
      fail("is a collection; a key in brackets is missing");
   }
}

void Place::set(std::string_view text) {
   checkSettable();
   refusing([&] {
      AnyValue value(inside_.empty() ? *field_->type : *inside_.back()->type);
      parseValue(text, value);
      set(value);
   });
}

void Place::set(AnyValue const& value) {
   checkSettable();
   refusing([&] {
      if (inside_.empty()) {
         write(value);
         return;
      }
      AnyValue outer(*field_->type);
      read(outer);
      writeInside(const_cast<void*>(outer.get()), inside_, value);
      write(outer);
   });
}

void Place::add(std::span<Sarn::String const> args) {
   if (field_ == nullptr || field_->kind == MemberKind::single || !inside_.empty()) {
      fail("cannot be added; 'set' sets a value");
   }
   checkStreamed();
   if (field_->kind == MemberKind::child) {
      addChild(args);
   } else {
      addToCollection(args);
   }
}

void Place::addChild(std::span<Sarn::String const> args) {
   bool const named = field_->has(FieldDescriptor::named);
   if (args.size() != (named ? 1U : 0U)) {
      fail(named ? "takes one argument, its name" : "takes no arguments");
   }
   refusing([&] { field_->ops->child->is(*owner_, named ? std::string_view(args[0]) : ""); });
}

void Place::addToCollection(std::span<Sarn::String const> args) {
   if (field_->kind == MemberKind::children) {
      if (key_ == nullptr) {
         fail("is a collection; a key in brackets is missing");
      }
      Kiv::CollectionOps const& ops = *field_->ops->collection;
      if (args.size() + 1 != ops.childArgCount) {
         Sarn::String const wanted = childArgsText(*field_);
         fail(wanted.empty() ? "takes no arguments" : "takes these arguments: " + wanted);
      }
      refusing([&] {
         std::vector<std::unique_ptr<AnyValue>> values;
         std::vector<Kiv::ValueRef> all{key_->ref()};
         for (std::size_t i = 0; i != args.size(); ++i) {
            values.push_back(std::make_unique<AnyValue>(*ops.childArgTypes[i + 1]));
            parseValue(args[i], *values.back());
            all.push_back(values.back()->ref());
         }
         ops.childIs(*owner_, all);
      });
      return;
   }
   if (args.size() != 1) {
      fail("takes one argument, the value");
   }
   if (field_->kind != MemberKind::queue) {
      set(args[0]);
      return;
   }
   if (key_ != nullptr) {
      fail("is a place in a queue; append to the queue itself");
   }
   refusing([&] {
      AnyValue value(*field_->type);
      parseValue(args[0], value);
      field_->ops->queue->enq(*owner_, value.get());
   });
}

void Place::del() {
   if (field_ == nullptr) {
      fail("is a root, which only the server can withdraw");
   }
   if (field_->kind == MemberKind::single) {
      fail("is an attribute, which always has a value; 'set' changes it");
   }
   if (!inside_.empty()) {
      fail("is a field, which always has a value; 'set' changes it");
   }
   checkStreamed();
   if (field_->kind == MemberKind::child) {
      if (!field_->ops->child->del(*owner_)) {
         fail("does not exist");
      }
      return;
   }
   if (field_->kind != MemberKind::queue) {
      if (key_ == nullptr) {
         field_->ops->collection->delAll(*owner_);
      } else if (!field_->ops->collection->del(*owner_, key_->get())) {
         fail("does not exist");
      }
      return;
   }
   Kiv::QueueOps const& queue = *field_->ops->queue;
   if (key_ == nullptr) {
      queue.delAll(*owner_);
   } else if (!present()) {
      fail("does not exist");
   } else if (*static_cast<U32 const*>(key_->get()) != queue.frontSequence(*owner_)) {
      fail("is not the queue's front, which is " + std::to_string(queue.frontSequence(*owner_)));
   } else {
      queue.deq(*owner_);
   }
}

bool hasOwnKey(FieldDescriptor const& field, Kiv::ValueRef key, Kiv::ValueRef value) {
   FieldDescriptor const* const inner = field.keyField();
   if (inner == nullptr) {
      return true;
   }
   AnyValue own(*inner->type);
   own.read(value.address, *inner);
   return inner->type->support->isEq(own.get(), key.address);
}

namespace {

/// A key as `keyText` writes it; a pattern as it is.
Sarn::String destinationKey(FieldDescriptor const& field, Sarn::String const& text,
                            Sarn::String const& path) {
   if (hasWildcard(text)) {
      return text;
   }
   AnyValue key(*field.keyType);
   try {
      parseKey(text, key);
   } catch (Failure const& error) {
      throw Failure(path + ": " + error.what());
   }
   return keyText(key.ref());
}

}  // namespace

Destination destinationOf(TypeImpl const& rootType, Path const& path) {
   Destination to{path.root.name, &rootType};
   for (PathStep const& step : path.steps) {
      FieldDescriptor const* const field = to.type->field(std::string_view(step.name));
      if (field == nullptr || field->type == nullptr || field->kind == MemberKind::operation) {
         throw Failure(to.path + ": " + unknownMember(*to.type, step.name));
      }
      if (to.field != nullptr && to.field->keyType != nullptr && !to.keyed) {
         throw Failure(to.path + ": is a collection; a key in brackets is missing");
      }
      to.inside = to.type->kind != Kiv::TypeKind::entity;
      to.path += "." + step.name;
      if (!to.inside) {
         to.field = field;
         to.keyed = step.key.has_value();
      }
      if (step.key) {
         if (field->keyType == nullptr) {
            throw Failure(to.path + ": is not a collection; it takes no key");
         }
         to.path += "[" + destinationKey(*field, *step.key, to.path) + "]";
      }
      to.type = field->type;
   }
   return to;
}

Sarn::String childArgsText(FieldDescriptor const& field) {
   Sarn::String text;
   forEachGivenMember(*field.type, [&](FieldDescriptor const& member) {
      text +=
            (text.empty() ? "" : ", ") + Sarn::String(member.name) + " (" + member.type->name + ")";
   });
   return text;
}

}  // namespace Holt
