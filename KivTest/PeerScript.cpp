#include "KivTest/PeerScript.h"

#include <algorithm>

#include "KivTest/SimulationChange.h"
#include "KivTest/SimulationTree.h"

namespace KivTest {

using Kiv::NboAttrLog::MountMode;
using Kiv::NboAttrLog::Opcode;
using Kiv::NboAttrLog::Session;
using Bytes = PeerScript::Bytes;

/// Takes bytes from the front of the input; zeros when it is exhausted.
class PeerScript::Input {
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

namespace {

constexpr U32 firstHandle = 0x01000000;
/// More than there are, so that some are unknown; always the same, so that scripts keep their
/// meaning.
constexpr U8 opcodes = 40;
static_assert(static_cast<U8>(Opcode::last_) < opcodes);

Kiv::NboAttrLog::Limits smallLimits() {
   Kiv::NboAttrLog::Limits all;
   all.outputBuffer = 4096;
   all.longestMessage = 1024;
   all.longestValue = 2048;
   all.entities = 256;
   all.nesting = 8;
   return all;
}

/// Drops what a session has to send.
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

std::ptrdiff_t helloSize(Bytes const& bytes) {
   return 10 + (bytes[1] << 16 | bytes[2] << 8 | bytes[3]);
}

/// The peer mounts the root as a writer.
Bytes mount() {
   std::string_view const type = "KivTest::Stem";
   Bytes body(4 + 1 + 4 + type.size() + 4 + 1);
   Kiv::NboAttrLog::Out out(body.data(), body.size());
   out.writeU32(1);
   out.writeU8(static_cast<U8>(MountMode::writer));
   out.writeString(type);
   out.writeString("r");
   return message(Opcode::mount, 0, 0, body);
}

}  // namespace

PeerScript::PeerScript(Bytes const& script)
      : root_(stemFactory("r")),
        mirrored_(stemFactory("r")),
        hub_(smallLimits()),
        otherHub_(smallLimits()),
        session_(hub_),
        server_(hub_),
        bystander_(otherHub_) {
   root_->leafIs(1, true, Opaque(1))->twigIs(Level::low);
   root_->byNumberIs(1, "one");
   root_->samplesEnq(1);
   hub_.rootIs(root_);
   bystander_.mountIs(mirrored_);
   Input in(script.data(), script.size());
   begin(in.byte());
   play(in);
}

void PeerScript::begin(U8 mode) {
   bool const writer = (mode & 1) != 0;
   if (!writer) {
      session_.mountIs(root_);
   }
   if ((mode & 2) == 0) {
      Bytes const hello(session_.output().begin, session_.output().begin + session_.output().size);
      receive(Bytes(hello.begin(), hello.begin() + helloSize(hello)));
      receive(writer ? mount() : message(Opcode::replayBegin, firstHandle, 0, {0, 0, 0, 1}));
      read(session_);
   }
}

void PeerScript::play(Input& in) {
   while (!in.empty()) {
      switch (in.byte() % 5) {
         case 0:
            receive(in.bytes(in.word()));
            break;
         case 1: {
            auto const opcode = static_cast<Opcode>(in.byte() % opcodes);
            U8 const handle = in.byte();
            U16 const attribute = static_cast<U16>(257 + in.byte() % 64);
            receive(message(opcode, handle == 0 ? 0 : firstHandle + handle % 16 - 1, attribute,
                            in.bytes(in.byte())));
            break;
         }
         case 2: {
            Chance chance(in.word());
            changeAtRandom(*root_, chance);
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

std::string PeerScript::check() {
   rest();
   if (session_.closed() && session_.closeReason().empty()) {
      return "closed without a reason";
   }
   if (bystander_.closed()) {
      return "the bystander is closed: " + bystander_.closeReason();
   }
   if (server_.closed()) {
      return "the bystander's server is closed: " + server_.closeReason();
   }
   if (!bystander_.mounts().front().complete()) {
      return "the bystander's mount is not complete";
   }
   std::string const difference = firstDifference(*root_, *mirrored_);
   return difference.empty() ? difference : "the bystander differs: " + difference;
}

void PeerScript::receive(Bytes const& bytes) {
   // Exactly as large as the bytes, so that reading past their end is detected.
   session_.received(bytes.data(), bytes.size());
}

void PeerScript::rest() {
   while (carry(server_, bystander_) + carry(bystander_, server_) != 0) {
   }
}

}  // namespace KivTest
