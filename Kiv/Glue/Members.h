#pragma once

#include "Kiv/AllocTrack.h"
#include "Kiv/Glue/AllSteps.h"
#include "Kiv/Glue/MembersKeyed.h"
#include "Kiv/Glue/MembersQueue.h"
#include "Kiv/Glue/MembersSingle.h"
#include "Kiv/Glue/TextConstant.h"

/// The members of generated entities: the steps of their setters, creating and deleting accessors.
///
/// A generated function only names the member, its id and its bounds; the steps are here, once.
/// Each function publishes on `owner` with the given attribute id.
