#ifndef TAV_VINTA_BASETYPES_PROCESS_H
#define TAV_VINTA_BASETYPES_PROCESS_H

#include "tav/vinta/vinta_api.h"

#include <stdbool.h>

/// Start, end, sleep and keyboard, for C and C++.

#ifdef __cplusplus
extern "C" {
#endif

/// Present for the interface; does nothing.
TAV_API void tav_init(void);
/// Present for the interface; does nothing.
TAV_API void tav_fini(void);
/// Blocks the calling thread for `ms` milliseconds.
TAV_API void tav_sleep(unsigned ms);
/// True if the standard input is a terminal and a key is waiting there.
TAV_API bool tav_kbhit(void);

#ifdef __cplusplus
}
#endif

#endif
