#ifndef TAV_VINTA_API_H
#define TAV_VINTA_API_H

/// Marks what the shared library exports; everything else is hidden.
#define TAV_API __attribute__((visibility("default")))

#endif
