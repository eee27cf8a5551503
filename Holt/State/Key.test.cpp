#include "Holt/State/Key.h"

#include <gtest/gtest.h>

#include <map>
#include <random>

#include "Holt/Failure.h"
#include "Holt/State/Path.h"
#include "Kiv/GenericIfImpl.h"
#include "Kiv/Module.h"
#include "Kiv/Text.h"
#include "Kiv/Visit.h"
#include "KivTest/TestTypes/Pair.h"
#include "KivTest/TestTypes/Record.h"
#include "PtpPlatform/PtpDataSetTypes/PortDSKey.h"
#include "PtpPlatform/PtpDataSetTypes/PortIdentity.h"

namespace Holt {
namespace {

using Kiv::AnyValue;
using Kiv::FieldDescriptor;
using Kiv::TypeImpl;
using Kiv::TypeKind;

/// The key as it is printed; or the error.
template <class T>
std::string keyAs(std::string_view text) {
   try {
      AnyValue key(Kiv::typeOf<T>());
      parseKey(text, key);
      return keyText(key.ref());
   } catch (Failure const& error) {
      return error.what();
   }
}

/// What its text form is when it has been read.
template <class T>
std::string longOf(std::string_view text) {
   AnyValue key(Kiv::typeOf<T>());
   parseKey(text, key);
   return valueText(key);
}

TEST(Key, OfSeveralFieldsHasCommasBetweenThem) {
   EXPECT_EQ(keyAs<Ptp::PortDSKey>("Ethernet1,100"), "Ethernet1,100");
   EXPECT_EQ(longOf<Ptp::PortDSKey>("Ethernet1,100"), "Ptp::PortDSKey(intf=Ethernet1, vlanId=100)");
   EXPECT_EQ(longOf<Ptp::PortIdentity>("02:00:00:ff:fe:00:00:01,3"),
             "Ptp::PortIdentity(clockIdentity=02:00:00:ff:fe:00:00:01, portNumber=3)");
   EXPECT_EQ(keyAs<Ptp::PortDSKey>(" Ethernet1 , 100 "), "Ethernet1,100");
   EXPECT_EQ(keyAs<KivTest::Pair>("3,-4"), "3,-4");
}

TEST(Key, LeavesOutWhatIsNoneAtItsEnd) {
   EXPECT_EQ(longOf<Ptp::PortDSKey>("Ethernet1"), "Ptp::PortDSKey(intf=Ethernet1, vlanId=none)");
   EXPECT_EQ(keyAs<Ptp::PortDSKey>("Ethernet1,none"), "Ethernet1");
   EXPECT_EQ(keyAs<Ptp::PortDSKey>("\"\""), "\"\"");
   EXPECT_EQ(keyAs<Ptp::PortDSKey>("\"\",7"), "\"\",7");
   EXPECT_EQ(keyAs<KivTest::Pair>("3,0"), "3,0");
}

TEST(Key, IsAlsoReadInItsLongForm) {
   EXPECT_EQ(keyAs<Ptp::PortDSKey>("Ptp::PortDSKey(intf=Ethernet1, vlanId=none)"), "Ethernet1");
   EXPECT_EQ(keyAs<Ptp::PortDSKey>("Ptp::PortDSKey( intf=Ethernet1,vlanId=7 )"), "Ethernet1,7");
   EXPECT_EQ(keyAs<KivTest::Pair>("KivTest::Pair(first=1, second=-2)"), "1,-2");
}

TEST(Key, OfOneFieldHasItsTextAndAStringNoQuotesUnlessItNeedsThem) {
   EXPECT_EQ(keyAs<U32>("7"), "7");
   EXPECT_EQ(keyAs<Sarn::String>("fast"), "fast");
   EXPECT_EQ(keyAs<Sarn::String>("\"fast\""), "fast");
   EXPECT_EQ(keyAs<Sarn::String>("two words"), "\"two words\"");
   EXPECT_EQ(keyAs<Sarn::String>("a,b"), "\"a,b\"");
   EXPECT_EQ(keyAs<Sarn::String>("*"), "\"*\"");
   EXPECT_EQ(keyAs<Sarn::String>("\"a]\\\"\""), "\"a]\\\"\"");
   EXPECT_EQ(keyAs<Sarn::String>(""), "\"\"");
   EXPECT_EQ(keyAs<Sarn::String>("Zürich"), "Zürich");
}

TEST(Key, SaysWhichFieldIsWrongOrWhichThereAre) {
   EXPECT_EQ(keyAs<Ptp::PortDSKey>("Ethernet1,5000"),
             "vlanId: 5000 is not a VLAN id (1 to 4094, or none)");
   EXPECT_EQ(keyAs<Ptp::PortDSKey>("Ethernet1,7,8"),
             "the key 'Ethernet1,7,8' has 3 parts; Ptp::PortDSKey is written as intf,vlanId");
   EXPECT_EQ(keyAs<KivTest::Pair>("5"),
             "the key '5' has 1 part; KivTest::Pair is written as first,second");
   EXPECT_EQ(keyAs<Ptp::PortDSKey>(""),
             "intf: '' is not a valid Dorn::IntfId: at position 0: expected an interface name, or "
             "\"\" for none");
}

/// Draws keys of any type.
class Keys {
public:
   void draw(AnyValue& value) {
      TypeImpl const& type = value.type();
      if (type.kind == TypeKind::string) {
         new (value.room()) Sarn::String(text());
         value.constructed();
      } else if (type.kind == TypeKind::value) {
         fields(value);
      } else if (below(2) == 0 || !decoded(value)) {
         sample(value);
      }
   }

private:
   std::size_t below(std::size_t n) { return chance_() % n; }
   Sarn::String text() {
      static constexpr std::string_view alphabet("ab1.,:[]()\"\\ =*\n\x01\xff\xc3\xbc", 20);
      static char const* const words[] = {"none", "*", "Ptp::PortDSKey(intf=a, vlanId=none)",
                                          "010"};
      if (below(8) == 0) {
         return words[below(std::size(words))];
      }
      Sarn::String text;
      for (std::size_t n = below(6); n != 0; --n) {
         text += alphabet[below(alphabet.size())];
      }
      return text;
   }
   bool decoded(AnyValue& value) {
      std::vector<U8> bytes(64);
      for (U8& byte : bytes) {
         byte = static_cast<U8>(below(4) == 0 ? below(256) : below(2));
      }
      Kiv::NboAttrLog::In in(bytes.data(), bytes.data() + bytes.size());
      try {
         value.type().support->decode(value.room(), in);
         value.constructed();
         return true;
      } catch (Kiv::Exception const&) {
         return false;
      }
   }
   void sample(AnyValue& value) {
      static char const* const texts[] = {"Ethernet1", "Ethernet3/1/2.100",
                                          "eth0",      "\"\"",
                                          "none",      "7",
                                          "4094",      "-1",
                                          "10.0.0.1",  "2001:db8::1",
                                          "0.0.0.0",   "true",
                                          "inf",       "02:00:00:ff:fe:00:00:01"};
      for (std::size_t first = below(std::size(texts)), i = 0; i != std::size(texts); ++i) {
         try {
            parseValue(texts[(first + i) % std::size(texts)], value);
            return;
         } catch (Failure const&) {
            continue;
         }
      }
      value.makeDefault();
   }
   void fields(AnyValue& value) {
      std::vector<std::unique_ptr<AnyValue>> fields;
      std::vector<Kiv::ValueRef> args;
      Kiv::forEachPart(value.type(), [&](FieldDescriptor const& field) {
         draw(*fields.emplace_back(std::make_unique<AnyValue>(*field.type)));
         args.push_back(fields.back()->ref());
      });
      value.type().support->constructFromCtorArgs(value.room(), args);
      value.constructed();
   }

