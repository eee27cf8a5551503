// Two ends of the attribute log that take each other for another version of the module `TestTypes`:
// the bytes between them are edited on their way.
#pragma once

#include <functional>
#include <map>

#include "KivTest/Stream.test.h"

namespace StreamTesting {

/// A `types` message, read and written independently of the code under test.
struct TypeMessage {
   struct Member {
      U16 id = 0;
      U8 kind = 0;
      U8 flags = 0;
      std::string name;
      std::string type;
      std::string key;
      U64 least = 0;
      U64 greatest = 0;
   };
   static constexpr U8 bounded = 8;
   static constexpr U8 entity = 0;
   static constexpr U8 value = 1;
   static constexpr U8 enumeration = 2;

   std::string module;
   U32 left = 0;
   std::string name;
   U8 sort = 0;
   std::string base;
   bool named = false;
   std::vector<U16> arguments;
   std::vector<Member> members;

   static TypeMessage read(Bytes const& body) {
      Kiv::NboAttrLog::In in(body.data(), body.data() + body.size());
      TypeMessage all;
      all.module = in.nextString();
      all.left = in.nextU32();
      all.name = in.nextString();
      all.sort = in.nextU8();
      if (all.sort == entity) {
         all.base = in.nextString();
         all.named = in.nextbool();
         for (U16 left = in.nextU16(); left != 0; --left) {
            all.arguments.push_back(in.nextU16());
         }
      }
      for (U16 left = in.nextU16(); left != 0; --left) {
         Member one;
         one.id = all.sort == enumeration ? in.nextU8() : in.nextU16();
         if (all.sort == entity) {
            one.kind = in.nextU8();
            one.flags = in.nextU8();
         }
         one.name = in.nextString();
         one.type = all.sort == enumeration ? "" : std::string(in.nextString());
         if (all.sort == entity) {
            one.key = in.nextString();
            one.least = (one.flags & bounded) != 0 ? in.nextU64() : 0;
            one.greatest = (one.flags & bounded) != 0 ? in.nextU64() : 0;
         }
         all.members.push_back(one);
      }
      EXPECT_EQ(in.readableBytes(), 0u);
      return all;
   }

   static Bytes u16(std::size_t v) { return {static_cast<U8>(v >> 8), static_cast<U8>(v)}; }
   static Bytes u64(U64 v) {
      return concat(u32(static_cast<U32>(v >> 32)), u32(static_cast<U32>(v)));
   }

   /// What follows the type's name.
   Bytes description() const {
      Bytes body{sort};
      if (sort == entity) {
         body = concat(body, text(base), Bytes{named}, u16(arguments.size()));
         for (U16 const id : arguments) {
            body = concat(body, u16(id));
         }
      }
      body = concat(body, u16(members.size()));
      for (Member const& one : members) {
         if (sort == enumeration) {
            body = concat(body, Bytes{static_cast<U8>(one.id)}, text(one.name));
         } else if (sort == value) {
            body = concat(body, u16(one.id), text(one.name), text(one.type));
         } else {
            body = concat(body, u16(one.id), Bytes{one.kind, one.flags}, text(one.name),
                          text(one.type), text(one.key));
            if ((one.flags & bounded) != 0) {
               body = concat(body, u64(one.least), u64(one.greatest));
            }
         }
      }
      return body;
   }
   Bytes body() const { return concat(text(module), u32(left), text(name), description()); }
   Bytes bytes() const { return message(Opcode::types, 0, 0, body()); }

   Member& member(std::string_view wanted) {
      for (Member& one : members) {
         if (one.name == wanted) {
            return one;
         }
      }
      throw std::invalid_argument("no member " + std::string(wanted));
   }
   void remove(std::string_view wanted) {
      std::erase_if(members, [&](Member const& one) { return one.name == wanted; });
   }
};

/// How one end appears to the other.
struct Version {
   /// By type: an edit of its description. A description without a name is not sent.
   std::map<std::string, std::function<void(TypeMessage&)>> edits;

   /// The bytes as the other end gets them.
   Bytes edited(Bytes const& bytes) const {
      Bytes all;
      std::vector<TypeMessage> types;
      auto const flush = [&] {
         for (TypeMessage& one : types) {
            if (!edits.empty()) {
               one.left = static_cast<U32>(&types.back() - &one);
            }
            all = concat(all, one.bytes());
         }
         types.clear();
      };
      for (std::size_t at = 0; at != bytes.size();) {
         std::size_t const size =
               std::size_t(bytes[at + 1]) << 16 | std::size_t(bytes[at + 2]) << 8 | bytes[at + 3];
         auto const begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
         auto const end = begin + static_cast<std::ptrdiff_t>(10 + size);
         auto const opcode = static_cast<Opcode>(bytes[at]);
         if (opcode == Opcode::types) {
            TypeMessage one = TypeMessage::read(Bytes(begin + 10, end));
            if (auto const edit = edits.find(one.name); edit != edits.end()) {
               edit->second(one);
            }
            if (!one.name.empty()) {
               types.push_back(one);
            }
         } else {
            flush();
            all = concat(
                  all, opcode == Opcode::hello ? otherHash(Bytes(begin, end)) : Bytes(begin, end));
         }
         at += 10 + size;
      }
      flush();
      return all;
   }

   static Bytes otherHash(Bytes hello) {
      Bytes const name = text("TestTypes");
      auto const at = std::search(hello.begin(), hello.end(), name.begin(), name.end());
      EXPECT_NE(at, hello.end());
      ++*(at + static_cast<std::ptrdiff_t>(name.size()) + 3);
      return hello;
   }
};

/// A source and a mirror that appear to each other as other versions.
class OtherVersions : public StreamTest {
protected:
   explicit OtherVersions(Limits const& limits = {}) : StreamTest(limits) {}

   void carry() {
      for (bool moved = true; moved;) {
         Bytes const forth = source.take();
         Bytes const back = mirror.take();
         moved = !forth.empty() || !back.empty();
         mirror.receive(sourceAppears.edited(forth));
         source.receive(mirrorAppears.edited(back));
      }
   }
   Mount& mount(MountMode mode = MountMode::reader) {
      Mount& made = mirror.session->mountIs(copy, mode);
      carry();
      return made;
   }
   /// The mirror's version of `Stem` has no such members.
   void mirrorLacks(std::vector<std::string> const& members) {
      mirrorAppears.edits["KivTest::Stem"] = lacking(members);
   }
   void sourceLacks(std::vector<std::string> const& members) {
      sourceAppears.edits["KivTest::Stem"] = lacking(members);
   }
   static std::function<void(TypeMessage&)> lacking(std::vector<std::string> const& members) {
      return [members](TypeMessage& type) {
         for (std::string const& one : members) {
            type.remove(one);
         }
      };
   }
   static std::string lackingAt(End const& end) {
      std::vector<std::string> all;
      for (Sarn::String const& one : end.session->lacking()) {
         all.push_back(one);
      }
      return joined(all);
   }

   Version sourceAppears;
   Version mirrorAppears;
};

}  // namespace StreamTesting
