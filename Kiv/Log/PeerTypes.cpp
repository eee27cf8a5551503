#include "Kiv/Log/PeerTypes.h"

#include <algorithm>
#include <cstdio>

#include "Kiv/AnyValue.h"
#include "Kiv/GenericIfImpl.h"
#include "Kiv/Path.h"
#include "Kiv/Printable.h"

namespace Kiv::NboAttrLog {
namespace {

/// A module has no more types than this: the table of their names is that short.
constexpr U32 mostTypes = 4096;

Sarn::String hex(U32 v) {
   char text[16];
   std::snprintf(text, sizeof text, "%x", v);
   return text;
}

TypeImpl const& typeAt(KivModule const& module, U32 at) noexcept {
   return *module.data->types[at];
}

/// Calls `visit` for the member of `parent` that holds the child.
template <class Visit>
void forEachChildField(Entity const& parent, Entity const& child, Visit&& visit) {
   FieldDescriptor const* const keyField = child.kivType().key();
   forEachField(parent.kivType(), [&](FieldDescriptor const& field) {
      Entity const* held = nullptr;
      if (field.kind == MemberKind::child) {
         held = field.ops->child->get(parent);
      } else if (field.kind == MemberKind::children && keyField != nullptr &&
                 std::string_view(field.keyType->name) == keyField->type->name) {
         AnyValue key(*keyField->type);
         key.read(&child, *keyField);
         held = field.ops->collection->findChild(parent, key.get());
      }
      if (held == &child) {
         visit(field);
      }
   });
}

}  // namespace

void PeerTypes::moduleDiffers(KivModule const& ours, U32 theirHash) {
   auto const known = std::any_of(modules_.begin(), modules_.end(),
                                  [&](Differing const& one) { return one.ours == &ours; });
   if (!known) {
      modules_.push_back({&ours, theirHash});
   }
}

Sarn::String PeerTypes::hashes(Differing const& module) {
   return Sarn::String("module ") + module.ours->name() + " has hash " + hex(module.theirHash) +
          " at the peer, " + hex(module.ours->hash()) + " here";
}

Sarn::String PeerTypes::missing() const {
   auto const first = std::find_if(modules_.begin(), modules_.end(),
                                   [](Differing const& one) { return one.left != 0; });
   return hashes(*first);
}

// Our types

bool PeerTypes::write(Outbox& outbox) {
   for (Differing& module : modules_) {
      // A module without types is one message without a type.
      U32 const count = std::max(module.ours->typeCount, U32(1));
      for (; module.written != count; ++module.written) {
         if (!writeOne(outbox, module)) {
            return false;
         }
      }
   }
   return true;
}

bool PeerTypes::writeOne(Outbox& outbox, Differing& module) {
   KivModule const& ours = *module.ours;
   bool const none = ours.typeCount == 0;
   TypeImpl const* const type = none ? nullptr : &typeAt(ours, module.written);
   std::string_view const name = none ? std::string_view() : type->name;
   std::string_view const moduleName = ours.name();
   std::size_t const size =
         4 + moduleName.size() + 4 + 4 + name.size() + (none ? 0 : schemaSize(*type));
   return outbox.write(Opcode::types, size, 0, 0, [&](Out& out) {
      out.writeString(moduleName);
      out.writeU32(none ? 0 : ours.typeCount - module.written - 1);
      out.writeString(name);
      if (!none) {
         encodeSchema(out, *type);
      }
   });
}

// The peer's types

Sarn::String PeerTypes::take(In& in) {
   std::string_view const moduleName = in.nextValidString(longestName);
   auto const at = std::find_if(modules_.begin(), modules_.end(), [&](Differing const& one) {
      return one.left != 0 && moduleName == one.ours->name();
   });
   if (at == modules_.end()) {
      in.fault("no types of module " + printable(Sarn::String(moduleName)) + " are expected");
   }
   Differing& module = *at;
   U32 const left = in.nextU32();
   if (left >= mostTypes) {
      in.fault(
            std::to_string(left) + " more types exceed the bound of " + std::to_string(mostTypes),
            4);
   }
   if (module.left != unknown && left != module.left - 1) {
      in.fault(std::to_string(left) + " types follow, not " + std::to_string(module.left - 1), 4);
   }
   std::string_view const name = in.nextValidString(longestName);
   if (name.empty() && left == 0 && module.left == unknown) {
      in.expectEnd();  // the peer's module has no types
   } else if (name.empty()) {
      in.fault("a type has no name");
   } else if (name <= module.last) {
      in.fault("type " + printable(Sarn::String(name)) + " follows " + printable(module.last));
   }
   passTo(module, name);
   if (module.passed != module.ours->typeCount &&
       name == typeAt(*module.ours, module.passed).name) {
      TypeImpl const& type = typeAt(*module.ours, module.passed++);
      SchemaDifference difference = compareSchema(in, type);
      if (!difference.conflict.empty()) {
         return hashes(module) + ": " + difference.conflict;
      }
      add(type, std::move(difference));
   } else if (!name.empty()) {
      skipSchema(in);
   }
   module.last = name;
   module.left = left;
   if (left == 0) {
      ++complete_;
      for (; module.passed != module.ours->typeCount; ++module.passed) {
         names_.emplace_back(typeAt(*module.ours, module.passed).name);
      }
   }
   return {};
}

/// Notes our types before `name` that the peer has left out.
void PeerTypes::passTo(Differing& module, std::string_view name) {
   while (module.passed != module.ours->typeCount &&
          typeAt(*module.ours, module.passed).name < name) {
      names_.emplace_back(typeAt(*module.ours, module.passed++).name);
   }
}

void PeerTypes::add(TypeImpl const& type, SchemaDifference&& difference) {
   for (FieldDescriptor const* const field : difference.lacking) {
      names_.push_back(Sarn::String(type.name) + "." + field->name);
   }
   lacking_.insert(lacking_.end(), difference.lacking.begin(), difference.lacking.end());
   std::sort(lacking_.begin(), lacking_.end());
   narrower_.insert(narrower_.end(), difference.narrower.begin(), difference.narrower.end());
}

// What is not sent

bool PeerTypes::lacks(FieldDescriptor const& field) const noexcept {
   return std::binary_search(lacking_.begin(), lacking_.end(), &field);
}

bool PeerTypes::lacksEntity(Entity const& entity) const {
   Entity const* child = &entity;
   for (Entity const* parent = child->parent(); parent != nullptr;
        child = parent, parent = child->parent()) {
      bool lacking = false;
      forEachChildField(*parent, *child,
                        [&](FieldDescriptor const& field) { lacking = lacking || lacks(field); });
      if (lacking) {
         return true;
      }
   }
   return false;
}

NumberRange const* PeerTypes::narrower(FieldDescriptor const& field) const noexcept {
   auto const at = std::find_if(narrower_.begin(), narrower_.end(),
                                [&](auto const& one) { return one.field == &field; });
   return at != narrower_.end() ? &at->range : nullptr;
}

bool PeerTypes::refuses(Entity const& entity, FieldDescriptor const& field,
                        LeftOut& leftOut) const {
   NumberRange const* const range = narrower(field);
   if (range == nullptr) {
      return false;
   }
   AnyValue value(*field.type);
   value.read(&entity, field);
   if (isWithin(*field.type, value.ref().address, *range)) {
      return false;
   }
   leftOut.note(entity, field,
                field.type->genericIfStrRep(value.ref().address) + " is not in the peer's range, " +
                      rangeText(*field.type, *range));
   return true;
}

bool PeerTypes::refusesChild(Entity const& child, LeftOut& leftOut) const {
   bool refused = false;
   forEachGivenMember(child.kivType(), [&](FieldDescriptor const& field) {
      refused = refused || refuses(child, field, leftOut);
   });
   return refused;
}

void PeerTypes::strip(FlowOut& flow) const {
   forEachField(flow.entity().kivType(), [&](FieldDescriptor const& field) {
      if (lacks(field)) {
         flow.kivIsDirtyIs(field.fieldId, false);
         flow.wholeCollectionIs(field.fieldId, false);
      }
   });
}

}  // namespace Kiv::NboAttrLog
