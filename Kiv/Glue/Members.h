#pragma once

#include "Kiv/AllocTrack.h"
#include "Kiv/Glue/AllSteps.h"
#include "Kiv/Glue/MembersKeyed.h"
#include "Kiv/Glue/MembersQueue.h"
#include "Kiv/Glue/MembersSingle.h"
#include "Kiv/Glue/TextConstant.h"

/// The members of generated entities: what their setters, creating and deleting accessors do.
///
/// The generated function names the member, its id and its bounds; the steps stand here, once.
/// Each function publishes on `owner` with the attribute id that it is given.
