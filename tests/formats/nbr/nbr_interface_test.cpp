#include "tav/vinta/vinta_nbr_unit.h"

#include "tav/vinta/vinta_nbr_compactreader.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <iosfwd>
#include <list>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

// What applications compile and link against: the exact forms of the operations.

namespace {

using namespace tav::nbr;

/// Whether an operation has exactly this form.
template <class Form>
constexpr bool has(Form) {
    return true;
}

template <class T, class... Arguments>
constexpr bool onlyExplicit =
    std::is_constructible<T, Arguments...>::value &&
    !std::is_convertible<std::tuple_element_t<0, std::tuple<Arguments...>>, T>::value;

template <class T>
constexpr bool
    writes = has<CompactIntegerWriter & (CompactIntegerWriter::*)(T)>(&CompactIntegerWriter::operator<<);
template <class T>
constexpr bool reads = has<bool (CompactIntegerReader::*)(T &)>(&CompactIntegerReader::operator>>);
template <class T>
constexpr bool decodes = has<bool (SimpleValue::*)(T &) const>(&SimpleValue::read);
template <class T>
constexpr bool appends = has<NbrOutputStream & (NbrOutputStream::*)(T)>(&NbrOutputStream::operator<<);
template <class T>
constexpr bool extracts =
    std::is_same<bool, decltype(std::declval<NbrInputStream const &>() >> std::declval<T &>())>::value;

static_assert(writes<char> && writes<unsigned char> && writes<bool> && writes<short> &&
                  writes<unsigned short> && writes<int> && writes<unsigned int> && writes<long long> &&
                  writes<unsigned long long> && writes<float> && writes<double>,
              "CompactIntegerWriter <<");
static_assert(reads<char> && reads<unsigned char> && reads<bool> && reads<short> && reads<unsigned short> &&
                  reads<int> && reads<unsigned int> && reads<long long> && reads<unsigned long long> &&
                  reads<float> && reads<double>,
              "CompactIntegerReader >>");
static_assert(
    has<char (*)(char *, unsigned long long, unsigned int)>(&CompactIntegerWriter::write) &&
        has<void (CompactIntegerWriter::*)(int)>(&CompactIntegerWriter::writeByte) &&
        has<void (CompactIntegerWriter::*)(char *, unsigned int)>(&CompactIntegerWriter::writeBuf) &&
        onlyExplicit<CompactIntegerWriter, tavBytes &>,
    "CompactIntegerWriter");
static_assert(
    has<unsigned long long (*)(char const *, unsigned int, unsigned int)>(&CompactIntegerReader::read) &&
        has<unsigned long long (*)(tav_istr, unsigned int)>(&CompactIntegerReader::read) &&
        has<char (CompactIntegerReader::*)()>(&CompactIntegerReader::readByte) &&
        has<tav_istr (CompactIntegerReader::*)(unsigned int)>(&CompactIntegerReader::readBuf) &&
        has<tav_istr (CompactIntegerReader::*)() const>(&CompactIntegerReader::remaining) &&
        has<bool (CompactIntegerReader::*)() const>(&CompactIntegerReader::empty) &&
        has<bool (CompactIntegerReader::*)() const>(&CompactIntegerReader::operator!) &&
        has<void * (CompactIntegerReader::*)() const>(&CompactIntegerReader::operator void *) &&
        onlyExplicit<CompactIntegerReader, tav_istr &>,
    "CompactIntegerReader");

static_assert(std::is_base_of<tavRefCountObject, ValueBase>::value && std::is_abstract<ValueBase>::value &&
                  has<bool (ValueBase::*)() const>(&ValueBase::simple) &&
                  has<std::ostream & (ValueBase::*)(std::ostream &, bool, int) const>(&ValueBase::dump),
              "ValueBase");
static_assert(decodes<char> && decodes<unsigned char> && decodes<bool> && decodes<short> &&
                  decodes<unsigned short> && decodes<int> && decodes<unsigned int> && decodes<float> &&
                  decodes<long long> && decodes<unsigned long long> && decodes<double> && decodes<tavTime> &&
                  decodes<tavBytes> && decodes<tavString>,
              "SimpleValue::read");
static_assert(has<tav_istr (SimpleValue::*)() const>(&SimpleValue::data) &&
                  has<bool (SimpleValue::*)() const>(&SimpleValue::isNull) &&
                  has<bool (SimpleValue::*)() const>(&SimpleValue::isEmpty) &&
                  has<bool (SimpleValue::*)() const>(&SimpleValue::isNullOrEmpty) &&
                  std::is_constructible<SimpleValue, tav_istr, bool>::value &&
                  onlyExplicit<SimpleValue, bool>,
              "SimpleValue");
static_assert(
    std::is_same<ComplexValue::Item, std::pair<char, tavSharedPtr<ValueBase>>>::value &&
        std::is_same<ComplexValue::const_iterator, std::vector<ComplexValue::Item>::const_iterator>::value &&
        has<void (ComplexValue::*)(char, tavSharedPtr<ValueBase>)>(&ComplexValue::add) &&
        has<tavSharedPtr<ValueBase> (ComplexValue::*)(char) const>(&ComplexValue::get) &&
        has<std::vector<ComplexValue::Item> const & (ComplexValue::*)() const>(&ComplexValue::data) &&
        has<ComplexValue::const_iterator (ComplexValue::*)() const>(&ComplexValue::begin) &&
        has<ComplexValue::const_iterator (ComplexValue::*)() const>(&ComplexValue::end) &&
        std::is_default_constructible<ComplexValue>::value && std::is_copy_constructible<ComplexValue>::value,
    "ComplexValue");
static_assert(has<tavSharedPtr<ValueBase> (*)(tav_istr &)>(&parser::from) &&
                  has<tavSharedPtr<SimpleValue> (*)(tav_istr, char)>(&parser::from) &&
                  onlyExplicit<parser, tav_istr &>,
              "parser");
static_assert(std::is_constructible<_PrintNbr, tav_istr, bool>::value &&
                  has<std::ostream & (*)(std::ostream &, _PrintNbr const &)>(&tav::nbr::operator<<) &&
                  has<std::ostream & (*)(std::ostream &, tav_nbr_buf const &)>(&::operator<<) &&
                  std::is_same<char const *, decltype(tav_nbr_buf::data)>::value &&
                  std::is_same<unsigned int, decltype(tav_nbr_buf::size)>::value,
              "printing");

static_assert(appends<char> && appends<unsigned char> && appends<short> && appends<unsigned short> &&
                  appends<int> && appends<unsigned int> && appends<float> && appends<double> &&
                  appends<long long> && appends<unsigned long long> && appends<bool> &&
                  appends<char const *> && appends<tav_istr> && appends<std::string const &> &&
                  appends<tavString const &> && appends<tavBytes const &> && appends<tavTime const &>,
              "NbrOutputStream <<");
static_assert(std::is_base_of<tavBytes, NbrOutputStream>::value &&
                  sizeof(NbrOutputStream) == sizeof(tavBytes) &&
                  has<void (NbrOutputStream::*)(tav_istr, bool)>(&NbrOutputStream::write) &&
                  has<void (NbrOutputStream::*)()>(&NbrOutputStream::writeEmpty) &&
                  has<void (NbrOutputStream::*)()>(&NbrOutputStream::writeNull) &&
                  has<void (NbrOutputStream::*)(unsigned char)>(&NbrOutputStream::writeRaw) &&
                  has<void (NbrOutputStream::*)(char const *, unsigned int)>(&NbrOutputStream::writeRaw) &&
                  has<void (NbrOutputStream::*)(tav_istr)>(&NbrOutputStream::writeRaw) &&
                  has<void (NbrOutputStream::*)(char)>(&NbrOutputStream::writeTag) &&
                  has<void (NbrOutputStream::*)(tav_istr, tav_istr, tav_istr)>(&NbrOutputStream::enter) &&
                  has<void (NbrOutputStream::*)()>(&NbrOutputStream::leave) &&
                  has<void (NbrOutputStream::*)()>(&NbrOutputStream::enterSuper) &&
                  has<void (NbrOutputStream::*)()>(&NbrOutputStream::leaveSuper) &&
                  has<tav_istr (NbrOutputStream::*)() const>(&NbrOutputStream::str) &&
                  has<void (NbrOutputStream::*)(tavBytes &) const>(&NbrOutputStream::encode) &&
                  has<void (NbrOutputStream::*)(tavBytes &)>(&NbrOutputStream::swap) &&
                  has<void (*)(NbrOutputStream &)>(&NbrOutputStream::Entry::enter) &&
                  has<void (*)(NbrOutputStream &)>(&NbrOutputStream::Entry::leave) &&
                  onlyExplicit<NbrOutputStream::Entry, NbrOutputStream &>,
              "NbrOutputStream");

static_assert(extracts<char> && extracts<unsigned char> && extracts<bool> && extracts<short> &&
                  extracts<unsigned short> && extracts<int> && extracts<unsigned int> && extracts<float> &&
                  extracts<long> && extracts<unsigned long> && extracts<long long> &&
                  extracts<unsigned long long> && extracts<double> && extracts<tavTime> &&
                  extracts<tavBytes> && extracts<tavString>,
              "NbrInputStream >>");
static_assert(
    std::is_same<NbrInputStream::const_iterator, std::list<tavSharedPtr<ValueBase>>::const_iterator>::value &&
        onlyExplicit<NbrInputStream, tavSharedPtr<ValueBase>> && onlyExplicit<NbrInputStream, tav_istr> &&
        std::is_constructible<NbrInputStream, tav_istr, char>::value &&
        has<NbrInputStream::const_iterator (NbrInputStream::*)() const>(&NbrInputStream::begin) &&
        has<NbrInputStream::const_iterator (NbrInputStream::*)() const>(&NbrInputStream::end) &&
        has<bool (NbrInputStream::*)() const>(&NbrInputStream::empty) &&
        has<tavSharedPtr<SimpleValue> (NbrInputStream::*)() const>(&NbrInputStream::getSimpleValue) &&
        has<tavSharedPtr<ComplexValue> (NbrInputStream::*)() const>(&NbrInputStream::getComplexValue) &&
        has<tavSharedPtr<ValueBase> (NbrInputStream::*)(char) const>(&NbrInputStream::getChild) &&
        has<bool (NbrInputStream::*)() const>(&NbrInputStream::decoding) &&
        has<int (NbrInputStream::*)() const>(&NbrInputStream::dumping) &&
        has<void (NbrInputStream::*)(tav_istr, tav_istr, tav_istr)>(&NbrInputStream::enter) &&
        has<void (NbrInputStream::*)()>(&NbrInputStream::leave) &&
        has<void (NbrInputStream::*)()>(&NbrInputStream::enterSuper) &&
        has<void (NbrInputStream::*)()>(&NbrInputStream::leaveSuper) &&
        has<std::ostream & (NbrInputStream::*)(std::ostream &, bool) const>(&NbrInputStream::dump),
    "NbrInputStream");

static_assert(std::is_base_of<NbrOutputStream, tavNbrOutStreamImpl>::value &&
                  std::is_base_of<NbrInputStream, tavNbrInStreamImpl>::value &&
                  std::is_default_constructible<tavNbrOutStreamImpl>::value &&
                  onlyExplicit<tavNbrInStreamImpl, tavSharedPtr<ValueBase>> &&
                  onlyExplicit<tavNbrInStreamImpl, tav_istr> &&
                  std::is_constructible<tavNbrInStreamImpl, tav_istr, char>::value,
              "implementations");
static_assert(std::is_base_of<tavCodecStream, tavNbrOutStream>::value &&
                  onlyExplicit<tavNbrOutStream, bool> &&
                  std::is_constructible<tavNbrOutStream, tavNbrOutStreamImpl *, bool>::value &&
                  has<tav_istr (tavNbrOutStream::*)() const>(&tavNbrOutStream::str) &&
                  has<void (tavNbrOutStream::*)(std::ostream &) const>(&tavNbrOutStream::dump),
              "tavNbrOutStream");
static_assert(std::is_base_of<tavCodecStream, tavNbrInStream>::value &&
                  onlyExplicit<tavNbrInStream, tav_istr> &&
                  std::is_constructible<tavNbrInStream, tavNbrInStreamImpl *, bool>::value,
              "tavNbrInStream");

/// The place of a virtual operation in its class's table.
template <class Operation>
std::size_t placeOf(Operation operation) {
    std::size_t words[2];
    static_assert(sizeof(operation) == sizeof(words), "a pointer to an operation is two words");
    std::memcpy(words, &operation, sizeof(words));
    return (words[0] - 1) / sizeof(void *);
}

} // namespace

TEST(NbrInterface, OperationsOfAValueFollowItsDestructor) {
    // The destructor takes two places.
    EXPECT_EQ(placeOf(&ValueBase::simple), 2u);
    EXPECT_EQ(placeOf(&ValueBase::dump), 3u);
}

TEST(NbrInterface, AdaptersOfTheBaseAreNotHidden) {
    tavNbrOutStream out(false);
    std::string plain("a");
    tavWstring wide(L"b");
    wchar_t one = L'c';
    out.io(plain, tavCodecMeta());
    out.io(wide, tavCodecMeta());
    out.io(one, tavCodecMeta());
    tavNbrInStream in(out.str());
    in.io(plain, tavCodecMeta());
    in.io(wide, tavCodecMeta());
    in.io(one, tavCodecMeta());
    EXPECT_EQ(plain, "a");
    EXPECT_EQ(tavWstring(L"a"), wide);
    EXPECT_EQ(L'a', one);
}
