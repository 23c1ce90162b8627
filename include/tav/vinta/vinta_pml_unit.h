#ifndef TAV_VINTA_PML_UNIT_H
#define TAV_VINTA_PML_UNIT_H

/// PML: its tree with parser and printer, and the codec streams over it.
#include "tav/vinta/vinta_pml_streams.h"
#include "tav/vinta/vinta_pml_tree.h"

#endif
