#include "tav/vinta/vinta_xml_streams.h"

#include "formats/xml/xml_modes.h"
#include "foundation/number_text.h"
#include "foundation/views.h"

#include <string_view>

namespace tav {
namespace xml {

using tav::detail::bytesOf;

namespace {

std::string unescaped(std::string const & text) {
    std::string out;
    unescape(out, tav_istr(text));
    return out;
}

std::string_view lastPart(tav_istr name) {
    std::string_view const whole = bytesOf(name);
    std::size_t const colons = whole.rfind("::");
    return colons == std::string_view::npos ? whole : whole.substr(colons + 2);
}

} // namespace

XmlInputStream::XmlInputStream(Node const & node) : borrowed_(&node) {}

XmlInputStream::XmlInputStream(tav_istr text, std::string * rest) : borrowed_(nullptr) {
    own_.decode(text, rest);
}

Node const & XmlInputStream::node() const {
    return borrowed_ != nullptr ? *borrowed_ : own_;
}

std::string const & XmlInputStream::tag() const {
    return node().tag();
}

std::string const & XmlInputStream::content() const {
    return node().content();
}

Attr const & XmlInputStream::attr(tav_istr name) const {
    return node().attr(name);
}

Node const & XmlInputStream::child(tav_istr tag) const {
    return node().child(tag);
}

Attr const & XmlInputStream::operator()(tav_istr name) const {
    return node().attr(name);
}

Node const & XmlInputStream::operator[](tav_istr tag) const {
    return node().child(tag);
}

Node::const_iterator XmlInputStream::begin() const {
    return node().begin();
}

Node::const_iterator XmlInputStream::end() const {
    return node().end();
}

bool XmlInputStream::isNull() const {
    return node().isNull();
}

bool XmlInputStream::decoding() const {
    return true;
}

int XmlInputStream::dumping() const {
    return 0;
}

XmlInputStream const & XmlInputStream::me() const {
    return *this;
}

void XmlInputStream::enter(tav_istr, tav_istr, tav_istr) {}

void XmlInputStream::leave() {}

void XmlInputStream::enterSuper() {}

void XmlInputStream::leaveSuper() {}

void XmlInputStream::read(char & v) const {
    short number = 0;
    if (tav::detail::readIntegerPart(content(), number)) {
        v = static_cast<char>(number);
    }
}

void XmlInputStream::read(unsigned char & v) const {
    unsigned short number = 0;
    v = tav::detail::readIntegerPart(content(), number) ? static_cast<unsigned char>(number)
                                                        : static_cast<unsigned char>(0);
}

void XmlInputStream::read(short & v) const {
    tav::detail::readIntegerPart(content(), v);
}

void XmlInputStream::read(unsigned short & v) const {
    tav::detail::readIntegerPart(content(), v);
}

void XmlInputStream::read(int & v) const {
    tav::detail::readIntegerPart(content(), v);
}

void XmlInputStream::read(unsigned int & v) const {
    tav::detail::readIntegerPart(content(), v);
}

void XmlInputStream::read(long & v) const {
    tav::detail::readIntegerPart(content(), v);
}

void XmlInputStream::read(unsigned long & v) const {
    tav::detail::readIntegerPart(content(), v);
}

void XmlInputStream::read(long long & v) const {
    tav::detail::readIntegerPart(content(), v);
}

void XmlInputStream::read(unsigned long long & v) const {
    tav::detail::readIntegerPart(content(), v);
}

void XmlInputStream::read(float & v) const {
    tav::detail::readFloatingPart(content(), v);
}

void XmlInputStream::read(double & v) const {
    tav::detail::readFloatingPart(content(), v);
}

void XmlInputStream::read(bool & v) const {
    std::string const & text = content();
    if (text == "1" || text == "true" || text == "on") {
        v = true;
    } else if (text == "0" || text == "false" || text == "off") {
        v = false;
    }
}

void XmlInputStream::read(tavString & v) const {
    v = tavString(unescaped(content()));
}

void XmlInputStream::read(std::string & v) const {
    v = unescaped(content());
}

void XmlInputStream::read(std::wstring & v) const {
    v = tavString(unescaped(content())).toWstring();
}

void XmlInputStream::read(tavBytes & v) const {
    tavBase64::decode(tav_istr(content()), v);
}

void XmlInputStream::read(tavTime & v) const {
    v = tavTime::from(tav_istr(content()));
}

XmlOutputStream::XmlOutputStream() : borrowed_(nullptr) {}

XmlOutputStream::XmlOutputStream(Node & node) : borrowed_(&node) {}

XmlOutputStream::XmlOutputStream(tav_istr tag) : borrowed_(nullptr), own_(tag) {}

Node & XmlOutputStream::node() const {
    return borrowed_ != nullptr ? *borrowed_ : own_;
}

std::string const & XmlOutputStream::tag() const {
    return node().tag();
}

std::string const & XmlOutputStream::content() const {
    return static_cast<Node const &>(node()).content();
}

Attr & XmlOutputStream::attr(tav_istr name) {
    return node().attr(name);
}

Node & XmlOutputStream::child(tav_istr tag) {
    return node().child(tag);
}

Node & XmlOutputStream::newChild() {
    return node().newChild();
}

Attr & XmlOutputStream::operator()(tav_istr name) {
    return node().attr(name);
}

Node & XmlOutputStream::operator[](tav_istr tag) {
    return node().child(tag);
}

bool XmlOutputStream::decoding() const {
    return false;
}

int XmlOutputStream::dumping() const {
    return 0;
}

XmlOutputStream & XmlOutputStream::me() {
    return *this;
}

std::string const & XmlOutputStream::encode(bool pretty, bool skipEmpty, int level) const {
    return node().encode(pretty, skipEmpty, level, true);
}

std::string const & XmlOutputStream::str(bool pretty) const {
    return encode(pretty, !pretty, 1);
}

void XmlOutputStream::enter(tav_istr name, tav_istr, tav_istr tag) {
    if (node().tag().empty()) {
        node().tag(tag.empty() ? name : tag);
    }
}

void XmlOutputStream::leave() {}

void XmlOutputStream::enterSuper() {}

void XmlOutputStream::leaveSuper() {}

void XmlOutputStream::write(char v) {
    write(static_cast<short>(v));
}

void XmlOutputStream::write(unsigned char v) {
    write(static_cast<unsigned short>(v));
}

void XmlOutputStream::write(short v) {
    tav::detail::appendNumber(node().text(), v);
}

void XmlOutputStream::write(unsigned short v) {
    tav::detail::appendNumber(node().text(), v);
}

void XmlOutputStream::write(int v) {
    tav::detail::appendNumber(node().text(), v);
}

void XmlOutputStream::write(unsigned int v) {
    tav::detail::appendNumber(node().text(), v);
}

void XmlOutputStream::write(long v) {
    tav::detail::appendNumber(node().text(), v);
}

void XmlOutputStream::write(unsigned long v) {
    tav::detail::appendNumber(node().text(), v);
}

void XmlOutputStream::write(long long v) {
    tav::detail::appendNumber(node().text(), v);
}

void XmlOutputStream::write(unsigned long long v) {
    tav::detail::appendNumber(node().text(), v);
}

void XmlOutputStream::write(float v) {
    write(static_cast<double>(v));
}

void XmlOutputStream::write(double v) {
    tav::detail::appendNumber(node().text(), v);
}

void XmlOutputStream::write(bool v) {
    node().text() += v ? "true" : "false";
}

void XmlOutputStream::write(char const * v) {
    node().text() += v == nullptr ? "" : v;
}

void XmlOutputStream::write(tav_istr v) {
    node().text() += bytesOf(v);
}

void XmlOutputStream::write(tavString const & v) {
    write(tav_istr(v));
}

void XmlOutputStream::write(std::string const & v) {
    node().text() += v;
}

void XmlOutputStream::write(std::wstring const & v) {
    tavString text;
    text.fromWstring(tav_iwstr(v));
    write(tav_istr(text));
}

void XmlOutputStream::write(tavBytes const & v) {
    std::string text;
    tavBase64::encode(tav_istr(v), text, false);
    write(text);
}

void XmlOutputStream::write(tavTime const & v) {
    write(v.str());
}

XmlDumpStream::XmlDumpStream(Node & node, int mode) : XmlOutputStream(node), dumping_(mode) {}

XmlDumpStream::XmlDumpStream(int mode) : dumping_(mode) {}

XmlDumpStream::XmlDumpStream(tav_istr tag, int mode) : XmlOutputStream(tag), dumping_(mode) {}

int XmlDumpStream::dumping() const {
    return dumping_;
}

void XmlDumpStream::dumping(int mode) {
    dumping_ = mode;
}

bool XmlDumpStream::dumpingLog() const {
    return dumping_ == detail::logMode;
}

bool XmlDumpStream::dumpingMetadata() const {
    return dumping_ == detail::metadataMode;
}

bool XmlDumpStream::dumpingSample() const {
    return dumping_ == detail::sampleMode;
}

void XmlDumpStream::enter(tav_istr name, tav_istr base, tav_istr tag) {
    std::string_view const part = lastPart(name);
    XmlOutputStream::enter(tav::detail::viewOf(part), base, tag);
    node().vartype() = bytesOf(name);
    node().superclass() = bytesOf(base);
    node().dumping(dumping_);
}

std::string XmlDumpStream::protectedValue(unsigned int size) {
    return "***[" + std::to_string(size) + "]";
}

} // namespace xml
} // namespace tav

