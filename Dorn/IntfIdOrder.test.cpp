#include <algorithm>
#include <map>

#include "Dorn/IntfId.h"
#include "Dorn/IntfIdWords.h"
#include "tests/ValueTypeTesting.h"

// Random names, checked against a plain definition of the order, and random bits.

using namespace ValueTypeTesting;
using Dorn::IntfId;

namespace {

/// The order of names, independent of how ids are encoded: a run of digits is one item, and a zero
/// before more digits is an item, too; digits sort where ASCII has them.
using Key = std::vector<std::pair<int, U64>>;

Key keyOf(std::string_view name) {
   Key key;
   for (std::size_t i = 0; i < name.size();) {
      auto const isDigit = [&](std::size_t at) {
         return at < name.size() && name[at] >= '0' && name[at] <= '9';
      };
      if (!isDigit(i)) {
         key.emplace_back(name[i++], 0);
      } else if (name[i] == '0' && isDigit(i + 1)) {
         key.emplace_back('0', 0);
         ++i;
      } else {
         U64 number = 0;
         while (isDigit(i)) {
            number = number * 10 + static_cast<U64>(name[i++] - '0');
         }
         key.emplace_back('1', number);
      }
   }
   return key;
}

/// Whether the id encodes its name with a tail, which sorts separately.
bool isTail(IntfId id) {
   return (id.bits() >> 49 & 63) >= 62;
}

class IntfIdProperties : public SeededTest {
protected:
   Sarn::String pick(std::string_view alphabet, std::size_t size) {
      Sarn::String text;
      while (text.size() < size) {
         text += alphabet[random() % alphabet.size()];
      }
      return text;
   }
   /// A name of words, numbers, separators and letters in any order.
   Sarn::String anyName() {
      auto const& words = Dorn::IntfIdImpl::words;
      Sarn::String name;
      if (random() % 4 != 0) {
         name += words[random() % words.size()];
      }
      for (U64 parts = random() % 7; parts > 0; --parts) {
         switch (random() % 6) {
            case 0:
            case 1:
               name += std::to_string(random() >> (30 + random() % 34));
               break;
            case 2:
               name += pick("-./:_", 1);
               break;
            case 3:
               name += pick("npnsfduv", 1);
               break;
            case 4:
               name += pick("nopqabcxyz", 1 + random() % 2);
               break;
            default:
               name += pick("0123456789ABCXYZabcdefnz._-/:", 1 + random() % 3);
         }
      }
      return name;
   }
   std::optional<IntfId> idOf(Sarn::String const& name) {
      try {
         return IntfId(name);
      } catch (Kiv::RangeException const&) {
         return std::nullopt;
      }
   }
};

TEST_F(IntfIdProperties, NameToIdToNameIsExact) {
   int held = 0;
   for (int i = 0; i < 100000; ++i) {
      Sarn::String const name = anyName();
      if (auto const id = idOf(name)) {
         ++held;
         ASSERT_EQ(id->name(), name);
         ASSERT_EQ(IntfId::fromBits(id->bits()), id) << name;
         ASSERT_EQ(id->isEmpty(), name.empty());
      }
   }
   EXPECT_GT(held, 30000);
}

TEST_F(IntfIdProperties, IdsAreOrderedAsTheNamesAre) {
   std::vector<std::pair<IntfId, Sarn::String>> all;
   while (all.size() < 30000) {
      Sarn::String const name = anyName();
      auto const id = idOf(name);
      if (id && !isTail(*id)) {
         all.emplace_back(*id, name);
      }
   }
   std::sort(all.begin(), all.end());
   for (std::size_t i = 0; i + 1 < all.size(); ++i) {
      auto const& [id, name] = all[i];
      auto const& [nextId, nextName] = all[i + 1];
      ASSERT_EQ(id == nextId, name == nextName) << name << " " << nextName;
      ASSERT_LE(keyOf(name), keyOf(nextName)) << name << " " << nextName;
   }
}

TEST_F(IntfIdProperties, EveryNameOfNineLettersDigitsAndDashesFits) {
   static constexpr std::string_view letters =
         "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
   static constexpr std::string_view all =
         "-0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
   for (int i = 0; i < 50000; ++i) {
      Sarn::String const name = pick(letters, 1) + pick(all, random() % 9);
      ASSERT_EQ(IntfId(name).name(), name);
   }
}

TEST_F(IntfIdProperties, EveryNameOfTenLowerCaseLettersFits) {
   for (int i = 0; i < 50000; ++i) {
      Sarn::String const name = pick("abcdefghijklmnopqrstuvwxyz", 1 + random() % 10);
      ASSERT_EQ(IntfId(name).name(), name);
   }
}

TEST_F(IntfIdProperties, EveryMacAddressFitsAfterEnx) {
   for (int i = 0; i < 20000; ++i) {
      Sarn::String const name = "enx" + pick("0123456789abcdef", 12);
      ASSERT_EQ(IntfId(name).name(), name);
   }
}

TEST_F(IntfIdProperties, EveryPciNameInItsRangesFits) {
   for (int i = 0; i < 20000; ++i) {
      Sarn::String name = random() % 2 == 0 ? "enp" : "wlp";
      name += std::to_string(random() % 256) + "s" + std::to_string(random() % 32);
      name += random() % 4 == 0 ? "" : "f" + std::to_string(random() % 8);
      name += random() % 2 == 0 ? "" : "np" + std::to_string(random() % 4);
      ASSERT_EQ(IntfId(name).name(), name);
   }
}

TEST_F(IntfIdProperties, EverySlotNameInItsRangesFits) {
   for (int i = 0; i < 20000; ++i) {
      U64 const levels = random() % 4;
      Sarn::String name = "Ethernet" + std::to_string(random() % 41);
      for (U64 level = 0; level < levels; ++level) {
         name += "/" + std::to_string(random() % 41);
      }
      name += random() % 2 == 0 ? "" : "." + std::to_string(random() % (levels < 3 ? 4095 : 361));
      ASSERT_EQ(IntfId(name).name(), name);
   }
}

TEST_F(IntfIdProperties, BitsAreAcceptedOnlyIfANameHasThem) {
   int accepted = 0;
   for (int i = 0; i < 100000; ++i) {
      U64 bits = random();
      if (i % 2 == 0) {
         // Close to the bits of a name: a few are changed.
         auto const id = idOf(anyName());
         if (!id) {
            continue;
         }
         bits = id->bits() ^ U64 { 1 } << random() % 64 ^
                (random() % 2 ? U64{1} << random() % 64 : 0);
      } else if (i % 4 == 1) {
         bits &= ~U64{0} << random() % 64;
      }
      if (auto const id = IntfId::fromBits(bits)) {
         ++accepted;
         ASSERT_EQ(id->bits(), bits);
         ASSERT_EQ(IntfId(id->name()), *id) << id->name();
         ASSERT_EQ(IntfId(printed(*id)), *id) << id->name();
         Bytes const bytes = encoded(*id);
         ASSERT_EQ(decoded<IntfId>(bytes), *id);
      } else {
         Bytes bytes(8);
         Kiv::NboAttrLog::Out(bytes.data(), 8).writeU64(bits);
         ASSERT_THROW(decoded<IntfId>(bytes), Kiv::NboAttrLog::FaultException);
      }
   }
   EXPECT_GT(accepted, 4000);
}

TEST_F(IntfIdProperties, DifferentNamesHaveDifferentIds) {
   std::map<U64, Sarn::String> names;
   for (int i = 0; i < 100000; ++i) {
      Sarn::String const name = anyName();
      if (auto const id = idOf(name)) {
         auto const [at, isNew] = names.emplace(id->bits(), name);
         ASSERT_EQ(at->second, name);
      }
   }
   EXPECT_GT(names.size(), 10000u);
}

TEST_F(IntfIdProperties, OrderingLawsHold) {
   std::vector<IntfId> ids{IntfId(), IntfId("Ethernet1"), IntfId("Ethernet1")};
   while (ids.size() < 50) {
      if (auto const id = idOf(anyName())) {
         ids.push_back(*id);
      }
   }
   expectOrderingLaws(ids);
}

}  // namespace
