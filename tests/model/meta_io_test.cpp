#include "tav/vinta/vinta_pml_meta.h"

#include "support/meta_model.h"

#include "tav/vinta/vinta_nbr_unit.h"
#include "tav/vinta/vinta_object.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

using tav::pml::MetaClass;
using tav::pml::MetaFactory;
using tav::pml::Unit;
using tav_test::loadTemplate;
using tav_test::unitOf;
using tav_test::written;

namespace {

MetaClass classOf(std::string const & text) {
    return loadTemplate(text).classes.begin()->second;
}

std::string const helloFields = "fields((\"[1]user:string()\")(\"[2]seq:int64()\")"
                                "(\"[3]tags:list{string}()\")(\"[4]mood:enum{Mood}(good)\"))";
std::string const helloClass = ":im.Hello(__code__(1F01)__super__(DataObject)"
                               "enums(:enum{Mood}(__default__(good)good(0)bad(1)))" +
                               helloFields + ")";

/// Calls in the order of their arrival, with one letter to a kind, and what each stream was for.
class CallStream : public tavNullStream {
public:
    using tavNullStream::io;

    explicit CallStream(std::string & calls) : calls_(calls) {}

    tavSharedPtr<tavCodecStream> child(int id, tav_istr name) override {
        calls_ += std::to_string(id) + "=" + std::string(name) + " ";
        return tavSharedPtr<tavCodecStream>(new CallStream(calls_));
    }
    tavSharedPtr<tavCodecStream> getOutputChild() override {
        calls_ += "- ";
        return tavSharedPtr<tavCodecStream>(new CallStream(calls_));
    }
    void enter(tav_istr className, tav_istr baseName) override {
        calls_ += "<" + std::string(className) + "," + std::string(baseName) + " ";
    }
    void leave() override { calls_ += "> "; }
    void makeArrayValue() override { calls_ += "[] "; }
    void io(tavString & v, tavCodecMeta const &) override { calls_ += "'" + std::string(v.data()) + "' "; }

private:
    std::string & calls_;
};

TEST(MetaIo, WritesTheExample) {
    MetaFactory factory = loadTemplate(tav_test::helloTemplate);
    EXPECT_EQ(helloClass, written(factory.classes.at("im.Hello")));
    EXPECT_EQ(":factory(code2class(7937(im.Hello))classes(im.Hello" + helloClass + ")enums())",
              written(factory));
}

TEST(MetaIo, WritesAnEmptyFactory) {
    MetaFactory factory;
    EXPECT_EQ(written(factory), ":factory(code2class()classes()enums())");
}

TEST(MetaIo, WritesEnumsByTheirNames) {
    MetaFactory factory = loadTemplate("b:enum{B}(one(1)two(2))");
    EXPECT_EQ(written(factory), ":factory(code2class()classes()enums(B:enum{B}(one(1)two(2))))");
}

TEST(MetaIo, WritesWhatIsDumpedAsPmlThatCanBeRead) {
    MetaFactory factory = loadTemplate(tav_test::helloTemplate);
    Unit const again = unitOf(written(factory));
    EXPECT_EQ(again.type(), "factory");
    Unit const & hello = again.child("classes").child("im.Hello");
    EXPECT_EQ(hello.type(), "im.Hello");
    EXPECT_EQ(hello.child("fields").at(1).value(), "[2]seq:int64()");
    EXPECT_EQ(again.child("code2class").child("7937").value(), "im.Hello");
}

TEST(MetaIo, LeavesOutWhatAClassDoesNotHave) {
    MetaClass none;
    none.className = "X";
    EXPECT_EQ(written(none), ":X()");
    MetaClass plain = classOf("t:T(__super__(null)x:int32())");
    EXPECT_EQ(written(plain), ":T(fields((\"x:int32()\")))");
}

TEST(MetaIo, WritesImportsAsFields) {
    MetaClass c = classOf("t:T(__super__(null)__import__(im.A))");
    EXPECT_EQ(written(c), ":T(__import__(im/A))");
    MetaClass two = classOf("t:T(__super__(null)__import__(a)__import__(b))");
    EXPECT_EQ(written(two), ":T(__import__(ab))");
}

TEST(MetaIo, WritesNestedClassesAheadOfEnumsAndFields) {
    MetaClass c = classOf("t:T(__super__(null)m:enum{M}(a(1))n:N(x:int32()))");
    EXPECT_EQ(written(c), ":T(classes(:N(__super__(DataObject)fields((\"x:int32()\"))))"
                          "enums(:enum{M}(a(1)))fields((\"m:enum{M}()\")(\"n:object{N}()\")))");
}

TEST(MetaIo, BracketsEveryClassAndList) {
    MetaClass c = classOf("t:T(__code__(1)__super__(B)__import__(i)n:N(__super__(null)k:K(x:int32())))");
    std::string calls;
    CallStream s(calls);
    c.io(s);
    EXPECT_EQ(calls, "<T,B 1=__code__ '1' 2=__super__ 'B' 3=__import__ 'i' 4=classes <, [] "
                     "- <N, 4=classes <, [] - <K,DataObject 2=__super__ 'DataObject' "
                     "6=fields <, [] - 'x:int32()' > > > "
                     "6=fields <, [] - 'k:object{K}()' > > > "
                     "6=fields <, [] - 'n:object{N}()' > > ");
    EXPECT_FALSE(s.isEmpty());
}

TEST(MetaIo, MarksAStreamAsFilledByNestedClassesAlone) {
    MetaClass c;
    tavNullStream none;
    c.io(none);
    EXPECT_TRUE(none.isEmpty());
    c.classes.emplace_back();
    tavNullStream some;
    c.io(some);
    EXPECT_FALSE(some.isEmpty());
}

TEST(MetaIo, BracketsAFactoryAndAnEnum) {
    MetaFactory factory = loadTemplate("b:enum{B}(__code__(2)one(1))");
    std::string calls;
    CallStream s(calls);
    factory.io(s);
    EXPECT_EQ(calls.find("<factory, 1=code2class <, [] - <, 1=key 2=value 'B' > > 2=classes <, [] > "
                         "3=enums <, [] - <, 1=key 'B' 2=value <enum{B}, 1=__code__ '2' 2=one '1' > "),
              0u)
        << calls;
    EXPECT_EQ(calls.substr(calls.size() - 6), "> > > ");
}

TEST(MetaIo, PassesOverStreamsThatGiveNoChildren) {
    MetaFactory factory = loadTemplate("t:T(n:N(x:int32())m:enum{M}(a(1)))");
    tavNullStream s;
    factory.io(s);
    factory.classes.at("T").io(s);
    EXPECT_FALSE(s.isEmpty());
}

/// A class written in the plainest way, by recursion, to compare with.
class PlainClass : public tavCodecInterface {
public:
    PlainClass() = default;
    explicit PlainClass(MetaClass const & c) : own(c), classes(c.classes.begin(), c.classes.end()) {}

