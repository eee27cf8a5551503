// What loading and unloading the libraries does, seen from a program that was not built with the
// modules: which initialisers run, what they allocate, and what is left afterwards.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <link.h>

#include <algorithm>
#include <filesystem>

#include "Kiv/AllocTrack.h"
#include "Kiv/Entity.h"
#include "Kiv/Types.h"
#include "tests/load/Interposed.h"

namespace LoadTesting {
namespace {

using Names = std::vector<std::string>;

/// The modules of libPtpPlatform and of libPtpLib, in the order in which they register.
Names const platformModules = {"Dorn",
                               "Bridging",
                               "Brim",
                               "Acl",
                               "PtpConstants",
                               "PtpDataSetTypes",
                               "PtpDebugCounterClearList",
                               "PtpLibStatedbTypes"};
Names const ptpModules = {"PtpMib", "PtpMpassStatedbTypes", "PtpOpenConfig",
                          "PtpStatusStatedbTypes", "PtpUcastNegConfig"};

std::string library(std::string const& name) {
   return PTPLIB_LIB_DIR "/lib" + name + ".so";
}

Names registry() {
   Names names;
   for (auto const* at = Kiv::firstModule(); at != nullptr; at = at->data->next) {
      names.emplace_back(at->name());
   }
   return names;
}

Names namesOf(std::vector<Kiv::KivModule const*> const& modules) {
   Names names;
   for (auto const* const module : modules) {
      names.emplace_back(module->name());
   }
   return names;
}

Names both() {
   Names all = platformModules;
   all.insert(all.end(), ptpModules.begin(), ptpModules.end());
   return all;
}

/// An open library, closed by the destructor.
class Opened {
public:
   explicit Opened(std::string const& file, int mode = RTLD_LOCAL)
         : handle_(dlopen(file.c_str(), RTLD_NOW | mode)) {
      EXPECT_NE(handle_, nullptr) << dlerror();
   }
   ~Opened() { close(); }
   Opened(Opened const&) = delete;
   Opened& operator=(Opened const&) = delete;