namespace {

tavSharedPtr<tavCodecStream> inputOver(tav::xml::Node const & node) {
    return tavSharedPtr<tavCodecStream>(new tavXmlInStream(new tavXmlInStreamImpl(node), true));
}

tavSharedPtr<tavCodecStream> outputOver(tav::xml::Node & node) {
    return tavSharedPtr<tavCodecStream>(new tavXmlOutStream(new tavXmlOutStreamImpl(node), true));
}

} // namespace

tavXmlInStream::tavXmlInStream(tav_istr text) : impl_(new tavXmlInStreamImpl(text)), owns_(true) {}

tavXmlInStream::tavXmlInStream(tavXmlInStreamImpl * impl, bool owns) : impl_(impl), owns_(owns) {}

tavXmlInStream::~tavXmlInStream() {
    if (owns_) {
        delete impl_;
    }
}

bool tavXmlInStream::isNull() const {
    return impl_->isNull();
}

bool tavXmlInStream::isOutputStream() const {
    return false;
}

tavSharedPtr<tavCodecStream> tavXmlInStream::child(int, tav_istr name) {
    tav::xml::Node const & found = impl_->child(name);
    return found.isNull() ? tavSharedPtr<tavCodecStream>() : inputOver(found);
}

tavSharedPtr<tavCodecStream> tavXmlInStream::getOutputChild() {
    return nullptr;
}

