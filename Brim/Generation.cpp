#include "Brim/Generation.h"

#include "Kiv/ValueOps.h"

namespace Brim {

Generation::Generation(Kiv::CharRange& text) {
   text.expect(kivTypeName);
   text.expect("(");
   count_ = Kiv::deserializeAttr<U32>(text, "count");
   text.expect(",");
   flag_ = Kiv::deserializeAttr<bool>(text, "flag");
   text.expect(")");
}

Generation::Generation(std::string_view text) {
   Kiv::CharRange range(text);
   *this = Generation(range);
   range.expectEnd();
}

Generation::Generation(Kiv::NboAttrLog::In* in, Kiv::StreamBogon) : count_(in->nextU32()) {
   flag_ = in->nextbool();
}

void Generation::print(Sarn::String& out) const {
   out += "Brim::Generation(count=";
   Kiv::printUnsigned(out, count_);
   out += ", flag=";
   Kiv::printBool(out, flag_);
   out += ')';
}

}  // namespace Brim
