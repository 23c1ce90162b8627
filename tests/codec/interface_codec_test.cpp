#include "tav/vinta/vinta_object.h"

#include "tav/vinta/vinta_basetypes_containers.h"

#include "support/exact.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <ostream>
#include <set>
#include <sstream>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

using tav_test::ConstOp;
using tav_test::exact;
using tav_test::Op;

// What programs compile against: the exact forms of the plain containers, the codec base types and the
// objects.

// A declaration that differs from the header's in its types or its linkage does not compile.
extern "C" {
int tav_any_compare(tav_any a, tav_any b);
void tav_any_delete(void * word);
void tav_any_delete_none(void * word);
void tav_any_swap(tav_any * a, tav_any * b);

tav_pair * tav_pair_new(void);
tav_pair * tav_pair_new_(tav_any first, tav_any second);
tav_pair * tav_pair_init(tav_pair * p, tav_any first, tav_any second);
void tav_pair_fini(tav_pair * p);
void tav_pair_delete(tav_pair ** pp);

tav_list * tav_list_(tav_list * out, tav_any data, tav_list * head, tav_list * prev, tav_list * next,
                     void (*deleter)(void *));
tav_list * tav_list_init(tav_list * node, tav_any data, tav_list * head, tav_list * prev, tav_list * next,
                         void (*deleter)(void *));
tav_list * tav_list_new(void);
tav_list * tav_list_new_(tav_any data, tav_list * head, tav_list * prev, tav_list * next,
                         void (*deleter)(void *));
tav_list * tav_list_init_first(tav_list * node, tav_any data);
void tav_list_reset(tav_list * node);
bool tav_list_empty(tav_list const * node);
tav_list * tav_list_begin(tav_list * node);
tav_list * tav_list_front(tav_list * node);
tav_list * tav_list_home(tav_list * node);
tav_list * tav_list_back(tav_list * node);
tav_list * tav_list_end(void);
tav_list * tav_list_next(tav_list * node);
unsigned tav_list_size(tav_list const * node);
tav_list * tav_list_push_back(tav_list * node, tav_any data);
tav_list * tav_list_push_front(tav_list * node, tav_any data);
tav_list * tav_list_insert_after(tav_list * node, tav_any data);
tav_list * tav_list_insert_before(tav_list * node, tav_any data);
bool tav_list_erase(tav_list * node);
unsigned tav_list_remove(tav_list * node, tav_any data);
unsigned tav_list_clear(tav_list * node);
unsigned tav_list_fini(tav_list * node);
void tav_list_delete(tav_list ** pp);
void tav_list_delete_data(tav_list * node);
void tav_list_foreach(tav_list * node, void (*fn)(tav_any data));
void tav_list_swap(tav_list * a, tav_list * b);

tav_map * tav_map_(tav_map * node, tav_pair * pair, tav_map * parent, tav_map * left, tav_map * right,
                   int (*compare)(tav_any, tav_any));
tav_map * tav_map_init(tav_map * node, tav_pair * pair, tav_map * parent, tav_map * left, tav_map * right,
                       int (*compare)(tav_any, tav_any));
tav_map * tav_map_new(void);
tav_map * tav_map_new_(tav_pair * pair, tav_map * parent, tav_map * left, tav_map * right,
                       int (*compare)(tav_any, tav_any));
bool tav_map_empty(tav_map const * node);
tav_map * tav_map_end(void);
tav_map * tav_map_root(tav_map * node);
bool tav_map_is_root(tav_map const * node);
bool tav_map_is_leaf(tav_map const * node);
bool tav_map_is_branch(tav_map const * node);
bool tav_map_is_left(tav_map const * node);
bool tav_map_is_right(tav_map const * node);
bool tav_map_single(tav_map const * node);
tav_map * tav_map_leftest(tav_map * node);
tav_map * tav_map_rightest(tav_map * node);
tav_map * tav_map_begin(tav_map * node);
tav_map * tav_map_next(tav_map * node);
void tav_map_foreach(tav_map * node, void (*fn)(tav_pair * pair));
int tav_map_compare(tav_map const * node, tav_any key);
tav_map * tav_map_find(tav_map * node, tav_any key);
tav_map * tav_map_nearest(tav_map * node, tav_any key);
tav_map * tav_map_insert(tav_map * node, tav_any key, tav_any value);
tav_any tav_map_update(tav_map * node, tav_any key, tav_any value);
tav_any tav_map_remove(tav_map * node, tav_any key);
void tav_map_erase(tav_map ** pp);
unsigned tav_map_size(tav_map const * node);
void tav_map_fini(tav_map * node);
void tav_map_delete(tav_map ** pp);
tav_map * tav_map_split(tav_map * node);
tav_map * tav_map_replace_root(tav_map * root, tav_map * child);

tav_array * tav_array_(tav_array * out, void * data, unsigned size);
tav_bytes tav_bytes_(void * data, unsigned size);
tav_slice tav_slice_(void * data, unsigned size);
tav_optional tav_optional_(tav_any value, unsigned char present);
tav_pair tav_pair_(tav_any first, tav_any second);
long long tav_datetime_(tav_any low, tav_any high);
int tav_enum_(int v);
char * tav_string_(char * p);
char * tav_u8string_(char * p);
wchar_t * tav_wstring_(wchar_t * p);
}

