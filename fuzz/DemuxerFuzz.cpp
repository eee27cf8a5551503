#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "Kiv/Map/Hash.h"
#include "Kiv/Module.h"
#include "Kiv/NboAttrLogSession.h"
#include "KivTest/SimulationChange.h"
#include "KivTest/SimulationTree.h"
#include "KivTest/TestTypes.h"

// A peer that sends whatever it likes, to a mirror or to a source that takes writers. It may lose
// its connection; the tree stays whole, and a bystander who mirrors the same tree notices nothing
// but changes. The input is a script: what the peer sends, as it stands or as messages of which
// only the fields are given, changes on this side, and reads.
//
//     byte 0             bit 0: the peer is a writer, not a source; bit 1: it has not greeted yet
//     then, repeated     0 length16 bytes...                             received as they are
//                        1 opcode handle attribute length8 bytes...      a message
//                        2 seed16                                        a change on this side
//                        3                                               the peer reads
//                        4                                               the bystander reads

namespace {

using Kiv::NboAttrLog::Hub;
using Kiv::NboAttrLog::Limits;
using Kiv::NboAttrLog::MountMode;
using Kiv::NboAttrLog::Opcode;
using Kiv::NboAttrLog::Session;
using Bytes = std::vector<U8>;

[[maybe_unused]] bool const sameHashes = [] {
   Kiv::HashHelper::hashSeed32Is(1);
   return true;
}();

void require(bool holds, char const* what, std::string const& detail) {
   if (!holds) {
      std::fprintf(stderr, "%s: %s\n", what, detail.c_str());
      std::abort();
   }
}

Limits limits() {
   Limits all;
   all.outputBuffer = 4096;
   all.longestMessage = 1024;
   all.longestValue = 2048;
   all.entities = 256;
   all.nesting = 8;
   return all;
}

/// Takes bytes from the front of the input; zeros when there are no more.
class Input {
public:
   Input(U8 const* data, std::size_t size) : at_(data), end_(data + size) {}
   bool empty() const { return at_ == end_; }
   U8 byte() { return at_ != end_ ? *at_++ : U8(0); }
   U16 word() {
      U8 const high = byte();
      return static_cast<U16>(high << 8 | byte());
   }
   Bytes bytes(std::size_t size) {
      size = std::min(size, static_cast<std::size_t>(end_ - at_));
      Bytes taken(at_, at_ + size);
      at_ += size;
      return taken;
   }

private:
   U8 const* at_;
   U8 const* end_;
};

/// Drops what a session has to say.
void read(Session& session) {
   while (session.output().size != 0) {
      session.sent(session.output().size);
   }
}

std::size_t carry(Session& from, Session& to) {
   Bytes const bytes(from.output().begin, from.output().begin + from.output().size);
   to.received(bytes.data(), bytes.size());
   from.sent(bytes.size());
   return bytes.size();
}

Bytes message(Opcode opcode, U32 handle, U16 attribute, Bytes const& body) {
   Bytes bytes(Kiv::NboAttrLog::headerSize + body.size());
   Kiv::NboAttrLog::Out out(bytes.data(), bytes.size());
   Kiv::NboAttrLog::writeHeader(out, {opcode, static_cast<U32>(body.size()), handle, attribute});
   out.writeBytes(body.data(), body.size());
   return bytes;
}

class Scene {
public:
   explicit Scene(U8 mode)
         : root_(KivTest::rootFactory("r")),
           mirrored_(KivTest::rootFactory("r")),
           hub_(limits()),
           otherHub_(limits()),
           session_(hub_),
           server_(hub_),
           bystander_(otherHub_) {
      root_->leafIs(1, true, KivTest::Opaque(1))->twigIs(KivTest::Level::low);
      root_->byNumberIs(1, "one");
      root_->samplesEnq(1);
      hub_.rootIs(root_);
      bystander_.mountIs(mirrored_);
      bool const writer = (mode & 1) != 0;
      if (!writer) {
         session_.mountIs(root_);
      }
      if ((mode & 2) == 0) {
         Bytes const hello(session_.output().begin,
                           session_.output().begin + session_.output().size);
         receive(Bytes(hello.begin(), hello.begin() + helloSize(hello)));
         receive(writer ? mount() : message(Opcode::replayBegin, firstHandle, 0, {0, 0, 0, 1}));
         read(session_);
      }
   }

   void play(Input& in) {
      while (!in.empty()) {
         switch (in.byte() % 5) {
            case 0:
               receive(in.bytes(in.word()));
               break;
            case 1: {
               auto const opcode =
                     static_cast<Opcode>(in.byte() % (static_cast<U8>(Opcode::last_) + 2));
               U8 const handle = in.byte();
               U16 const attribute = static_cast<U16>(257 + in.byte() % 64);
               receive(message(opcode, handle == 0 ? 0 : firstHandle + handle % 16 - 1, attribute,
                               in.bytes(in.byte())));
               break;
            }
            case 2: {
               KivTest::Chance chance(in.word());
               KivTest::changeAtRandom(*root_, chance);
               break;
            }
            case 3:
               read(session_);
               break;
            default:
               rest();
         }
      }
   }

   void check() {
      rest();
      require(!session_.closed() || !session_.closeReason().empty(), "closed without a reason", "");
      require(!bystander_.closed(), "the bystander is closed", bystander_.closeReason());
      require(!server_.closed(), "the bystander's server is closed", server_.closeReason());
      require(bystander_.mounts().front().complete(), "the bystander's mount", "is not complete");
      std::string const difference = KivTest::firstDifference(*root_, *mirrored_);
      require(difference.empty(), "the bystander differs", difference);
   }

private:
   static constexpr U32 firstHandle = 0x01000000;

   static std::ptrdiff_t helloSize(Bytes const& bytes) {
      return 10 + (bytes[1] << 16 | bytes[2] << 8 | bytes[3]);
   }
   static Bytes mount() {
      std::string_view const type = "KivTest::Root";
      Bytes body(4 + 1 + 4 + type.size() + 4 + 1);
      Kiv::NboAttrLog::Out out(body.data(), body.size());
      out.writeU32(1);
      out.writeU8(static_cast<U8>(MountMode::writer));
      out.writeString(type);
      out.writeString("r");
      return message(Opcode::mount, 0, 0, body);
   }
   void receive(Bytes const& bytes) {
      // Exactly as large as the bytes, so that reading past their end is noticed.
      session_.received(bytes.data(), bytes.size());
   }
   void rest() {
      while (carry(server_, bystander_) + carry(bystander_, server_) != 0) {
      }
   }

   Sarn::Ptr<KivTest::Root> root_;
   Sarn::Ptr<KivTest::Root> mirrored_;
   Hub hub_;
   Hub otherHub_;
   Session session_;
   Session server_;
   Session bystander_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(U8 const* data, std::size_t size) {
   Input in(data, size);
   Scene scene(in.byte());
   scene.play(in);
   scene.check();
   return 0;
}
