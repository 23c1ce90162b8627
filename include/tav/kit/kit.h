#ifndef TAV_KIT_KIT_H
#define TAV_KIT_KIT_H

/// All of the kit, for users.

#include "tav/kit/check.h"
#include "tav/kit/coroutine.h"
#include "tav/kit/failure.h"
#include "tav/kit/message.h"
#include "tav/kit/result.h"
#include "tav/kit/talk.h"

#endif