void tavXmlInStream::getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> & children) {
    for (tavSharedPtr<tav::xml::Node> const & node : impl_->node()) {
        children.push_back(inputOver(*node));
    }
}

bool tavXmlInStream::isMapEntryCombined() const {
    return true;
}

void tavXmlInStream::getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> & children) {
    for (tavSharedPtr<tav::xml::Node> const & node : impl_->node()) {
        children[tavString(node->tag())] = inputOver(*node);
    }
}

void tavXmlInStream::enter(tav_istr, tav_istr) {}

void tavXmlInStream::leave() {}

void tavXmlInStream::io(tavTime & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(tavBytes & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(tavString & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(double & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(float & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(unsigned long long & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(long long & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(unsigned long & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(long & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(unsigned int & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(int & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(unsigned short & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(short & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(unsigned char & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(char & v, tavCodecMeta const &) {
    *impl_ >> v;
}

void tavXmlInStream::io(bool & v, tavCodecMeta const &) {
    *impl_ >> v;
}

tav_istr tavXmlInStream::name() const {
    return tav_istr(impl_->tag());
}

tavXmlOutStream::tavXmlOutStream(tav_istr tag) : impl_(new tavXmlOutStreamImpl(tag)), owns_(true) {}

tavXmlOutStream::tavXmlOutStream(tavXmlOutStreamImpl * impl, bool owns) : impl_(impl), owns_(owns) {}

tavXmlOutStream::~tavXmlOutStream() {
    if (owns_) {
        delete impl_;
    }
}

bool tavXmlOutStream::isNull() const {
    return false;
}

bool tavXmlOutStream::isOutputStream() const {
    return true;
}

tavSharedPtr<tavCodecStream> tavXmlOutStream::child(int, tav_istr name) {
    return outputOver(impl_->child(name));
}

tavSharedPtr<tavCodecStream> tavXmlOutStream::getOutputChild() {
    return outputOver(impl_->newChild());
}

void tavXmlOutStream::getInputChildren(std::vector<tavSharedPtr<tavCodecStream>> &) {}

bool tavXmlOutStream::isMapEntryCombined() const {
    return true;
}

void tavXmlOutStream::getInputChildMap(std::map<tavString, tavSharedPtr<tavCodecStream>> &) {}

void tavXmlOutStream::enter(tav_istr className, tav_istr baseName) {
    impl_->enter(className, baseName, tav_istr(impl_->tag()));
}

void tavXmlOutStream::leave() {}

void tavXmlOutStream::io(tavTime & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(tavBytes & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(tavString & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(double & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(float & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(unsigned long long & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(long long & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(unsigned long & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(long & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(unsigned int & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(int & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(unsigned short & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(short & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(unsigned char & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(char & v, tavCodecMeta const &) {
    *impl_ << v;
}

void tavXmlOutStream::io(bool & v, tavCodecMeta const &) {
    *impl_ << v;
}

tav_istr tavXmlOutStream::name() const {
    return tav_istr(impl_->tag());
}

tavString tavXmlOutStream::str(bool pretty) const {
    return tavString(impl_->str(pretty));
}