    void io(tavCodecStream & s) override {
        s.enter(own.className, own.superName);
        if (!own.code.empty()) {
            ioField(s, 1, "__code__", own.code);
        }
        if (!own.superName.empty()) {
            ioField(s, 2, "__super__", own.superName);
        }
        for (tavString import : own.imports) {
            ioField(s, 3, "__import__", import);
        }
        if (!classes.empty()) {
            ioField(s, 4, "classes", classes);
        }
        if (!own.enums.empty()) {
            ioField(s, 5, "enums", own.enums);
        }
        if (!own.fields.empty()) {
            ioField(s, 6, "fields", own.fields);
        }
        s.leave();
    }

    MetaClass own;
    std::vector<PlainClass> classes;
};

template <class T>
std::string dumped(T & v, bool singleLine) {
    std::ostringstream text;
    tavDumper dumper(text, singleLine, 0, false);
    v.io(dumper);
    return text.str();
}

template <class T>
std::string nbrOf(T & v) {
    tavNbrOutStreamImpl impl;
    tavNbrOutStream out(&impl, false);
    v.io(out);
    return std::string(impl.str());
}

TEST(MetaIo, WritesNestedClassesAsAnyListInEveryEncoding) {
    MetaClass c =
        classOf("t:T(__code__(7)__import__(a)n:N(k:K(x:int32())l:L(y:time()e:enum{E}(a(1)))z:int8())"
                "o:O(w:bytes())m:map{string,V}(v:V(i:int8())))");
    PlainClass plain(c);
    EXPECT_EQ(written(plain), written(c));
    EXPECT_EQ(dumped(plain, true), dumped(c, true));
    EXPECT_EQ(dumped(plain, false), dumped(c, false));
    EXPECT_EQ(nbrOf(plain), nbrOf(c));
    EXPECT_NE(dumped(c, true).find("y:time()"), std::string::npos);
}

TEST(MetaIo, AnInputStreamChangesNothing) {
    MetaFactory factory = loadTemplate(tav_test::helloTemplate);
    std::string const before = written(factory);
    tavPmlInStream in(tav_istr(":factory(code2class(1(X))classes(X:X(__code__(5)))enums(E:enum{E}(a(1))))"));
    factory.io(in);
    factory.classes.at("im.Hello").io(in);
    EXPECT_EQ(before, written(factory));
}

TEST(MetaIo, WritingChangesNothing) {
    MetaFactory factory = loadTemplate(tav_test::helloTemplate);
    std::string const first = written(factory);
    EXPECT_EQ(first, written(factory));
}

} // namespace