   void* handle() const { return handle_; }
   void close() {
      if (handle_ != nullptr) {
         EXPECT_EQ(dlclose(handle_), 0);
         handle_ = nullptr;
      }
   }

private:
   void* handle_;
};

bool isLoaded(std::string const& file) {
   void* const handle = dlopen(file.c_str(), RTLD_NOW | RTLD_NOLOAD);
   if (handle != nullptr) {
      dlclose(handle);
   }
   return handle != nullptr;
}

/// A root of a type that the program knows only by name.
Sarn::Ptr<Kiv::Entity> rootOf(char const* type) {
   Sarn::String const name = "root";
   std::array<Kiv::ValueRef, 1> const arguments{&name};
   return Kiv::typeByName(type)->entity->genericIfConstructFromCtorArgs(arguments);
}

/// The number of initialisers of a loaded library, including the one that the compiler adds to
/// every library.
std::size_t initialisers(void* handle) {
   link_map* map = nullptr;
   EXPECT_EQ(dlinfo(handle, RTLD_DI_LINKMAP, &map), 0);
   std::size_t bytes = 0;
   for (ElfW(Dyn) const* entry = map->l_ld; entry->d_tag != DT_NULL; ++entry) {
      EXPECT_NE(entry->d_tag, DT_PREINIT_ARRAY);
      bytes += entry->d_tag == DT_INIT_ARRAYSZ ? entry->d_un.d_val : 0;
   }
   return bytes / sizeof(void*);
}

class Load : public testing::Test {
protected:
   void SetUp() override {
      ASSERT_FALSE(isLoaded(library("PtpLib"))) << "somebody else has loaded it";
      ASSERT_EQ(registry(), Names());
      modulesHandedOver();
   }
};

TEST_F(Load, HandsOverTheFiveModulesEachOnceInTheirOrder) {
   Opened const platform(library("PtpPlatform"));
   EXPECT_EQ(namesOf(modulesHandedOver()), platformModules);
   Opened const ptp(library("PtpLib"));
   auto const handedOver = modulesHandedOver();
   EXPECT_EQ(namesOf(handedOver), ptpModules);
   char const* const symbols[] = {
         "_PtpMib_b0acfc69_kivModule", "_PtpMpassStatedbTypes_fbc0540_kivModule",
         "_PtpOpenConfig_3a9966ae_kivModule", "_PtpStatusStatedbTypes_298ecaeb_kivModule",
         "_PtpUcastNegConfig_89e06b96_kivModule"};
   ASSERT_EQ(handedOver.size(), std::size(symbols));
   for (std::size_t i = 0; i != std::size(symbols); ++i) {
      EXPECT_EQ(dlsym(ptp.handle(), symbols[i]), handedOver[i]) << symbols[i];
   }
   EXPECT_EQ(registry(), both());
}

TEST_F(Load, RunsNoInitialiserBesideOneForEachModule) {
   if (!countsAllocations) {
      GTEST_SKIP() << "a sanitizer adds its own initialisers";
   }
   Opened const kiv(library("Kiv"));
   Opened const platform(library("PtpPlatform"));
   Opened const ptp(library("PtpLib"));
   EXPECT_EQ(initialisers(kiv.handle()), 2u) << "the compiler's own, and the secret of hashing";
   EXPECT_EQ(initialisers(platform.handle()), 1 + platformModules.size());
   EXPECT_EQ(initialisers(ptp.handle()), 1 + ptpModules.size());
}

TEST_F(Load, AllocatesNothing) {
   if (!countsAllocations) {
      GTEST_SKIP() << "a sanitizer has its own allocator";
   }
   std::string const file = library("PtpLib");
   std::size_t byOthers = 0;
   std::size_t byLoader = 0;
   void* handle = nullptr;
   {
      AllocationCount const count;
      handle = dlopen(file.c_str(), RTLD_NOW);
      byOthers = count.byOthers();
      byLoader = count.byLoader();
   }
   ASSERT_NE(handle, nullptr) << dlerror();
   EXPECT_EQ(byOthers, 0u);
   EXPECT_GT(byLoader, 0u) << "what the loader allocates is counted, too";
   EXPECT_EQ(registry(), both());
   dlclose(handle);
}

TEST(AllocationCount, Counts) {
   if (!countsAllocations) {
      GTEST_SKIP() << "a sanitizer has its own allocator";
   }
   AllocationCount const count;
   // Through volatile pointers, so that the compiler does not remove the calls.
   void* volatile const memory = std::calloc(1, 10);
   int* volatile const number = new int(1);
   EXPECT_EQ(count.byOthers(), 2u);
   delete number;
   std::free(memory);
}

TEST_F(Load, OpeningALoadedLibraryAgainChangesNothing) {
   Opened const first(library("PtpLib"));
   modulesHandedOver();
   Opened second(library("PtpLib"));
   EXPECT_EQ(second.handle(), first.handle());
   EXPECT_EQ(namesOf(modulesHandedOver()), Names());
   EXPECT_EQ(registry(), both());
   second.close();
   EXPECT_EQ(registry(), both()) << "the other still has it open";
   EXPECT_NE(Kiv::typeByName("Ptp::HwTime"), nullptr);
}

TEST_F(Load, ClosingTheLibraryTakesItsModulesOutOfTheRegistryAndUnloadsIt) {
   Opened platform(library("PtpPlatform"));
   Opened ptp(library("PtpLib"));
   EXPECT_STREQ(rootOf("Ptp::SystemClockConfig")->kivType().name, "Ptp::SystemClockConfig");
   ptp.close();
   EXPECT_FALSE(isLoaded(library("PtpLib")));
   EXPECT_EQ(registry(), platformModules) << "the others keep their order";
   EXPECT_EQ(Kiv::typeByName("Ptp::SystemClockConfig"), nullptr);
   EXPECT_EQ(Kiv::moduleByName("PtpStatusStatedbTypes"), nullptr);
   EXPECT_NE(Kiv::typeByName("Ptp::ClockQuality"), nullptr);
   platform.close();
   EXPECT_FALSE(isLoaded(library("PtpPlatform")));
   EXPECT_EQ(registry(), Names());
}

TEST_F(Load, ClosingTheLibraryForgetsItsAllocationCounters) {
   auto const tracked = [] {
      Names names;
      Sarn::AllocTrackRecord::forEach(
            [&](Sarn::AllocTrackRecord const& record) { names.emplace_back(record.typeName()); });
      return names;
   };
   Names const before = tracked();
   Opened ptp(library("PtpLib"));
   rootOf("Ptp::HwTime");
   rootOf("Openconfig::Ptp::Instance");
   rootOf("Ptp::Config");
   Names const during = tracked();
   EXPECT_EQ(std::count(during.begin(), during.end(), "Ptp::HwTime"), 1);
   EXPECT_EQ(std::count(during.begin(), during.end(), "Ptp::Config"), 1);
   ptp.close();
   for (std::string const& name : tracked()) {
      EXPECT_NE(std::count(before.begin(), before.end(), name), 0) << name << " is left";
   }
}

TEST_F(Load, ALibraryCanBeLoadedAndUnloadedAnyNumberOfTimes) {
   for (int round = 0; round != 5; ++round) {
      Opened ptp(library("PtpLib"));
      EXPECT_EQ(registry(), both()) << round;
      EXPECT_STREQ(rootOf("Ptp::HwStatus")->kivType().name, "Ptp::HwStatus");
      ptp.close();
      EXPECT_EQ(registry(), Names()) << round;
      EXPECT_FALSE(isLoaded(library("PtpLib"))) << round;
   }
}

/// A copy of the library in another file: for the loader, a different library.
class LoadOfACopy : public Load {
protected:
   void SetUp() override {
      Load::SetUp();
      if (!countsAllocations) {
         GTEST_SKIP() << "a sanitizer reports two variables with one name as an error";
      }
      std::string name = testing::TempDir() + "/libPtpLibCopyXXXXXX";
      ASSERT_NE(mkdtemp(name.data()), nullptr);
      directory_ = name;
      copy = directory_ / "libPtpLib.so";
      std::filesystem::copy_file(library("PtpLib"), copy);
   }
   void TearDown() override {
      if (!directory_.empty()) {
         std::filesystem::remove_all(directory_);
      }
   }

