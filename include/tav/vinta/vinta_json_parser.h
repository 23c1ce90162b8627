#ifndef TAV_VINTA_JSON_PARSER_H
#define TAV_VINTA_JSON_PARSER_H

/// JSON: its tree with parser and printer, and the codec streams over it.
#include "tav/vinta/vinta_json_streams.h"
#include "tav/vinta/vinta_json_tree.h"

#endif
