// Which children are created in the attribute log with flags of their own.
#include <gtest/gtest.h>

#include "Kiv/Module.h"
#include "PtpLib/PtpStatusStatedbTypes/Status.h"

namespace {

using Kiv::FieldDescriptor;

std::string flagsOf(FieldDescriptor const& field) {
   std::string flags;
   for (auto const flag : {FieldDescriptor::instantiation1, FieldDescriptor::instantiation2,
                           FieldDescriptor::instantiation3}) {
      flags += field.has(flag) ? '1' : '0';
   }
   return flags;
}

TEST(Instantiation, FlagsAreThoseOfTheDataSetsBelowTheStatus) {
   EXPECT_STREQ(Ptp::Status::kivTypeImpl.name, "Ptp::Status") << "the library is loaded";
   std::string all;
   for (auto const* module = Kiv::firstModule(); module != nullptr; module = module->data->next) {
      for (U32 i = 0; i != module->typeCount; ++i) {
         Kiv::TypeImpl const& type = *module->data->types[i];
         for (U16 row = 0; type.kind == Kiv::TypeKind::entity && row != type.rowCount; ++row) {
            if (flagsOf(type.rows[row]) != "000" && module->name() != std::string("TestTypes")) {
               all += std::string(type.name) + "." + type.rows[row].name + " " +
                      flagsOf(type.rows[row]) + "\n";
            }
         }
      }
   }
   EXPECT_EQ(all,
             "Ptp::Status.defaultDS 010\n"
             "Ptp::Status.currentDS 010\n"
             "Ptp::Status.parentDS 010\n"
             "Ptp::Status.intfStatus 010\n"
             "Ptp::Status.portDS 010\n");
}

}  // namespace
