#ifndef TAV_VINTA_C_H
#define TAV_VINTA_C_H

/// All that a C program can call.

#include "tav/vinta/vinta_basetypes_containers.h"
#include "tav/vinta/vinta_basetypes_cstr.h"
#include "tav/vinta/vinta_basetypes_process.h"
#include "tav/vinta/vinta_log_c.h"

#endif
