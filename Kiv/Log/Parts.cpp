#include "Kiv/Log/Parts.h"

#include <algorithm>
#include <new>
#include <utility>

namespace Kiv::NboAttrLog {

std::unique_ptr<PartsOut> PartsOut::make(Header const& header, ByteBudget& budget) noexcept {
   std::unique_ptr<PartsOut> made(new (std::nothrow) PartsOut);
   if (made == nullptr || !budget.change(0, header.bodySize)) {
      return nullptr;
   }
   made->header_ = header;
   made->budget_ = &budget;
   made->body_.reset(new (std::nothrow) U8[header.bodySize]);
   return made->body_ != nullptr ? std::move(made) : nullptr;
}

PartsOut::~PartsOut() {
   if (budget_ != nullptr) {
      budget_->change(header_.bodySize, 0);
   }
}

std::vector<U8> PartsIn::take() noexcept {
   budget_.change(bytes_.capacity(), 0);
   return std::exchange(bytes_, {});
}

void PartsOut::write(Out& out, std::size_t size) noexcept {
   writeHeader(out, {Opcode::part, static_cast<U32>(partHeaderSize + size), header_.handle,
                     header_.attribute});
   out.writeU8(static_cast<U8>(header_.opcode));
   out.writeU32(header_.bodySize);
   out.writeU32(static_cast<U32>(written_));
   out.writeBytes(body_.get() + written_, size);
   written_ += size;
}

bool PartsIn::add(Header const& header, In& in, std::size_t (*bound)(void* context, Opcode opcode),
                  void* context) {
   auto const opcode = static_cast<Opcode>(in.nextU8());
   U32 const total = in.nextU32();
   U32 const offset = in.nextU32();
   std::size_t const size = in.readableBytes();
   if (any()) {
      if (opcode != header_.opcode || total != header_.bodySize ||
          header.handle != header_.handle || header.attribute != header_.attribute) {
         in.fault("a part of another message comes between the parts of one", partHeaderSize);
      }
   } else {
      if (opcode <= Opcode::hello || opcode == Opcode::part || opcode > Opcode::last_) {
         in.fault("a message of kind " + std::to_string(static_cast<unsigned>(opcode)) +
                        " does not come in parts",
                  partHeaderSize);
      }
      std::size_t const most = bound(context, opcode);
      if (total > most) {
         in.fault("a message of " + std::to_string(total) +
                        " bytes in parts exceeds the bound of " + std::to_string(most),
                  8);
      }
   }
   if (offset != bytes_.size()) {
      in.fault("a part begins at " + std::to_string(offset) + ", where " +
                     std::to_string(bytes_.size()) + " bytes have come",
               4);
   }
   if (size == 0 || size > total - offset) {
      in.fault("a part of " + std::to_string(size) + " bytes stands where " +
               std::to_string(total - offset) + " are left");
   }
   // Reserve in proportion to what has arrived, not to what the peer has announced.
   std::size_t const before = bytes_.capacity();
   if (before - bytes_.size() < size) {
      std::size_t const wanted = std::min<std::size_t>(total, (bytes_.size() + size) * 2);
      if (!budget_.change(before, wanted)) {
         in.fault("there is no room for the " + std::to_string(wanted) +
                  " bytes of its parts: the connections hold as much as they may");
      }
      try {
         bytes_.reserve(wanted);
      } catch (...) {
         budget_.change(wanted, before);
         throw;
      }
      budget_.change(wanted, bytes_.capacity());
   }
   U8 const* const bytes = in.nextBytes(size);
   bytes_.insert(bytes_.end(), bytes, bytes + size);
   header_ = {opcode, total, header.handle, header.attribute};
   return bytes_.size() == total;
}

}  // namespace Kiv::NboAttrLog
