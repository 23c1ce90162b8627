#ifndef TAV_VINTA_API_H
#define TAV_VINTA_API_H

#if defined(__cplusplus) && __cplusplus < 201703L
// A file that does not exist ends the compiler's run here, so that this one line is all it says.
#include "tav_im_nbr needs C++17 or later, such as -std=c++17"
#endif

/// The version of these headers.  `tav::version_t::release` tells that of the library that is linked.
#define TAV_VERSION_MAJOR 1
#define TAV_VERSION_MINOR 0
#define TAV_VERSION_PATCH 0

/// Marks what the shared library exports; everything else is hidden.
#define TAV_API __attribute__((visibility("default")))

#endif