namespace {

template <class T>
constexpr bool isPlain = std::is_trivial<T>::value && std::is_standard_layout<T>::value;

static_assert(std::is_same<tav_any, std::uintptr_t>::value);
static_assert(std::is_same<tav_any_deleter, void (*)(void *)>::value);
static_assert(std::is_same<tav_any_comparer, int (*)(tav_any, tav_any)>::value);

static_assert(isPlain<tav_pair> && isPlain<tav_list> && isPlain<tav_map>);
static_assert(isPlain<tav_array> && isPlain<tav_bytes> && isPlain<tav_slice> && isPlain<tav_optional>);
static_assert(exact<tav_any tav_pair::*>(&tav_pair::first) && exact<tav_any tav_pair::*>(&tav_pair::second));
static_assert(sizeof(tav_pair) == 2 * sizeof(tav_any) && offsetof(tav_pair, second) == sizeof(tav_any));
static_assert(exact<tav_any tav_list::*>(&tav_list::data) && exact<tav_list * tav_list::*>(&tav_list::head));
static_assert(exact<tav_list * tav_list::*>(&tav_list::prev) &&
              exact<tav_list * tav_list::*>(&tav_list::next));
static_assert(exact<tav_any_deleter tav_list::*>(&tav_list::deleter));
static_assert(offsetof(tav_list, data) == 0 && offsetof(tav_list, head) == 8 &&
                  offsetof(tav_list, prev) == 16 && offsetof(tav_list, next) == 24 &&
                  offsetof(tav_list, deleter) == 32 && sizeof(tav_list) == 40,
              "nodes are initialised by lists of values");
static_assert(exact<tav_pair * tav_map::*>(&tav_map::pair) && exact<tav_map * tav_map::*>(&tav_map::parent));
static_assert(exact<tav_map * tav_map::*>(&tav_map::left) && exact<tav_map * tav_map::*>(&tav_map::right));
static_assert(exact<tav_any_comparer tav_map::*>(&tav_map::compare));
static_assert(offsetof(tav_map, pair) == 0 && offsetof(tav_map, parent) == 8 &&
                  offsetof(tav_map, left) == 16 && offsetof(tav_map, right) == 24 &&
                  offsetof(tav_map, compare) == 32 && sizeof(tav_map) == 40,
              "nodes are initialised by lists of values");
static_assert(exact<void * tav_array::*>(&tav_array::data) && exact<unsigned tav_array::*>(&tav_array::size));
static_assert(exact<unsigned tav_array::*>(&tav_array::capacity) && offsetof(tav_array, capacity) == 12);
static_assert(exact<void * tav_bytes::*>(&tav_bytes::data) && exact<unsigned tav_bytes::*>(&tav_bytes::size));
static_assert(exact<void * tav_slice::*>(&tav_slice::data) && exact<unsigned tav_slice::*>(&tav_slice::size));
static_assert(offsetof(tav_bytes, size) == 8 && offsetof(tav_slice, size) == 8);
static_assert(exact<tav_any tav_optional::*>(&tav_optional::value));
static_assert(exact<unsigned char tav_optional::*>(&tav_optional::present));
static_assert(offsetof(tav_optional, present) == 8);

enum Colour { red = 1, green = 2 };

static_assert(std::is_polymorphic<tavInterface>::value && std::has_virtual_destructor<tavInterface>::value);
static_assert(!std::is_abstract<tavInterface>::value && std::is_copy_constructible<tavInterface>::value);
static_assert(std::is_base_of<tavInterface, tavCodecInterface>::value &&
              std::is_abstract<tavCodecInterface>::value);
static_assert(exact<Op<tavCodecInterface, void, tavCodecStream &>>(&tavCodecInterface::io));
static_assert(exact<ConstOp<tavCodecInterface, bool>>(&tavCodecInterface::empty));
static_assert(std::is_base_of<tavInterface, tavMsgInterface>::value &&
              std::is_abstract<tavMsgInterface>::value);
static_assert(exact<ConstOp<tavMsgInterface, unsigned short>>(&tavMsgInterface::msgcode));

using Meta = tavCodecMeta;
static_assert(std::is_default_constructible<Meta>::value && std::is_convertible<int, Meta>::value);
static_assert(std::is_constructible<Meta, int, bool>::value &&
              std::is_constructible<Meta, int, bool, char const *>::value &&
              std::is_constructible<Meta, int, bool, char const *, bool>::value);
static_assert(std::is_copy_constructible<Meta>::value && std::is_copy_assignable<Meta>::value);
static_assert(exact<int Meta::*>(&Meta::type) && exact<bool Meta::*>(&Meta::isProtected));
static_assert(exact<tav_istr Meta::*>(&Meta::spec) && exact<bool Meta::*>(&Meta::optional));
static_assert(exact<ConstOp<Meta, tav::Range const &>>(&Meta::range));
static_assert(exact<ConstOp<Meta, bool>>(&Meta::isOptional) &&
              exact<ConstOp<Meta, bool>>(&Meta::rangeIsEmpty));
static_assert(exact<ConstOp<Meta, bool, long long>>(&Meta::checkRange));
static_assert(exact<std::ostream & (*)(std::ostream &, tavCodecMeta const &)>(&operator<<));

static_assert(std::is_default_constructible<tavFieldMeta>::value &&
              std::is_copy_constructible<tavFieldMeta>::value &&
              std::is_copy_assignable<tavFieldMeta>::value);
static_assert(
    std::is_constructible<tavFieldMeta, int, tav_istr, std::set<int> const &, tavCodecMeta const &>::value);
static_assert(exact<int tavFieldMeta::*>(&tavFieldMeta::id) &&
              exact<tav_istr tavFieldMeta::*>(&tavFieldMeta::name));
static_assert(exact<std::set<int> tavFieldMeta::*>(&tavFieldMeta::values) &&
              exact<tavCodecMeta tavFieldMeta::*>(&tavFieldMeta::meta));

using Maybe = tavOptional<tavString>;
static_assert(std::is_default_constructible<Maybe>::value && std::is_copy_constructible<Maybe>::value &&
              std::is_move_constructible<Maybe>::value && std::is_copy_assignable<Maybe>::value);
static_assert(std::is_convertible<tavString const &, Maybe>::value &&
              std::is_convertible<tavString, Maybe>::value);
static_assert(exact<Op<Maybe, Maybe &, tavString const &>>(&Maybe::operator=) &&
              exact<Op<Maybe, Maybe &, tavString &&>>(&Maybe::operator=));
static_assert(exact<ConstOp<Maybe, bool>>(&Maybe::has_value) && exact<Op<Maybe, void>>(&Maybe::reset));
static_assert(exact<Op<Maybe, tavString &>>(&Maybe::value) &&
              exact<ConstOp<Maybe, tavString const &>>(&Maybe::value));
static_assert(exact<Op<Maybe, tavString &>>(&Maybe::operator*) &&
              exact<ConstOp<Maybe, tavString const &>>(&Maybe::operator*));
static_assert(exact<Op<Maybe, tavString *>>(&Maybe::operator->) &&
              exact<ConstOp<Maybe, tavString const *>>(&Maybe::operator->));
static_assert(exact<ConstOp<Maybe, bool>>(&Maybe::operator bool) && !std::is_convertible<Maybe, bool>::value);

using Count = tavNumber<short, -7>;
static_assert(std::is_default_constructible<Count>::value && std::is_convertible<short, Count>::value);
static_assert(std::is_copy_constructible<Count>::value && std::is_copy_assignable<Count>::value);
static_assert(exact<Op<Count, Count &, short>>(&Count::operator=) &&
              exact<ConstOp<Count, short>>(&Count::operator short));

using Paint = tavEnum<Colour>;
static_assert(std::is_base_of<tavEnumBase, Paint>::value && std::is_default_constructible<Paint>::value);
static_assert(std::is_convertible<Colour, Paint>::value && std::is_convertible<int, Paint>::value);
static_assert(std::is_copy_constructible<Paint>::value && std::is_copy_assignable<Paint>::value);
static_assert(exact<Op<Paint, Paint &, Colour>>(&Paint::operator=) &&
              exact<Op<Paint, Paint &, int>>(&Paint::operator=));
static_assert(exact<ConstOp<Paint, Colour>>(&Paint::operator Colour));
static_assert(exact<ConstOp<Paint, int>>(&Paint::value) && exact<ConstOp<Paint, tav_istr>>(&Paint::name));
static_assert(exact<void (*)(Colour, char const *)>(&Paint::add) &&
              exact<std::set<int> (*)()>(&Paint::values));
static_assert(exact<std::ostream & (*)(std::ostream &, Paint const &)>(&operator<< <Colour>));

using Stream = tavCodecStream;
using StreamPtr = tavSharedPtr<tavCodecStream>;
template <class S, class T>
constexpr bool carries = exact<Op<S, void, T &, tavCodecMeta const &>>(&S::io);
template <class S>
constexpr bool carriesSimple =
    carries<S, tavTime> && carries<S, tavBytes> && carries<S, tavString> && carries<S, double> && carries<
        S, float> && carries<S, unsigned long long> && carries<S, long long> && carries<S, unsigned long> &&
        carries<S, long> && carries<S, unsigned int> && carries<S, int> && carries<S, unsigned short> &&
            carries<S, short> && carries<S, unsigned char> && carries<S, char> && carries<S, bool>;
/// The adapters, which overriding hides unless they are brought in.
template <class S>
constexpr bool carriesAdapted = carries<S, tavString> &&
    std::is_void<decltype(std::declval<S &>().io(std::declval<std::string &>(), Meta()))>::value &&
        std::is_void<decltype(std::declval<S &>().io(std::declval<tavWstring &>(), Meta()))>::value &&
            std::is_void<decltype(std::declval<S &>().io(std::declval<wchar_t &>(), Meta()))>::value;

static_assert(std::is_base_of<tavSharedObject, Stream>::value && std::is_abstract<Stream>::value);
static_assert(carriesSimple<Stream> && carriesAdapted<Stream>);
static_assert(carries<Stream, std::string> && carries<Stream, tavWstring> && carries<Stream, wchar_t>);
static_assert(exact<ConstOp<Stream, bool>>(&Stream::isNull) &&
              exact<ConstOp<Stream, bool>>(&Stream::hideEmpty));
static_assert(exact<ConstOp<Stream, bool>>(&Stream::isOutputStream) &&
              exact<ConstOp<Stream, bool>>(&Stream::isMapEntryCombined));
static_assert(exact<ConstOp<Stream, bool>>(&Stream::isEmpty));
static_assert(exact<Op<Stream, StreamPtr, int, tav_istr>>(&Stream::child));
static_assert(exact<Op<Stream, StreamPtr>>(&Stream::getOutputChild));
static_assert(exact<Op<Stream, void, std::vector<StreamPtr> &>>(&Stream::getInputChildren));
static_assert(exact<Op<Stream, void, std::map<tavString, StreamPtr> &>>(&Stream::getInputChildMap));
static_assert(exact<Op<Stream, void, tav_istr, tav_istr>>(&Stream::enter) &&
              exact<Op<Stream, void>>(&Stream::leave));
static_assert(exact<Op<Stream, void>>(&Stream::writeNull) &&
              exact<Op<Stream, void>>(&Stream::makeArrayValue) &&
              exact<Op<Stream, void>>(&Stream::makeObjectValue));
static_assert(exact<Op<Stream, void, int, tav_istr, std::set<int> const &, tavCodecMeta const &>>(
    &Stream::on_each_field_meta));

using tav::vinta::EnumObject;
using tav::vinta::EnumValues;
static_assert(std::is_default_constructible<EnumValues>::value &&
              std::is_copy_constructible<EnumValues>::value && std::is_copy_assignable<EnumValues>::value);
static_assert(exact<Op<EnumValues, void, int, char const *>>(&EnumValues::add) &&
              exact<Op<EnumValues, void>>(&EnumValues::clear));
static_assert(exact<ConstOp<EnumValues, tav_istr, int>>(&EnumValues::getName) &&
              exact<ConstOp<EnumValues, int, tav_istr>>(&EnumValues::getValue));
static_assert(std::is_default_constructible<EnumObject>::value &&
              std::is_copy_constructible<EnumObject>::value);
static_assert(exact<Op<EnumObject, EnumObject &, EnumObject const &>>(&EnumObject::operator=));

static_assert(std::is_base_of<tavCodecInterface, tavObject>::value &&
              std::is_base_of<tavSharedObject, tavObject>::value && std::is_abstract<tavObject>::value);
static_assert(std::is_copy_assignable<tavObject>::value);
static_assert(exact<Op<tavObject, void, tavCodecStream &>>(&tavObject::io) &&
              exact<ConstOp<tavObject, bool>>(&tavObject::empty));
static_assert(exact<ConstOp<tavObject, tav_istr>>(&tavObject::className) &&
              exact<ConstOp<tavObject, tav_istr>>(&tavObject::baseName));
static_assert(exact<ConstOp<tavObject, tavObject *>>(&tavObject::newInstance) &&
              exact<Op<tavObject, void, tavObject const &>>(&tavObject::assignFrom));
static_assert(exact<ConstOp<tavObject, tavBytes, bool>>(&tavObject::encode) &&
              exact<Op<tavObject, void, tav_istr>>(&tavObject::decode));
static_assert(exact<ConstOp<tavObject, tavString, bool>>(&tavObject::encodeJson) &&
              exact<Op<tavObject, void, tav_istr>>(&tavObject::decodeJson));
static_assert(exact<ConstOp<tavObject, tavString, bool, int>>(&tavObject::dump));
static_assert(exact<ConstOp<tavObject, bool, tavObject const &>>(&tavObject::classEqual) &&
              exact<ConstOp<tavObject, bool, tav_istr>>(&tavObject::classOf));
static_assert(exact<ConstOp<tavObject, tavObject *>>(&tavObject::clone) &&
              exact<Op<tavObject, void, tavObject const &>>(&tavObject::assign));
static_assert(exact<ConstOp<tavObject, tavObject const *>>(&tavObject::self) &&
              exact<ConstOp<tavObject, void, tavCodecStream const &>>(&tavObject::checkFields));
static_assert(exact<unsigned (*)()>(&tavObject::counts));
static_assert(exact<std::ostream & (*)(std::ostream &, tavObject const &)>(&operator<<));

static_assert(std::is_base_of<tavObject, tavMsgExt>::value && !std::is_abstract<tavMsgExt>::value);
static_assert(std::is_default_constructible<tavMsgExt>::value &&
              std::is_copy_constructible<tavMsgExt>::value && std::is_copy_assignable<tavMsgExt>::value);
static_assert(exact<tavOptional<long long> tavMsgExt::*>(&tavMsgExt::serverTime) &&
              exact<tavOptional<long long> tavMsgExt::*>(&tavMsgExt::clientTime) &&
              exact<tavOptional<tavString> tavMsgExt::*>(&tavMsgExt::traceId));
static_assert(exact<ConstOp<tavMsgExt, bool>>(&tavMsgExt::empty) &&
              exact<ConstOp<tavMsgExt, tav_istr>>(&tavMsgExt::className) &&
              exact<ConstOp<tavMsgExt, tav_istr>>(&tavMsgExt::baseName));
static_assert(exact<ConstOp<tavMsgExt, tavObject *>>(&tavMsgExt::newInstance) &&
              exact<Op<tavMsgExt, void, tavObject const &>>(&tavMsgExt::assignFrom));

static_assert(std::is_base_of<tavObject, tavMessage>::value &&
              std::is_base_of<tavMsgInterface, tavMessage>::value && std::is_abstract<tavMessage>::value);
static_assert(exact<unsigned long long tavMessage::*>(&tavMessage::sno) &&
              exact<tavMsgExt tavMessage::*>(&tavMessage::ext));
static_assert(exact<unsigned (*)()>(&tavMessage::counts));
static_assert(std::is_copy_assignable<tavMessage>::value);

static_assert(exact<void (*)(tavCodecStream &, int, tav_istr, int &, tavCodecMeta const &)>(&ioField<int>));

static_assert(std::is_base_of<tavCodecStream, tavNullStream>::value &&
              std::is_default_constructible<tavNullStream>::value);
static_assert(carriesSimple<tavNullStream> && carriesAdapted<tavNullStream>);
static_assert(std::is_base_of<tavNullStream, tavCollectMetaStream>::value &&
              std::is_default_constructible<tavCollectMetaStream>::value);
static_assert(
    exact<ConstOp<tavCollectMetaStream, std::vector<tavFieldMeta> const &>>(&tavCollectMetaStream::fields));
static_assert(exact<ConstOp<tavCollectMetaStream, void, std::function<void(tavFieldMeta const &)>>>(
    &tavCollectMetaStream::for_each_field));

static_assert(std::is_base_of<tavCodecStream, tavDumper>::value && !std::is_abstract<tavDumper>::value);
static_assert(carriesSimple<tavDumper> && carriesAdapted<tavDumper>);
static_assert(std::is_constructible<tavDumper, std::ostream &, bool, int, bool>::value);
static_assert(exact<Op<tavDumper, void>>(&tavDumper::indent) &&
              exact<Op<tavDumper, void, int>>(&tavDumper::id));
static_assert(exact<Op<tavDumper, void, tav_istr>>(&tavDumper::name) &&
              exact<Op<tavDumper, void, char>>(&tavDumper::sep));
template <class T>
constexpr bool dumps = exact<Op<tavDumper, void, T const &, tavCodecMeta const &>>(&tavDumper::write<T>);
static_assert(dumps<tavTime> && dumps<tavBytes> && dumps<tavString> && dumps<double> && dumps<float> &&
              dumps<unsigned long long> && dumps<long long> && dumps<unsigned long> && dumps<long> &&
              dumps<unsigned int> && dumps<int> && dumps<unsigned short> && dumps<short> &&
              dumps<unsigned char> && dumps<char> && dumps<bool> && dumps<tavMsgExt> &&
              dumps<tavCodecInterface>);
static_assert(exact<tavString (*)(tav_istr, tavCodecMeta const &)>(&tavDumper::protectedValue));

/// A stream that has what is pure and no more.
class Least : public tavCodecStream {
public:
    using tavCodecStream::io;
    bool isOutputStream() const override { return true; }
    StreamPtr child(int, tav_istr) override { return StreamPtr(); }
    StreamPtr getOutputChild() override { return StreamPtr(); }
    void getInputChildren(std::vector<StreamPtr> &) override {}
    bool isMapEntryCombined() const override { return false; }
    void getInputChildMap(std::map<tavString, StreamPtr> &) override {}
    void enter(tav_istr, tav_istr) override {}
    void leave() override {}
    void io(tavTime &, tavCodecMeta const &) override {}
    void io(tavBytes &, tavCodecMeta const &) override {}
    void io(tavString & v, tavCodecMeta const &) override { text = v; }
    void io(double &, tavCodecMeta const &) override {}
    void io(float &, tavCodecMeta const &) override {}
    void io(unsigned long long &, tavCodecMeta const &) override {}
    void io(long long &, tavCodecMeta const &) override {}
    void io(unsigned long &, tavCodecMeta const &) override {}
    void io(long &, tavCodecMeta const &) override {}
    void io(unsigned int &, tavCodecMeta const &) override {}
    void io(int &, tavCodecMeta const &) override {}
    void io(unsigned short &, tavCodecMeta const &) override {}
    void io(short &, tavCodecMeta const &) override {}
    void io(unsigned char &, tavCodecMeta const &) override {}
    void io(char &, tavCodecMeta const &) override {}
    void io(bool &, tavCodecMeta const &) override {}

