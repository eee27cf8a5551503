#include "Sarn/Node.h"

namespace Sarn {

Node::~Node() = default;

void Node::lastUserGoneImpl() noexcept {
   delete this;
}

}  // namespace Sarn