   std::mt19937 chance_{20240601};
};

/// Every key comes back from a path with its text, alone and with its long form, and keys that
/// differ have different texts.
void expectAllComeBack(TypeImpl const& type, Keys& keys) {
   SCOPED_TRACE(type.name);
   std::map<Sarn::String, Sarn::String> longByShort;
   for (int i = 0; i != 400; ++i) {
      AnyValue key(type);
      keys.draw(key);
      Sarn::String const text = keyText(key.ref());
      Sarn::String const longText = valueText(key);
      auto const [at, isNew] = longByShort.emplace(text, longText);
      ASSERT_TRUE(isNew || at->second == longText) << text << ": " << longText;
      for (Sarn::String const& written : {text, longText}) {
         std::vector<PathStep> const steps = parseSteps(".a[" + written + "].b");
         ASSERT_EQ(steps.size(), 2U) << written;
         ASSERT_TRUE(steps[0].key) << written;
         AnyValue read(type);
         parseKey(*steps[0].key, read);
         ASSERT_EQ(valueText(read), longText) << written;
      }
   }
}

TEST(Key, OfEveryCollectionOfEveryModuleComesBack) {
   Keys keys;
   std::map<Sarn::String, TypeImpl const*> types;
   std::size_t collections = 0;
   for (Kiv::KivModule const* module = Kiv::firstModule(); module != nullptr;
        module = module->data->next) {
      for (U32 i = 0; i != module->typeCount; ++i) {
         TypeImpl const& type = *module->data->types[i];
         if (type.kind == TypeKind::entity) {
            forEachField(type, [&](FieldDescriptor const& field) {
               if (field.keyType != nullptr) {
                  ++collections;
                  types[field.keyType->name] = field.keyType;
               }
            });
         }
      }
   }
   EXPECT_GT(collections, 35U);
   EXPECT_TRUE(types.contains("Ptp::PortDSKey") && types.contains("KivTest::Pair"));
   // Values of several fields that are no keys yet, but may be.
   types["KivTest::Record"] = &Kiv::typeOf<KivTest::Record>();
   for (auto const& [name, type] : types) {
      expectAllComeBack(*type, keys);
   }
}

}  // namespace
}  // namespace Holt