    tavString text;
};
static_assert(!std::is_abstract<Least>::value, "nothing else is pure");

/// An object that has what is pure and no more.
class LeastObject : public tavObject {
public:
    tav_istr className() const override { return "LeastObject"; }
    tav_istr baseName() const override { return "tavObject"; }
    tavObject * newInstance() const override { return new LeastObject; }
    void assignFrom(tavObject const & other) override { *this = dynamic_cast<LeastObject const &>(other); }
};
static_assert(!std::is_abstract<LeastObject>::value && std::is_copy_constructible<LeastObject>::value);

/// A message with a field of each kind.
class Full : public tavMessage {
public:
    tavString text;
    std::string standard;
    tavWstring wide;
    wchar_t unit = L'a';
    tavBytes bytes;
    tavTime time;
    bool flag = false;
    unsigned long size = 0;
    tavEnum<Colour> colour;
    tavNumber<short, -7> count;
    tavOptional<tavString> maybe;
    tavOptional<std::vector<int>> maybeList;
    tavMsgExt nested;
    tavSharedPtr<tavMsgExt> shared;
    std::vector<bool> flags;
    std::list<tavString> texts;
    std::deque<tavEnum<Colour>> colours;
    std::set<int> numbers;
    std::map<tavString, tavMsgExt> byName;
    std::unordered_map<int, std::vector<tavString>> byNumber;

