#ifndef TAV_VINTA_H
#define TAV_VINTA_H

/// The whole exported interface of the library.

#include "tav/vinta/vinta_api.h"
#include "tav/vinta/vinta_basetypes.h"
#include "tav/vinta/vinta_im_pkt.h"
#include "tav/vinta/vinta_json2nbr.h"
#include "tav/vinta/vinta_json_parser.h"
#include "tav/vinta/vinta_json_streams.h"
#include "tav/vinta/vinta_locks.h"
#include "tav/vinta/vinta_log.h"
#include "tav/vinta/vinta_mt_thread.h"
#include "tav/vinta/vinta_nbr_compactreader.h"
#include "tav/vinta/vinta_nbr_unit.h"
#include "tav/vinta/vinta_object.h"
#include "tav/vinta/vinta_pml_field_types.h"
#include "tav/vinta/vinta_pml_meta.h"
#include "tav/vinta/vinta_pml_streams.h"
#include "tav/vinta/vinta_pml_unit.h"
#include "tav/vinta/vinta_tls_client.h"
#include "tav/vinta/vinta_tls_failure.h"
#include "tav/vinta/vinta_tls_limits.h"
#include "tav/vinta/vinta_tls_policy.h"
#include "tav/vinta/vinta_tls_statistics.h"
#include "tav/vinta/vinta_transport_message.h"
#include "tav/vinta/vinta_vad.h"
#include "tav/vinta/vinta_xml_node.h"

#endif
