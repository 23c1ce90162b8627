#ifndef TAV_VINTA_BASETYPES_PROCESS_H
#define TAV_VINTA_BASETYPES_PROCESS_H

#include "tav/vinta/vinta_api.h"

#include <stdbool.h>

/// Start, end, sleep, keyboard and the process's number, for C and C++.

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
/// The system's number of the process; a forked one has another than its parent.
TAV_API unsigned tav_process_id(void);

#ifdef __cplusplus
}
#endif

#endif