    unsigned short msgcode() const override { return 0x1f0a; }
    tav_istr className() const override { return "Full"; }
    tav_istr baseName() const override { return "tavMessage"; }
    tavObject * newInstance() const override { return new Full; }
    void assignFrom(tavObject const & other) override { *this = dynamic_cast<Full const &>(other); }

protected:
    void traverse(tavCodecStream & s) override {
        ioField(s, 1, "text", text);
        ioField(s, 2, "standard", standard, tavCodecMeta(11, true));
        ioField(s, 3, "wide", wide);
        ioField(s, 4, "unit", unit);
        ioField(s, 5, "bytes", bytes);
        ioField(s, 6, "time", time);
        ioField(s, 7, "flag", flag);
        ioField(s, 8, "size", size);
        ioField(s, 9, "colour", colour);
        ioField(s, 10, "count", count, {3, false, "-10~10", true});
        ioField(s, 11, "maybe", maybe);
        ioField(s, 12, "maybeList", maybeList, {-1, false, nullptr, true});
        ioField(s, 13, "nested", nested);
        ioField(s, 14, "shared", shared);
        ioField(s, 15, "flags", flags);
        ioField(s, 16, "texts", texts);
        ioField(s, 17, "colours", colours);
        ioField(s, 18, "numbers", numbers);
        ioField(s, 19, "byName", byName);
        ioField(s, 20, "byNumber", byNumber);
    }
};

Full full() {
    Full v;
    v.text = "t";
    v.standard = "s";
    v.wide = L"w";
    v.unit = L'u';
    v.bytes << 'b';
    v.time = tavTime::now();
    v.flag = true;
    v.size = 9;
    v.colour = green;
    v.count = 4;
    v.maybe = "m";
    v.maybeList = std::vector<int>{1, 2};
    v.nested.traceId = "n";
    v.shared = new tavMsgExt;
    v.shared->serverTime = 5;
    v.flags = {true, false};
    v.texts = {"x", "y"};
    v.colours = {red, green};
    v.numbers = {7, 8};
    v.byName["k"].clientTime = 6;
    v.byNumber[3] = {"z"};
    return v;
}

TEST(InterfaceCodec, EachKindOfFieldIsWalkedByOneUnqualifiedName) {
    Full const v = full();
    Full read;
    read.decode(v.encode(false));
    EXPECT_EQ(read.dump(true, 0), v.dump(true, 0));
    EXPECT_EQ(read.colours.back(), green);
    EXPECT_EQ(read.shared->serverTime.value(), 5);
    EXPECT_EQ(read.maybeList.value(), (std::vector<int>{1, 2}));
    EXPECT_EQ(read.byNumber[3].front(), "z");
    EXPECT_EQ(read.encodeJson(true), v.encodeJson(true));
}

TEST(InterfaceCodec, ObjectsAreUsedThroughTheirBases) {
    tavSharedPtr<tavMessage> const message(new Full(full()));
    tavObject const & object = *message;
    tavSharedPtr<tavObject> const copy(object.clone());
    EXPECT_TRUE(copy->classEqual(*message));
    EXPECT_TRUE(copy->classOf("Full"));
    EXPECT_EQ(copy->self(), copy.get());
    tavMsgInterface const & coded = *message;
    EXPECT_EQ(coded.msgcode(), 0x1f0a);
    tavCodecInterface & walked = *message;
    tavCollectMetaStream collected;
    walked.io(collected);
    unsigned seen = 0;
    collected.for_each_field([&seen](tavFieldMeta const & field) { seen += field.id > 0 ? 1 : 0; });
    EXPECT_EQ(seen, 20u);
    EXPECT_EQ(collected.fields()[1].meta.isProtected, true);
    std::ostringstream out;
    out << object << tavCodecMeta(3);
    EXPECT_NE(out.str().find("Full"), std::string::npos);
    EXPECT_TRUE(LeastObject().empty());
}

TEST(InterfaceCodec, WrappersStandInForTheirValues) {
    tavEnum<Colour>::add(red, "red");
    tavEnum<Colour>::add(green, "green");
    tavEnum<Colour> colour = red;
    colour = 2;
    switch (colour) {
    case red: ADD_FAILURE(); break;
    case green: break;
    }
    EXPECT_TRUE(colour == green && colour != red && colour.value() == 2);
    std::ostringstream out;
    out << colour << ' ' << tavEnum<Colour>(1);
    EXPECT_EQ(out.str(), "green red");
    EXPECT_EQ(tavEnum<Colour>::values(), (std::set<int>{1, 2}));

    tavNumber<int, 5> number;
    EXPECT_EQ(number + 1, 6);
    number = number * 2;
    int const plain = number;
    EXPECT_EQ(plain, 10);

    tavOptional<tavString> maybe;
    EXPECT_FALSE(maybe);
    maybe = tavString("text");
    if (maybe) {
        EXPECT_EQ(maybe->size(), 4u);
    }
    *maybe = "other";
    EXPECT_EQ(maybe.value(), "other");
    maybe.reset();
    EXPECT_FALSE(maybe.has_value());
}

TEST(InterfaceCodec, AStreamOfAProgramNeedsOnlyWhatIsPure) {
    Least stream;
    tavCodecStream & base = stream;
    std::string standard = "s";
    tavWstring wide(L"w");
    wchar_t unit = L'u';
    stream.io(standard, tavCodecMeta());
    EXPECT_EQ(stream.text, "s");
    base.io(wide, -1);
    EXPECT_EQ(stream.text, "w");
    base.io(unit, {});
    EXPECT_EQ(stream.text, "u");
    EXPECT_TRUE(base.isEmpty());
    EXPECT_FALSE(base.isNull());
    EXPECT_FALSE(base.hideEmpty());
}

TEST(InterfaceCodecContainersInterface, NodesAreFilledByListsOfValues) {
    tav_pair pair = {1, 2};
    tav_map const leaf = {&pair, nullptr, nullptr, nullptr, tav_any_compare};
    EXPECT_TRUE(tav_map_is_leaf(&leaf));
    EXPECT_EQ(tav_map_compare(&leaf, 1), 0);
    tav_list node = {7, nullptr, nullptr, nullptr, tav_any_delete_none};
    EXPECT_EQ(tav_list_(&node, 8, nullptr, nullptr, nullptr, nullptr), &node);
    EXPECT_EQ(node.data, 8u);
    char bytes[] = "ab";
    tav_array array;
    EXPECT_EQ(tav_array_(&array, bytes, 2), &array);
    EXPECT_EQ(array.size, 2u);
    EXPECT_EQ(tav_bytes_(bytes, 2).size + tav_slice_(bytes, 1).size, 3u);
    EXPECT_EQ(tav_optional_(5, 1).present, 1);
    EXPECT_EQ(tav_pair_(3, 4).second, 4u);
    EXPECT_EQ(tav_datetime_(1, 1), 0x100000001LL);
    EXPECT_EQ(tav_string_(bytes), tav_u8string_(bytes));
}

} // namespace
