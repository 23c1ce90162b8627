#ifndef TAV_FORMATS_XML_XML_MODES_H
#define TAV_FORMATS_XML_XML_MODES_H

/// What the XML sources share of variable descriptions.  Internal.
namespace tav {
namespace xml {
namespace detail {

/// The id of a variable without one.
constexpr int NO_ID = -9999;

/// The dumping modes of a node; 0 is plain data.
constexpr int SAMPLE = 1;
constexpr int METADATA = 2;
constexpr int LOG = 3;

} // namespace detail
} // namespace xml
} // namespace tav

#endif
