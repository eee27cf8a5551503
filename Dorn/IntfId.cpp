#include "Dorn/IntfId.h"

#include "Dorn/IntfIdCode.h"

namespace Dorn {
namespace {

using IntfIdImpl::Encoded;

constexpr std::string_view blanks = " \t\n\r";
constexpr std::string_view emptyText = "\"\"";
/// How much of a bad name a message shows.
constexpr std::size_t shownSize = 80;

Sarn::String quoted(std::string_view text) {
   Sarn::String out;
   Kiv::printString(out, text.substr(0, shownSize));
   return text.size() > shownSize ? out + "..." : out;
}

[[noreturn]] void refuse(std::string_view name, Encoded const& encoded) {
   Sarn::String message = quoted(name) + " does not fit Dorn::IntfId: ";
   switch (encoded.result) {
      case Encoded::Result::character:
         message += quoted(name.substr(encoded.at, 1)) +
                    " is not allowed in an interface name (letters, digits and . _ - / : are)";
         break;
      case Encoded::Result::number:
         message += "the number at position " + std::to_string(encoded.at) + " exceeds " +
                    std::to_string(IntfIdImpl::maxNumber);
         break;
      default:
         message += "it needs " + std::to_string(encoded.at) + " bits, more than 64";
   }
   Kiv::throwRangeException(message);
}

U64 bitsOf(std::string_view name) {
   Encoded const encoded = IntfIdImpl::encode(name);
   if (encoded.result != Encoded::Result::ok) {
      refuse(name, encoded);
   }
   return encoded.bits;
}

}  // namespace

IntfId::IntfId(std::string_view name) {
   std::size_t const begin = name.find_first_not_of(blanks);
   if (begin == std::string_view::npos) {
      return;
   }
   name = name.substr(begin, name.find_last_not_of(blanks) + 1 - begin);
   if (name != emptyText) {
      bits_ = bitsOf(name);
   }
}

IntfId::IntfId(Kiv::CharRange& text) {
   if (text.accept(emptyText)) {
      return;
   }
   std::string_view const name = text.word("._-/:");
   if (name.empty()) {
      text.fail("expected an interface name, or \"\" for none");
   }
   bits_ = bitsOf(name);
}

std::optional<IntfId> IntfId::fromBits(U64 bits) noexcept {
   IntfIdImpl::NameBuffer buffer;
   if (bits != 0 && IntfIdImpl::decode(bits, buffer).empty()) {
      return std::nullopt;
   }
   IntfId id;
   id.bits_ = bits;
   return id;
}

IntfId::IntfId(Kiv::NboAttrLog::In* in, Kiv::StreamBogon) {
   std::optional<IntfId> const id = fromBits(in->nextU64());
   if (!id) {
      in->fault("the bits of an interface id do not encode a name", kivMaxEncodedSize);
   }
   *this = *id;
}

Sarn::String IntfId::name() const {
   IntfIdImpl::NameBuffer buffer;
   return Sarn::String(IntfIdImpl::decode(bits_, buffer));
}

void IntfId::print(Sarn::String& out) const {
   IntfIdImpl::NameBuffer buffer;
   out += isEmpty() ? emptyText : IntfIdImpl::decode(bits_, buffer);
}

}  // namespace Dorn