   std::filesystem::path copy;

private:
   std::filesystem::path directory_;
};

TEST_F(LoadOfACopy, ComesBehindTheFirstAndGoesAgain) {
   Opened first(library("PtpLib"));
   auto const* const module = Kiv::moduleByName("PtpMib");
   auto const* const type = Kiv::typeByName("Ptp::HwTime");
   Opened second(copy);
   EXPECT_NE(second.handle(), first.handle());
   EXPECT_EQ(Kiv::moduleByName("PtpMib"), module) << "the first is still found";
   EXPECT_EQ(Kiv::typeByName("Ptp::HwTime"), type);
   EXPECT_EQ(registry().size(), both().size() + ptpModules.size());
   second.close();
   EXPECT_EQ(registry(), both());
   EXPECT_STREQ(rootOf("Ptp::HwTime")->kivType().name, "Ptp::HwTime");
}

TEST_F(LoadOfACopy, StandsInForTheFirstWhenThatGoes) {
   Opened const platform(library("PtpPlatform"));
   Opened first(library("PtpLib"));
   auto const* const type = Kiv::typeByName("Ptp::HwTime");
   Opened second(copy);
   first.close();
   EXPECT_EQ(registry(), both());
   EXPECT_NE(Kiv::typeByName("Ptp::HwTime"), type);
   EXPECT_STREQ(rootOf("Ptp::HwTime")->kivType().name, "Ptp::HwTime");
}

TEST_F(LoadOfACopy, ThatFindsTheFirstsSymbolsRegistersNothingTwice) {
   Opened const first(library("PtpLib"), RTLD_GLOBAL);
   auto const* const type = Kiv::typeByName("Ptp::HwTime");
   Opened second(copy);
   EXPECT_EQ(registry(), both());
   second.close();
   EXPECT_EQ(registry(), both()) << "the first is still there";
   EXPECT_EQ(Kiv::typeByName("Ptp::HwTime"), type);
}

}  // namespace
}  // namespace LoadTesting
