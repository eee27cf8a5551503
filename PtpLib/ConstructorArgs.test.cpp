// What the types of all modules report about the arguments of their constructors.
#include <gtest/gtest.h>

#include <memory>
#include <utility>

#include "Kiv/AttrOps.h"
#include "Kiv/Module.h"
#include "Kiv/Types.h"

namespace {

/// Arguments for a type's constructor as described by `ctorArgs`, each with its default.
struct Arguments {
   explicit Arguments(Kiv::TypeImpl const& type) {
      for (Kiv::AttributeId const id : type.ctorArgs) {
         if (id == Kiv::nameFieldId) {
            all.push_back(&name);
            continue;
         }
         values.push_back(std::make_unique<Kiv::AnyValue>(*type.field(id)->type));
         values.back()->type().support->construct(values.back()->room());
         values.back()->constructed();
         all.push_back(values.back()->ref());
      }
   }

   Sarn::String const name = "made by hand";
   std::vector<std::unique_ptr<Kiv::AnyValue>> values;
   std::vector<Kiv::ValueRef> all;
};

/// The constructor takes exactly the arguments that the type reports: no more, no fewer, and of no
/// other type.
TEST(ConstructorArgs, OfEveryEntityAreThoseThatItsConstructorTakes) {
   int entities = 0;
   for (auto const* module = Kiv::firstModule(); module != nullptr; module = module->data->next) {
      for (U32 i = 0; i != module->typeCount; ++i) {
         Kiv::TypeImpl const& type = *module->data->types[i];
         if (type.kind != Kiv::TypeKind::entity) {
            continue;
         }
         ++entities;
         auto* const make = type.entity->genericIfConstructFromCtorArgs;
         Arguments arguments(type);
         EXPECT_EQ(&make(arguments.all)->kivType(), &type);
         bool const none = module->typeRecords[i].kind() == Kiv::TypeRecord::plainEntityKind;
         EXPECT_EQ(arguments.all.empty(), none) << type.name;
         for (Kiv::ValueRef& argument : arguments.all) {
            Kiv::TypeImpl other = *argument.type;
            other.name = "another type";
            Kiv::ValueRef const right = std::exchange(argument, {other, argument.address});
            EXPECT_THROW(make(arguments.all), Kiv::NewEntityArgsException) << type.name;
            argument = right;
         }
         arguments.all.push_back(&arguments.name);
         EXPECT_THROW(make(arguments.all), Kiv::NewEntityArgsException) << type.name;
      }
   }
   EXPECT_GE(entities, 30);
}

/// A collection creates its children from the arguments that their constructor takes.
TEST(ConstructorArgs, OfEveryChildAreWhatItsCollectionTakes) {
   for (auto const* module = Kiv::firstModule(); module != nullptr; module = module->data->next) {
      for (U32 i = 0; i != module->typeCount; ++i) {
         Kiv::TypeImpl const& type = *module->data->types[i];
         forEachField(type, [&](Kiv::FieldDescriptor const& field) {
            if (field.kind != Kiv::MemberKind::children) {
               return;
            }
            Kiv::CollectionOps const& ops = *field.ops->collection;
            ASSERT_EQ(ops.childArgCount, field.type->ctorArgs.size()) << type.name << field.name;
            for (std::size_t at = 0; at != ops.childArgCount; ++at) {
               EXPECT_STREQ(ops.childArgTypes[at]->name,
                            field.type->field(field.type->ctorArgs[at])->type->name)
                     << type.name << field.name;
            }
         });
      }
   }
}

}  // namespace
