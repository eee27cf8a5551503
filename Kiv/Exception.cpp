#include "Kiv/Exception.h"

#include "Kiv/Printable.h"

namespace Kiv {

ParseException::ParseException(Sarn::String const& message, std::size_t position)
      : Exception("at position " + std::to_string(position) + ": " + printable(message)),
        position_(position) {}

void throwRangeException(std::string_view message) {
   throw RangeException(printable(Sarn::String(message)));
}

void throwParseException(std::string_view message, std::size_t position) {
   throw ParseException(Sarn::String(message), position);
}

void throwNewEntityArgsException(std::string_view type, std::string_view fault) {
   throw NewEntityArgsException(Sarn::String(type) +
                                ": constructor arguments of the wrong kind or number" +
                                (fault.empty() ? "" : ": ") + printable(Sarn::String(fault)));
}

void rethrowFromDeserializeAttr(RangeException const& error, std::string_view name) {
   throw RangeException(Sarn::String(name) + ": " + printable(error.what()));
}

namespace GenericIfImpl {

void throwTypeException(std::string_view type) {
   throw TypeException(Sarn::String(type) + ": a value of another type was given");
}

void throwUnhashableException(std::string_view type) {
   throw UnhashableException(Sarn::String(type) + ": values of this type have no hash");
}

}  // namespace GenericIfImpl
}  // namespace Kiv
