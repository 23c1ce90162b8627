#ifndef TAV_VINTA_XML_NODE_H
#define TAV_VINTA_XML_NODE_H

/// XML: its tree with parser and printer, and the codec streams over it.
#include "tav/vinta/vinta_xml_streams.h"
#include "tav/vinta/vinta_xml_tree.h"

#endif
