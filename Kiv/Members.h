#pragma once

#include "Kiv/AllSteps.h"
#include "Kiv/AllocTrack.h"
#include "Kiv/MembersKeyed.h"
#include "Kiv/MembersQueue.h"
#include "Kiv/MembersSingle.h"
#include "Kiv/TextConstant.h"

/// The members of generated entities: what their setters, creating and deleting accessors do.
///
/// The generated function names the member, its id and its bounds; the steps stand here, once.
/// Each function publishes on `owner` with the attribute id that it is given.
