#ifndef TAV_VINTA_LOG_C_H
#define TAV_VINTA_LOG_C_H

#include "tav/vinta/vinta_api.h"

/// Logging for C and C++: the default tag of the logger that a program opens from C++.

#ifdef __cplusplus
extern "C" {
#endif

/// Sets the levels from a level text (null counts as empty) and no callback, and writes the resulting state
/// under the tag "TAV" at OUT, if that is loggable by then.  A malformed text raises as
/// tavLogger::setLogLevel does.
TAV_API void tav_log_setup(char const * levels);

/// Each of these writes `text` and a line feed under the tag "TAV" if its level is loggable there.
TAV_API void tav_log_trace_(char const * text, char const * file, int line, char const * func);
TAV_API void tav_log_verbose_(char const * text, char const * file, int line, char const * func);
TAV_API void tav_log_debug_(char const * text, char const * file, int line, char const * func);
TAV_API void tav_log_info_(char const * text, char const * file, int line, char const * func);
TAV_API void tav_log_warn_(char const * text, char const * file, int line, char const * func);
TAV_API void tav_log_error_(char const * text, char const * file, int line, char const * func);
TAV_API void tav_log_out_(char const * text, char const * file, int line, char const * func);

#ifdef __cplusplus
}
#endif

#endif
