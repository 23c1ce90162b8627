#ifndef TAV_TESTS_SUPPORT_XML_RIG_H
#define TAV_TESTS_SUPPORT_XML_RIG_H

#include "tav/vinta/vinta_xml_node.h"

#include "support/log_capture.h"

#include <string>

namespace tav_test {

/// The compact text of what `text` is read as.
inline std::string reread(std::string const & text) {
    return tav::xml::Node::fromXml(tav_istr(text))->encode(false, false, 0, true);
}

/// The failure that reading `text` tells in the log; empty if it tells none.  What is left of the text goes
/// to `rest`.
inline std::string failureOf(std::string const & text, std::string * rest = nullptr) {
    LogCapture log;
    tav::xml::Node node;
    std::string left;
    node.decode(tav_istr(text), &left);
    if (rest != nullptr) {
        *rest = left;
    }
    std::string const caught = log.find("<<< EXCEPTION >>> ").text;
    std::size_t const begin = caught.find("XML_DECODE_");
    return begin == std::string::npos ? std::string()
                                      : caught.substr(begin, caught.find('\n', begin) - begin);
}

} // namespace tav_test

#endif
