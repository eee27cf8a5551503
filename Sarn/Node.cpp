#include "Sarn/Node.h"

namespace Sarn {

Node::~Node() = default;

}  // namespace Sarn
