#ifndef TAV_VINTA_BASETYPES_H
#define TAV_VINTA_BASETYPES_H

/// The foundation: text, bytes, failures and printing, time, plain helpers, locks and the base types of the
/// codec.

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes_bytes.h"
#include "tav/vinta/vinta_basetypes_codec.h"
#include "tav/vinta/vinta_basetypes_containers.h"
#include "tav/vinta/vinta_basetypes_failures.h"
#include "tav/vinta/vinta_basetypes_text.h"
#include "tav/vinta/vinta_basetypes_time.h"
#include "tav/vinta/vinta_basetypes_util.h"
#include "tav/vinta/vinta_locks.h"

#endif
