// The registry of modules: order, lookup, and modules that come and go.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include "Kiv/Module.h"
#include "KivTest/TestTypes.h"
#include "KivTest/TestTypesRecord.h"

namespace {

std::vector<std::string> modules() {
   std::vector<std::string> names;
   for (Kiv::KivModule const* at = Kiv::firstModule(); at != nullptr; at = at->data->next) {
      names.emplace_back(at->name());
   }
   return names;
}

TEST(Registry, HasEveryLoadedModuleOnce) {
   auto names = modules();
   EXPECT_EQ(std::count(names.begin(), names.end(), "TestTypes"), 1);
   std::sort(names.begin(), names.end());
   EXPECT_EQ(std::unique(names.begin(), names.end()), names.end());
}

TEST(Registry, FindsModulesAndTypesByName) {
   EXPECT_EQ(Kiv::moduleByName("TestTypes"), &_TestTypes_7e57ab1e_kivModule);
   EXPECT_EQ(Kiv::moduleByName("Test"), nullptr);
   EXPECT_EQ(Kiv::typeByName("KivTest::Stem"), &KivTest::Stem::kivTypeImpl);
   EXPECT_EQ(Kiv::typeByName("KivTest::Badge"), &KivTest::Badge::kivTypeImpl);
   EXPECT_EQ(Kiv::typeByName("KivTest::WideLeaf"), &KivTest::WideLeaf::kivTypeImpl);
   EXPECT_EQ(Kiv::typeByName("KivTest::Colour"), &KivTest::ColourInstance().type());
   for (char const* const name : {"", "A", "KivTest::", "KivTest::Ste", "KivTest::Stems", "Stem",
                                  "zzz", "U8", "Dorn::IntfI"}) {
      EXPECT_EQ(Kiv::typeByName(name), nullptr) << name;
   }
}

TEST(Registry, TakesAModuleOnceHoweverOftenItIsHandedOver) {
   auto const before = modules();
   Kiv::kivModuleIs(_TestTypes_7e57ab1e_kivModule);
   EXPECT_EQ(modules(), before);
   Kiv::kivModuleDel(_TestTypes_7e57ab1e_kivModule);
   EXPECT_EQ(modules(), before) << "it was handed over twice and taken back once";
}

/// Modules may be removed in any order; the others keep theirs.
TEST(Registry, KeepsTheOrderOfTheOthersWhenModulesComeAndGo) {
   auto const before = modules();
   Kiv::ModuleData dataA{"A", 1, 0, nullptr, nullptr, nullptr, 0};
   Kiv::ModuleData dataB{"B", 2, 0, nullptr, nullptr, nullptr, 0};
   Kiv::ModuleData dataC{"C", 3, 0, nullptr, nullptr, nullptr, 0};
   Kiv::KivModule const a{nullptr, nullptr, &dataA, "", "", nullptr, nullptr, 0};
   Kiv::KivModule const b{nullptr, nullptr, &dataB, "", "", nullptr, nullptr, 0};
   Kiv::KivModule const c{nullptr, nullptr, &dataC, "", "", nullptr, nullptr, 0};
   auto with = [&](std::vector<std::string> const& more) {
      auto all = before;
      all.insert(all.end(), more.begin(), more.end());
      return all;
   };
   Kiv::kivModuleIs(a);
   Kiv::kivModuleIs(b);
   Kiv::kivModuleIs(c);
   EXPECT_EQ(modules(), with({"A", "B", "C"}));
   Kiv::kivModuleDel(b);
   EXPECT_EQ(modules(), with({"A", "C"}));
   Kiv::kivModuleDel(b);
   EXPECT_EQ(modules(), with({"A", "C"})) << "gone already";
   Kiv::kivModuleIs(b);
   EXPECT_EQ(modules(), with({"A", "C", "B"}));
   EXPECT_EQ(Kiv::typeByName("KivTest::Stem"), &KivTest::Stem::kivTypeImpl);
   Kiv::kivModuleDel(c);
   Kiv::kivModuleDel(a);
   EXPECT_EQ(modules(), with({"B"}));
   Kiv::kivModuleDel(b);
   EXPECT_EQ(modules(), before);
   Kiv::kivModuleIs(a);
   EXPECT_EQ(modules(), with({"A"})) << "the end of the list is right again";
   Kiv::kivModuleDel(a);
}

TEST(Registry, TheLibraryExportsTheRecordUnderItsSymbol) {
   EXPECT_EQ(dlsym(RTLD_DEFAULT, "_TestTypes_7e57ab1e_kivModule"), &_TestTypes_7e57ab1e_kivModule);
}

}  // namespace
