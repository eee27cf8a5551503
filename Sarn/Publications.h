#pragma once

#include "Sarn/Publisher.h"

/// The publications that run on this thread: for who must know inside which a change was made, as
/// the attribute log does. An observer needs none of this.
namespace Sarn::Publications {

/// The innermost one, or null; only to be compared.
void const* innermost() noexcept;
/// The one from inside which `change` was made, or null. REQUIRES: `change` is being told on this
/// thread.
void const* around(Change const& change) noexcept;
/// Calls `visit(context, change)` for each change that is being told on this thread, or has been
/// told to all but whose publication has not returned; not for those whose source is gone.
void forEach(void* context, void (*visit)(void* context, Change const& change));

}  // namespace Sarn::Publications
