#ifndef TAV_FORMATS_XML_XML_MODES_H
#define TAV_FORMATS_XML_XML_MODES_H

/// What the XML sources share of variable descriptions.  Internal.
namespace tav {
namespace xml {
namespace detail {

/// The id of a variable without one.
constexpr int noId = -9999;

/// The dumping modes of a node; 0 is plain data.
constexpr int sampleMode = 1;
constexpr int metadataMode = 2;
constexpr int logMode = 3;

} // namespace detail
} // namespace xml
} // namespace tav

#endif
