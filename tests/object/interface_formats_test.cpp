#include "tav/vinta/vinta_pml_unit.h"

#include "tav/vinta/vinta_im_pkt.h"
#include "tav/vinta/vinta_json2nbr.h"
#include "tav/vinta/vinta_transport_message.h"
#include "tav/vinta/vinta_xml_node.h"

#include "support/exact.h"

#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using tav_test::ConstOp;
using tav_test::exact;
using tav_test::isCopied;
using tav_test::onlyExplicit;
using tav_test::Op;

// What programs compile against: the exact forms of PML, XML, the transcoder, the packets and the gate
// message.

namespace {

/// Whether there are both forms of an operation, the writing one answering R and the reading one CR.
template <class C, class R, class CR, class... A>
constexpr bool both(Op<C, R, A...>, ConstOp<C, CR, A...>) {
    return true;
}

template <class S, class T>
constexpr bool carries = exact<Op<S, void, T &, tavCodecMeta const &>>(&S::io);
template <class S>
constexpr bool isCodecStream =
    std::is_base_of<tavCodecStream, S>::value && !std::is_abstract<S>::value && carries<S, tavTime> &&
    carries<S, tavBytes> && carries<S, tavString> && carries<S, double> && carries<S, float> &&
    carries<S, unsigned long long> && carries<S, long long> && carries<S, unsigned long> &&
    carries<S, long> && carries<S, unsigned int> && carries<S, int> && carries<S, unsigned short> &&
    carries<S, short> && carries<S, unsigned char> && carries<S, char> && carries<S, bool> &&
    std::is_void<decltype(std::declval<S &>().io(std::declval<std::string &>(), tavCodecMeta()))>::value &&
    std::is_void<decltype(std::declval<S &>().io(std::declval<tavWstring &>(), tavCodecMeta()))>::value &&
    std::is_void<decltype(std::declval<S &>().io(std::declval<wchar_t &>(), tavCodecMeta()))>::value;

template <class S, class T>
constexpr bool reads = exact<ConstOp<S, S const &, T &>>(&S::template operator>><T>);
template <class S, class T>
constexpr bool writes = exact<Op<S, S &, T const &>>(&S::template operator<< <T>);
template <class S>
constexpr bool readsAll = reads<S, char> && reads<S, unsigned char> && reads<S, short> &&
    reads<S, unsigned short> && reads<S, int> && reads<S, unsigned int> && reads<S, long> &&
        reads<S, unsigned long> && reads<S, long long> && reads<S, unsigned long long> && reads<S, float> &&
            reads<S, double> && reads<S, bool> && reads<S, tavString> && reads<S, std::string> &&
                reads<S, std::wstring> && reads<S, tavBytes> && reads<S, tavTime>;
template <class S>
constexpr bool writesAll = writes<S, char> && writes<S, unsigned char> && writes<S, short> &&
    writes<S, unsigned short> && writes<S, int> && writes<S, unsigned int> && writes<S, long> &&
        writes<S, unsigned long> && writes<S, long long> && writes<S, unsigned long long> &&
            writes<S, float> && writes<S, double> && writes<S, bool> && writes<S, char const *> &&
                writes<S, tav_istr> && writes<S, tavString> && writes<S, std::string> &&
                    writes<S, std::wstring> && writes<S, tavBytes> && writes<S, tavTime>;
template <class S>
constexpr bool
    walks = exact<Op<S, void, tav_istr, tav_istr, tav_istr>>(&S::enter) && exact<Op<S, void>>(&S::leave) &&
            exact<Op<S, void>>(&S::enterSuper) && exact<Op<S, void>>(&S::leaveSuper);

using Text = std::string;
using TextOut = Text const &;

namespace pml = tav::pml;
using pml::Unit;
using UnitPtr = tavSharedPtr<Unit>;

static_assert(exact<bool (*)(char)>(&pml::isEscapeChar) && exact<bool (*)(char)>(&pml::isSpecialChar));
static_assert(exact<void (*)(Text &, tav_istr const &)>(&pml::escape) &&
              exact<void (*)(Text &, tav_istr const &)>(&pml::unescape));
static_assert(std::is_base_of<tavRefCountObject, Unit>::value && isCopied<Unit> &&
              std::is_default_constructible<Unit>::value);
static_assert(std::is_same<Unit::const_iterator, std::vector<UnitPtr>::const_iterator>::value);
static_assert(std::is_same<Unit::map_iterator, std::multimap<Text, UnitPtr>::const_iterator>::value);
static_assert(onlyExplicit<Unit, int> && onlyExplicit<Unit, tav_istr>);
static_assert(std::is_constructible<Unit, tav_istr, tav_istr>::value &&
              std::is_constructible<Unit, tav_istr, tav_istr, tav_istr>::value);
static_assert(both<Unit, Text &, TextOut>(&Unit::name, &Unit::name) &&
              both<Unit, Text &, TextOut>(&Unit::type, &Unit::type) &&
              both<Unit, Text &, TextOut>(&Unit::value, &Unit::value));
static_assert(exact<ConstOp<Unit, TextOut>>(&Unit::comment));
static_assert(exact<Op<Unit, Unit &, tav_istr>>(&Unit::name) &&
              exact<Op<Unit, Unit &, tav_istr>>(&Unit::type) &&
              exact<Op<Unit, Unit &, tav_istr>>(&Unit::value));
static_assert(exact<ConstOp<Unit, int>>(&Unit::id) && exact<Op<Unit, Unit &, int>>(&Unit::id));
static_assert(both<Unit, Unit &, Unit const &, tav_istr>(&Unit::child, &Unit::child) &&
              both<Unit, Unit &, Unit const &, tav_istr>(&Unit::operator[], &Unit::operator[]) &&
              both<Unit, Unit &, Unit const &, tav_istr>(&Unit::operator(), &Unit::operator()) &&
              both<Unit, Unit &, Unit const &, tav_istr, tav_istr, int>(&Unit::child, &Unit::child));
static_assert(exact<ConstOp<Unit, bool, tav_istr>>(&Unit::hasChild) &&
              both<Unit, UnitPtr, UnitPtr, tav_istr>(&Unit::find, &Unit::find));
static_assert(exact<ConstOp<Unit, Unit const &, unsigned>>(&Unit::at) &&
              exact<ConstOp<Unit, UnitPtr, unsigned>>(&Unit::findAt));
static_assert(exact<ConstOp<Unit, std::vector<UnitPtr>>>(&Unit::children) &&
              exact<ConstOp<Unit, std::vector<UnitPtr>, tav_istr>>(&Unit::children));
static_assert(exact<ConstOp<Unit, std::pair<Unit::map_iterator, Unit::map_iterator>, tav_istr>>(
    &Unit::child_equal_range));
static_assert(exact<ConstOp<Unit, Unit::const_iterator>>(&Unit::begin) &&
              exact<ConstOp<Unit, Unit::const_iterator>>(&Unit::end));
static_assert(exact<ConstOp<Unit, unsigned>>(&Unit::size) &&
              exact<ConstOp<Unit, unsigned>>(&Unit::numofChildren));
static_assert(exact<Op<Unit, void, UnitPtr>>(&Unit::addChild) &&
              exact<Op<Unit, void, Unit const &>>(&Unit::append) &&
              exact<Op<Unit, Unit &>>(&Unit::newChild) && exact<Op<Unit, void>>(&Unit::clear) &&
              exact<Op<Unit, void, Unit const &>>(&Unit::setValue));
static_assert(exact<ConstOp<Unit, UnitPtr>>(&Unit::next) && exact<Op<Unit, void, UnitPtr>>(&Unit::next) &&
              exact<ConstOp<Unit, UnitPtr>>(&Unit::getNext) && exact<Op<Unit, UnitPtr>>(&Unit::createNext));
static_assert(exact<ConstOp<Unit, Text>>(&Unit::asStringValue) &&
              exact<ConstOp<Unit, bool>>(&Unit::asBoolValue) &&
              exact<ConstOp<Unit, long long>>(&Unit::asInt64Value) &&
              exact<ConstOp<Unit, double>>(&Unit::asDoubleValue));
static_assert(exact<ConstOp<Unit, bool>>(&Unit::simple) && exact<ConstOp<Unit, bool>>(&Unit::empty) &&
              exact<ConstOp<Unit, bool>>(&Unit::isNull));
static_assert(exact<Unit const & (*)()>(&Unit::null) && exact<UnitPtr (*)(tav_istr)>(&Unit::byValue) &&
              exact<Op<Unit, Unit &, tav_istr>>(&Unit::decode));
static_assert(exact<ConstOp<Unit, Text, bool, bool, int, bool, bool>>(&Unit::encode) &&
              exact<ConstOp<Unit, void, Text &, bool, bool, int, bool, bool>>(&Unit::encode));
static_assert(exact<ConstOp<Unit, Text, bool, bool>>(&Unit::toCompacted) &&
              exact<ConstOp<Unit, Text>>(&Unit::toPml) && exact<ConstOp<Unit, Text>>(&Unit::toFormatted) &&
              exact<ConstOp<Unit, Text>>(&Unit::toFullFormatted) &&
              exact<ConstOp<Unit, Text, bool, bool, bool>>(&Unit::toString));
static_assert(exact<std::ostream & (*)(std::ostream &, Unit const &)>(&pml::operator<<));

using PmlIn = pml::PmlInputStream;
static_assert(std::is_default_constructible<PmlIn>::value && std::is_copy_constructible<PmlIn>::value);
static_assert(std::is_convertible<Unit const &, PmlIn>::value && std::is_convertible<UnitPtr, PmlIn>::value &&
              std::is_convertible<tav_istr, PmlIn>::value);
static_assert(exact<ConstOp<PmlIn, Unit const &>>(&PmlIn::unit) &&
              exact<ConstOp<PmlIn, UnitPtr>>(&PmlIn::unitPtr) &&
              exact<ConstOp<PmlIn, PmlIn const &>>(&PmlIn::me));
static_assert(exact<ConstOp<PmlIn, TextOut>>(&PmlIn::name) && exact<ConstOp<PmlIn, TextOut>>(&PmlIn::type) &&
              exact<ConstOp<PmlIn, TextOut>>(&PmlIn::value));
static_assert(exact<ConstOp<PmlIn, Unit const &, tav_istr>>(&PmlIn::child) &&
              exact<ConstOp<PmlIn, Unit const &, tav_istr, tav_istr>>(&PmlIn::child) &&
              exact<ConstOp<PmlIn, Unit const &, tav_istr>>(&PmlIn::operator[]));
static_assert(exact<ConstOp<PmlIn, Unit::const_iterator>>(&PmlIn::begin) &&
              exact<ConstOp<PmlIn, Unit::const_iterator>>(&PmlIn::end) &&
              exact<ConstOp<PmlIn, UnitPtr>>(&PmlIn::next));
static_assert(exact<ConstOp<PmlIn, bool>>(&PmlIn::isEmpty) && exact<ConstOp<PmlIn, bool>>(&PmlIn::isNull) &&
              exact<ConstOp<PmlIn, Text>>(&PmlIn::str) && exact<ConstOp<PmlIn, bool>>(&PmlIn::decoding) &&
              exact<ConstOp<PmlIn, int>>(&PmlIn::dumping));
static_assert(walks<PmlIn> && readsAll<PmlIn>);

using PmlOut = pml::PmlOutputStream;
static_assert(std::is_default_constructible<PmlOut>::value && std::is_copy_constructible<PmlOut>::value);
static_assert(std::is_convertible<Unit &, PmlOut>::value && std::is_convertible<UnitPtr, PmlOut>::value &&
              std::is_convertible<tav_istr, PmlOut>::value);
static_assert(exact<ConstOp<PmlOut, Unit &>>(&PmlOut::unit) && exact<Op<PmlOut, PmlOut &>>(&PmlOut::me));
static_assert(both<PmlOut, Text &, TextOut>(&PmlOut::name, &PmlOut::name) &&
              both<PmlOut, Text &, TextOut>(&PmlOut::type, &PmlOut::type) &&
              both<PmlOut, Text &, TextOut>(&PmlOut::value, &PmlOut::value));
static_assert(exact<Op<PmlOut, Unit &, tav_istr>>(&PmlOut::child) &&
              exact<Op<PmlOut, Unit &, tav_istr, tav_istr, int>>(&PmlOut::child) &&
              exact<Op<PmlOut, Unit &, tav_istr>>(&PmlOut::operator[]) &&
              exact<Op<PmlOut, Unit &>>(&PmlOut::newChild));
static_assert(exact<ConstOp<PmlOut, bool>>(&PmlOut::decoding) &&
              exact<ConstOp<PmlOut, int>>(&PmlOut::dumping) &&
              exact<Op<PmlOut, void, int>>(&PmlOut::dumping));
static_assert(walks<PmlOut> && writesAll<PmlOut>);
static_assert(exact<ConstOp<PmlOut, Text, bool, bool, int, bool, bool>>(&PmlOut::encode) &&
              exact<ConstOp<PmlOut, Text, bool, bool>>(&PmlOut::str));

static_assert(std::is_same<tavPmlInStreamImpl, PmlIn>::value &&
              std::is_same<tavPmlOutStreamImpl, PmlOut>::value);
static_assert(isCodecStream<tavPmlInStream> && onlyExplicit<tavPmlInStream, tav_istr> &&
              std::is_constructible<tavPmlInStream, tavPmlInStreamImpl *, bool>::value);
static_assert(exact<ConstOp<tavPmlInStream, tav_istr>>(&tavPmlInStream::name) &&
              exact<ConstOp<tavPmlInStream, tav_istr>>(&tavPmlInStream::type) &&
              exact<ConstOp<tavPmlInStream, bool>>(&tavPmlInStream::valueIsEmpty));
static_assert(isCodecStream<tavPmlOutStream> && std::is_default_constructible<tavPmlOutStream>::value &&
              std::is_constructible<tavPmlOutStream, tavPmlOutStreamImpl *, bool>::value);
static_assert(exact<Op<tavPmlOutStream, tavPmlOutStream &, tav_istr>>(&tavPmlOutStream::name) &&
              exact<Op<tavPmlOutStream, tavPmlOutStream &, tav_istr>>(&tavPmlOutStream::type) &&
              exact<ConstOp<tavPmlOutStream, tav_istr>>(&tavPmlOutStream::name) &&
              exact<ConstOp<tavPmlOutStream, tav_istr>>(&tavPmlOutStream::type) &&
              exact<ConstOp<tavPmlOutStream, Text, bool, bool>>(&tavPmlOutStream::str));

using Model = pml::MetaFactory;
static_assert(
    exact<void (*)(tav_istr, tavBytes &, unsigned short &, Model const &, tav_istr)>(&tav::json2nbr::write));
static_assert(
    exact<void (*)(tavString &, tav_istr, tavString, Model const &, bool)>(&tav::json2nbr::read) &&
    exact<void (*)(tavString &, tav_istr, unsigned short, Model const &, bool)>(&tav::json2nbr::read));

namespace xml = tav::xml;
using Number = tavNumber<int, 0>;
using Flag = tavNumber<bool, 0>;
template <class C>
constexpr bool
    setsMeta = exact<Op<C, void, int, tav_istr, tav_istr, tav_istr, bool, bool, bool>>(&C::setMeta);

static_assert(exact<TextOut (*)()>(&xml::nullString) &&
              exact<void (*)(Text &, char const *, bool)>(&xml::escape) &&
              exact<void (*)(Text &, char const *)>(&xml::escapeAttr) &&
              exact<void (*)(Text &, tav_istr)>(&xml::unescape));
static_assert(exact<void (*)(Text &)>(&xml::encode_cdata) && exact<void (*)(Text &)>(&xml::decode_cdata));

using xml::MetaInfo;
static_assert(std::is_default_constructible<MetaInfo>::value && isCopied<MetaInfo> && setsMeta<MetaInfo>);
static_assert(std::is_constructible<MetaInfo, int, tav_istr, tav_istr, tav_istr, bool, bool, bool>::value);
static_assert(exact<ConstOp<MetaInfo, void, Text &>>(&MetaInfo::dump) &&
              exact<ConstOp<MetaInfo, void, Text &>>(&MetaInfo::dumpId));
static_assert(exact<Number MetaInfo::*>(&MetaInfo::varid) && exact<Flag MetaInfo::*>(&MetaInfo::optional) &&
              exact<Flag MetaInfo::*>(&MetaInfo::multiple) && exact<Flag MetaInfo::*>(&MetaInfo::hexical) &&
              exact<Flag MetaInfo::*>(&MetaInfo::protectedValue));
static_assert(exact<Text MetaInfo::*>(&MetaInfo::vartype) && exact<Text MetaInfo::*>(&MetaInfo::superclass) &&
              exact<Text MetaInfo::*>(&MetaInfo::defaultValue) &&
              exact<Text MetaInfo::*>(&MetaInfo::values) && exact<Text MetaInfo::*>(&MetaInfo::varname) &&
              exact<Text MetaInfo::*>(&MetaInfo::memo));

using xml::VarInfo;
static_assert(std::is_base_of<tavRefCountObject, VarInfo>::value && std::is_abstract<VarInfo>::value &&
              std::is_copy_assignable<VarInfo>::value && setsMeta<VarInfo>);
static_assert(exact<ConstOp<VarInfo, TextOut>>(&VarInfo::name) &&
              exact<ConstOp<VarInfo, TextOut>>(&VarInfo::value));
static_assert(both<VarInfo, Number &, int>(&VarInfo::varid, &VarInfo::varid) &&
              both<VarInfo, Flag &, bool>(&VarInfo::optional, &VarInfo::optional) &&
              both<VarInfo, Flag &, bool>(&VarInfo::multiple, &VarInfo::multiple) &&
              both<VarInfo, Flag &, bool>(&VarInfo::hexical, &VarInfo::hexical) &&
              both<VarInfo, Flag &, bool>(&VarInfo::protectedValue, &VarInfo::protectedValue));
static_assert(both<VarInfo, Text &, TextOut>(&VarInfo::vartype, &VarInfo::vartype) &&
              both<VarInfo, Text &, TextOut>(&VarInfo::superclass, &VarInfo::superclass) &&
              both<VarInfo, Text &, TextOut>(&VarInfo::defaultValue, &VarInfo::defaultValue) &&
              both<VarInfo, Text &, TextOut>(&VarInfo::values, &VarInfo::values) &&
              both<VarInfo, Text &, TextOut>(&VarInfo::varname, &VarInfo::varname) &&
              both<VarInfo, Text &, TextOut>(&VarInfo::memo, &VarInfo::memo));
static_assert(exact<ConstOp<VarInfo, void, Text &, tav_istr, int>>(&VarInfo::dumpSampleValue) &&
              exact<ConstOp<VarInfo, void, Text &>>(&VarInfo::dumpMiniMeta) &&
              exact<ConstOp<VarInfo, Text>>(&VarInfo::getMiniMetaType));
static_assert(exact<Text (*)(tav_istr)>(&VarInfo::getProtectedString) &&
              exact<Text (*)()>(&VarInfo::getProtectedSampleString) &&
              exact<int (*)(tav_istr, Text &)>(&VarInfo::parseType));

template <class T>
constexpr bool isVariable = std::is_base_of<VarInfo, T>::value && std::is_default_constructible<T>::value &&
                                isCopied<T> && exact<ConstOp<T, TextOut>>(&T::name) &&
                            exact<ConstOp<T, TextOut>>(&T::value);
using xml::Attr;
using xml::CommentNode;
using xml::Content;
static_assert(isVariable<Attr> && isVariable<Content> && isVariable<CommentNode>);
static_assert(std::is_constructible<Attr, tav_istr, tav_istr>::value &&
              exact<Op<Attr, Text &>>(&Attr::value));
static_assert(exact<ConstOp<Attr, void, Text &, bool, tav_istr, int>>(&Attr::encode) &&
              exact<void (*)(Text &, tav_istr, tav_istr)>(&Attr::write));
static_assert(exact<Attr const & (*)()>(&Attr::null) && exact<Attr & (*)()>(&Attr::dummy));
static_assert(onlyExplicit<Content, tav_istr> && exact<Op<Content, Text &>>(&Content::value));
static_assert(exact<Op<CommentNode, void, tav_istr>>(&CommentNode::comment));

using xml::Node;
using NodePtr = tavSharedPtr<Node>;
using ContentPtr = tavSharedPtr<Content>;
static_assert(isVariable<Node> && onlyExplicit<Node, tav_istr> &&
              std::is_constructible<Node, tav_istr, tav_istr>::value);
static_assert(std::is_same<Node::const_iterator, std::vector<NodePtr>::const_iterator>::value);
static_assert(exact<NodePtr (*)(tav_istr)>(&Node::fromXml) && exact<Node const & (*)()>(&Node::null) &&
              exact<Node & (*)()>(&Node::dummy));
static_assert(exact<Op<Node, Node &, tav_istr, Text *>>(&Node::decode) &&
              exact<ConstOp<Node, TextOut, bool, bool, int, bool>>(&Node::encode));
static_assert(exact<ConstOp<Node, TextOut>>(&Node::tag) && exact<Op<Node, Node &, tav_istr>>(&Node::tag) &&
              exact<ConstOp<Node, TextOut>>(&Node::content) &&
              exact<Op<Node, Node &, tav_istr>>(&Node::content));
static_assert(both<Node, Text &, TextOut>(&Node::contentString, &Node::contentString) &&
              both<Node, ContentPtr, ContentPtr>(&Node::contentNode, &Node::contentNode) &&
              exact<ConstOp<Node, bool>>(&Node::contentIsEmpty));
static_assert(both<Node, Attr &, Attr const &, tav_istr>(&Node::attr, &Node::attr) &&
              both<Node, Attr &, Attr const &, tav_istr>(&Node::operator(), &Node::operator()) &&
              both<Node, Node &, Node const &, tav_istr>(&Node::child, &Node::child) &&
              both<Node, Node &, Node const &, tav_istr>(&Node::operator[], &Node::operator[]));
static_assert(exact<Op<Node, void, tav_istr, tav_istr>>(&Node::setAttr) &&
              exact<Op<Node, void, Attr *>>(&Node::setAttr) &&
              exact<Op<Node, void, Node *>>(&Node::addChild) &&
              exact<Op<Node, void, tav_istr, tav_istr>>(&Node::addChild) &&
              exact<Op<Node, Node &>>(&Node::newChild));
static_assert(exact<ConstOp<Node, Node::const_iterator>>(&Node::begin) &&
              exact<ConstOp<Node, Node::const_iterator>>(&Node::end));
static_assert(both<Node, Node *, Node const *>(&Node::next, &Node::next) &&
              exact<Op<Node, void, Node *>>(&Node::next) && exact<ConstOp<Node, Node *>>(&Node::getNext) &&
              exact<Op<Node, Node *>>(&Node::createNext));
static_assert(exact<Op<Node, void>>(&Node::clear) && exact<Op<Node, void>>(&Node::clearAttrs) &&
              exact<Op<Node, void>>(&Node::clearContent) && exact<Op<Node, void>>(&Node::clearNodes));
static_assert(exact<ConstOp<Node, bool>>(&Node::isNull) && exact<ConstOp<Node, bool>>(&Node::isEmpty) &&
              exact<ConstOp<Node, bool>>(&Node::isEmptyValue) &&
              exact<ConstOp<Node, bool>>(&Node::isSimple) && exact<ConstOp<Node, bool>>(&Node::operator!));
static_assert(exact<ConstOp<Node, void *>>(&Node::operator void *) &&
              std::is_convertible<Node const &, void *>::value &&
              exact<ConstOp<Node, bool, Node const &>>(&Node::operator==));
static_assert(exact<ConstOp<Node, void, std::set<Text> &>>(&Node::collectNames) &&
              exact<ConstOp<Node, void, std::vector<NodePtr> &>>(&Node::collectTopNodes) &&
              exact<ConstOp<Node, void, std::vector<Text> &>>(&Node::collectValues));
static_assert(exact<ConstOp<Node, int>>(&Node::dumping) && exact<Op<Node, void, int>>(&Node::dumping) &&
              exact<ConstOp<Node, bool>>(&Node::dumpingSample) &&
              exact<ConstOp<Node, bool>>(&Node::dumpingMetadata) &&
              exact<ConstOp<Node, bool>>(&Node::dumpingLog));
static_assert(exact<std::ostream & (*)(std::ostream &, Node const &)>(&xml::operator<<));

using XmlIn = xml::XmlInputStream;
static_assert(onlyExplicit<XmlIn, Node const &> && onlyExplicit<XmlIn, tav_istr> &&
              std::is_constructible<XmlIn, tav_istr, Text *>::value &&
              std::is_copy_constructible<XmlIn>::value);
static_assert(exact<ConstOp<XmlIn, Node const &>>(&XmlIn::node) &&
              exact<ConstOp<XmlIn, TextOut>>(&XmlIn::tag) && exact<ConstOp<XmlIn, TextOut>>(&XmlIn::content));
static_assert(exact<ConstOp<XmlIn, Attr const &, tav_istr>>(&XmlIn::attr) &&
              exact<ConstOp<XmlIn, Attr const &, tav_istr>>(&XmlIn::operator()) &&
              exact<ConstOp<XmlIn, Node const &, tav_istr>>(&XmlIn::child) &&
              exact<ConstOp<XmlIn, Node const &, tav_istr>>(&XmlIn::operator[]));
static_assert(exact<ConstOp<XmlIn, Node::const_iterator>>(&XmlIn::begin) &&
              exact<ConstOp<XmlIn, Node::const_iterator>>(&XmlIn::end));
static_assert(exact<ConstOp<XmlIn, bool>>(&XmlIn::isNull) && exact<ConstOp<XmlIn, bool>>(&XmlIn::decoding) &&
              exact<ConstOp<XmlIn, int>>(&XmlIn::dumping) &&
              exact<ConstOp<XmlIn, XmlIn const &>>(&XmlIn::me));
static_assert(walks<XmlIn> && readsAll<XmlIn>);

using XmlOut = xml::XmlOutputStream;
static_assert(std::is_default_constructible<XmlOut>::value && onlyExplicit<XmlOut, Node &> &&
              onlyExplicit<XmlOut, tav_istr>);
static_assert(!std::is_copy_constructible<XmlOut>::value && !std::is_copy_assignable<XmlOut>::value);
static_assert(exact<ConstOp<XmlOut, Node &>>(&XmlOut::node) &&
              exact<ConstOp<XmlOut, TextOut>>(&XmlOut::tag) &&
              exact<ConstOp<XmlOut, TextOut>>(&XmlOut::content));
static_assert(exact<Op<XmlOut, Attr &, tav_istr>>(&XmlOut::attr) &&
              exact<Op<XmlOut, Attr &, tav_istr>>(&XmlOut::operator()) &&
              exact<Op<XmlOut, Node &, tav_istr>>(&XmlOut::child) &&
              exact<Op<XmlOut, Node &, tav_istr>>(&XmlOut::operator[]) &&
              exact<Op<XmlOut, Node &>>(&XmlOut::newChild));
static_assert(exact<ConstOp<XmlOut, bool>>(&XmlOut::decoding) &&
              exact<ConstOp<XmlOut, int>>(&XmlOut::dumping) && exact<Op<XmlOut, XmlOut &>>(&XmlOut::me));
static_assert(exact<ConstOp<XmlOut, TextOut, bool, bool, int>>(&XmlOut::encode) &&
              exact<ConstOp<XmlOut, TextOut, bool>>(&XmlOut::str));
static_assert(walks<XmlOut> && writesAll<XmlOut>);

using XmlDump = xml::XmlDumpStream;
static_assert(std::is_base_of<XmlOut, XmlDump>::value && onlyExplicit<XmlDump, int> &&
              std::is_constructible<XmlDump, Node &, int>::value &&
              std::is_constructible<XmlDump, tav_istr, int>::value);
static_assert(exact<ConstOp<XmlDump, int>>(&XmlDump::dumping) &&
              exact<Op<XmlDump, void, int>>(&XmlDump::dumping) &&
              exact<ConstOp<XmlDump, bool>>(&XmlDump::dumpingLog) &&
              exact<ConstOp<XmlDump, bool>>(&XmlDump::dumpingMetadata) &&
              exact<ConstOp<XmlDump, bool>>(&XmlDump::dumpingSample));
static_assert(exact<Op<XmlDump, void, tav_istr, tav_istr, tav_istr>>(&XmlDump::enter) &&
              exact<Text (*)(unsigned int)>(&XmlDump::protectedValue));

static_assert(std::is_same<tavXmlInStreamImpl, XmlIn>::value &&
              std::is_same<tavXmlOutStreamImpl, XmlOut>::value);
static_assert(isCodecStream<tavXmlInStream> && onlyExplicit<tavXmlInStream, tav_istr> &&
              std::is_constructible<tavXmlInStream, tavXmlInStreamImpl *, bool>::value &&
              exact<ConstOp<tavXmlInStream, tav_istr>>(&tavXmlInStream::name));
static_assert(isCodecStream<tavXmlOutStream> && onlyExplicit<tavXmlOutStream, tav_istr> &&
              std::is_constructible<tavXmlOutStream, tavXmlOutStreamImpl *, bool>::value &&
              exact<ConstOp<tavXmlOutStream, tav_istr>>(&tavXmlOutStream::name) &&
              exact<ConstOp<tavXmlOutStream, tavString, bool>>(&tavXmlOutStream::str));

using Option = tav::im::ProtocolOption;
static_assert(std::is_base_of<tavObject, Option>::value && std::is_default_constructible<Option>::value &&
              isCopied<Option>);
static_assert(exact<int Option::*>(&Option::version) &&
              exact<tavOptional<unsigned long long> Option::*>(&Option::currentPos) &&
              exact<tavOptional<unsigned long long> Option::*>(&Option::totalSize) &&
              exact<tavOptional<bool> Option::*>(&Option::no_resend) &&
              exact<tavString Option::*>(&Option::target) &&
              exact<tavOptional<bool> Option::*>(&Option::crypt) &&
              exact<long long Option::*>(&Option::sessionId) && exact<long long Option::*>(&Option::gwtd) &&
              exact<tavString Option::*>(&Option::hmac));
static_assert(exact<ConstOp<Option, tav_istr>>(&Option::className) &&
              exact<ConstOp<Option, tav_istr>>(&Option::baseName) &&
              exact<ConstOp<Option, tavObject *>>(&Option::newInstance) &&
              exact<Op<Option, void, tavObject const &>>(&Option::assignFrom));

using tav::im::Packet;
template <class P>
constexpr bool isPacket =
    exact<Op<P, void, tavBytes &>>(&P::encode) && exact<Op<P, bool, tav_istr>>(&P::decode) &&
    exact<Op<P, void, unsigned char>>(&P::setAffirm) && exact<ConstOp<P, unsigned char>>(&P::affirm) &&
    exact<Op<P, void, unsigned short>>(&P::setCode) && exact<ConstOp<P, unsigned short>>(&P::code) &&
    exact<Op<P, void, unsigned long long>>(&P::setSequence) &&
    exact<ConstOp<P, unsigned long long>>(&P::sequence) && exact<Op<P, void, tav_istr>>(&P::setBody) &&
    exact<ConstOp<P, tav_istr>>(&P::body) && exact<Op<P, void, unsigned long long>>(&P::setSession) &&
    exact<ConstOp<P, unsigned long long>>(&P::session) && exact<Op<P, void, tav_istr>>(&P::setTarget) &&
    exact<ConstOp<P, tav_istr>>(&P::target) && exact<ConstOp<P, bool>>(&P::grey) &&
    exact<Op<P, void, bool>>(&P::setGrey) && exact<ConstOp<P, unsigned short>>(&P::version) &&
    exact<Op<P, void, tavMsgExt const &>>(&P::setExt) && exact<ConstOp<P, tavMsgExt>>(&P::ext);
static_assert(std::is_base_of<tavSharedObject, Packet>::value && std::is_abstract<Packet>::value &&
              isPacket<Packet>);
static_assert(exact<tavSharedPtr<Packet> (*)(bool, unsigned short)>(&Packet::create));
static_assert(exact<std::ostream & (*)(std::ostream &, Packet const &)>(&tav::im::operator<<));
static_assert(std::is_base_of<Packet, tav::im::PacketMobile>::value && isPacket<tav::im::PacketMobile> &&
              onlyExplicit<tav::im::PacketMobile, unsigned short> && isCopied<tav::im::PacketMobile>);
static_assert(std::is_base_of<Packet, tav::im::PacketPC>::value && isPacket<tav::im::PacketPC> &&
              std::is_default_constructible<tav::im::PacketPC>::value && isCopied<tav::im::PacketPC>);

using Gate = tavGateMessage;
using Byte = unsigned char;
static_assert(std::is_default_constructible<Gate>::value && isCopied<Gate> &&
              std::is_constructible<Gate, Byte, Byte>::value);
static_assert(
    std::is_constructible<Gate, Byte, Byte, Byte, Byte, int, Byte, Byte, tav_istr, tav_istr>::value &&
    std::is_constructible<Gate, Byte, Byte, Byte, Byte, int, tav_istr>::value &&
    std::is_constructible<Gate, Byte, int, Byte, int, tav_istr>::value);
static_assert(exact<Gate (*)()>(&Gate::HEARTBEAT_MESSAGE));
template <class T>
constexpr bool
    isMadeOf = exact<Gate (*)(int, T)>(&Gate::createArg) && exact<Gate (*)(int, T)>(&Gate::createAck);
static_assert(isMadeOf<tavString const &> && isMadeOf<char const *> && isMadeOf<Text const &> &&
              isMadeOf<tav_istr>);
static_assert(exact<Gate (*)(int, int, tav_istr)>(&Gate::createArg) &&
              exact<Gate (*)(int, int, tav_istr)>(&Gate::createAck) &&
              exact<ConstOp<Gate, Gate>>(&Gate::createAck));
static_assert(exact<int (*)(Byte, Byte)>(&Gate::make_type) && exact<Byte (*)(int)>(&Gate::get_type_domain) &&
              exact<Byte (*)(int)>(&Gate::get_type_code));
static_assert(exact<tavString (*)(Byte)>(&Gate::getProtocolString) &&
              exact<tavString (*)(Byte)>(&Gate::getDirectionString));
static_assert(exact<ConstOp<Gate, int>>(&Gate::type) && exact<Op<Gate, Gate &, int>>(&Gate::setType) &&
              exact<ConstOp<Gate, int>>(&Gate::sequence));
static_assert(exact<ConstOp<Gate, Byte>>(&Gate::protocol) && exact<ConstOp<Gate, Byte>>(&Gate::domain) &&
              exact<ConstOp<Gate, Byte>>(&Gate::code) && exact<ConstOp<Gate, Byte>>(&Gate::direction) &&
              exact<ConstOp<Gate, Byte>>(&Gate::extra1) && exact<ConstOp<Gate, Byte>>(&Gate::extra2));
static_assert(exact<ConstOp<Gate, tavBytes const &>>(&Gate::head) &&
              exact<ConstOp<Gate, tavBytes const &>>(&Gate::body));
static_assert(exact<ConstOp<Gate, unsigned short>>(&Gate::headSize) &&
              exact<ConstOp<Gate, unsigned>>(&Gate::bodySize) &&
              exact<ConstOp<Gate, unsigned>>(&Gate::size) && exact<ConstOp<Gate, bool>>(&Gate::isEmpty) &&
              exact<ConstOp<Gate, bool>>(&Gate::isHeartbeat));
static_assert(exact<ConstOp<Gate, void, tavBytes &>>(&Gate::encode) &&
              exact<Op<Gate, void, tav_istr>>(&Gate::decode) && exact<Gate (*)(tav_istr)>(&Gate::from));
static_assert(exact<ConstOp<Gate, void, std::ostream &>>(&Gate::dump) &&
              exact<void (*)(std::ostream &, Byte, tavBytes const &)>(&Gate::dump_str));

TEST(InterfaceFormatsPmlInterface, TakesTextsOfEachFormWithoutACast) {
    Text const standard = "b";
    tavString const own = standard;
    Unit unit("a");
    unit.child("x").value("1");
    unit[standard].value(own);
    unit(own).type("t").id(3);
    unit.addChild(new Unit(7));
    Unit const & seen = unit;
    EXPECT_EQ(seen["x"].asInt64Value() + seen.child("none", own, 1).id(), 4);
    EXPECT_TRUE(seen("none").isNull());
    unit.next(new Unit("n", "v"));
    EXPECT_EQ(unit.getNext()->value(), "v");
    char name[] = "c";
    pml::PmlOutputStream out("o");
    out << "x" << name << own << standard << 1 << true;
    EXPECT_EQ(out.unit().value(), "xcbb1true");
    int number = 0;
    pml::PmlInputStream in("a(5)");
    in.me() >> number;
    EXPECT_EQ(number, 5);
    tavPmlOutStream stream;
    stream.name("n").type(own);
    EXPECT_EQ(stream.name(), "n");
}

TEST(InterfaceFormatsXmlInterface, TakesTextsOfEachFormWithoutACast) {
    Text const standard = "b";
    tavString const own = standard;
    Node node("a");
    node.setAttr("k", own);
    node.setAttr(new Attr("l", standard));
    node.addChild("c", "1");
    node.addChild(new Node(own));
    Node const & seen = node;
    EXPECT_EQ(seen("k").value() + seen["c"].content(), "b1");
    EXPECT_TRUE(!seen["none"]);
    if (!seen) {
        ADD_FAILURE();
    }
    xml::XmlOutputStream out("o");
    char text[] = "c";
    out << "x" << text << own << standard << 1 << true;
    EXPECT_EQ(out.content(), "xcbb1true");
    int number = 0;
    xml::XmlInputStream in("<a>5</a>");
    in.me() >> number;
    EXPECT_EQ(number, 5);
    node.varid() = 4;
    EXPECT_EQ(seen.varid(), 4);
    std::ostringstream printed;
    printed << *Node::fromXml("<a/>");
    EXPECT_EQ(printed.str(), "<a/>");
}

TEST(InterfaceFormatsPacketInterface, PacketsAreUsedThroughTheirBase) {
    for (bool const mobile : {false, true}) {
        tavSharedPtr<Packet> const packet = Packet::create(mobile, 4);
        packet->setCode(0x1f01);
        packet->setSequence(7);
        packet->setBody("body");
        tavBytes bytes;
        packet->encode(bytes);
        tavSharedPtr<Packet> const read = Packet::create(mobile, 4);
        EXPECT_TRUE(read->decode(bytes));
        EXPECT_EQ(read->sequence(), 7u);
        EXPECT_EQ(read->body(), "body");
    }
}

TEST(InterfaceFormatsGateInterface, EachFormOfTextChoosesTextAndAViewBytes) {
    Byte const text = Gate::createArg(1, "t").protocol();
    Byte const binary = Gate::createArg(1, tav_istr("t")).protocol();
    EXPECT_NE(text, binary);
    EXPECT_EQ(Gate::createArg(1, Text("t")).protocol(), text);
    EXPECT_EQ(Gate::createAck(1, tavString("t")).protocol(), text);
    EXPECT_EQ(Gate::createAck(1, 2, "t").protocol(), binary);
    tavBytes bytes;
    Gate::createArg(1, 9, "t").setType(0x0203).encode(bytes);
    EXPECT_EQ(Gate::from(bytes).sequence(), 9);
    EXPECT_EQ(Gate::from(bytes).domain(), 2);
}

TEST(InterfaceFormatsTranscoderInterface, TheClassIsNamedByTextOrCode) {
    pml::field_type::Initializer const kinds;
    pml::PmlInputStream source("M:object(__class__(im.M) __code__(1F01) [1]n:int32())");
    Model const model(source);
    tavBytes nbr;
    unsigned short code = 0xffff;
    tav::json2nbr::write("{n:5}", nbr, code, model, "im.M");
    EXPECT_EQ(code, 0x1f01);
    tavString json;
    tav::json2nbr::read(json, nbr, "im.M", model, false);
    EXPECT_EQ(json, "{ \"__class__\":\"im.M\", \"n\":5 }");
    tavString byCode;
    tav::json2nbr::read(byCode, nbr, 0x1f01, model, false);
    EXPECT_EQ(byCode, json);
}

} // namespace
