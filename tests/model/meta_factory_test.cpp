#include "tav/vinta/vinta_pml_meta.h"

#include "support/log_capture.h"
#include "support/meta_model.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using tav::pml::MetaClass;
using tav::pml::MetaEnum;
using tav::pml::MetaFactory;
using tav::pml::MetaField;
using tav::pml::PmlInputStream;
using tav::pml::Unit;
using tav_test::loadTemplate;
namespace field_type = tav::pml::field_type;

namespace {

TEST(MetaFactory, StartsEmpty) {
    MetaFactory const factory;
    EXPECT_TRUE(factory.classes.empty() && factory.enums.empty() && factory.code2class.empty());
    EXPECT_EQ(factory.findClass("x"), nullptr);
    EXPECT_EQ(factory.findClass(static_cast<unsigned short>(1)), nullptr);
    EXPECT_EQ(factory.findEnum("x"), nullptr);
    EXPECT_EQ(factory.findClassName(1), "");
}

TEST(MetaFactory, LoadsTheExample) {
    MetaFactory const factory = loadTemplate(tav_test::helloTemplate);
    ASSERT_EQ(factory.classes.size(), 1u);
    EXPECT_TRUE(factory.enums.empty());
    MetaClass const & hello = factory.classes.at("im.Hello");
    EXPECT_EQ(hello.name, "Hello");
    EXPECT_EQ(hello.className, "im.Hello");
    EXPECT_EQ(hello.code, "1F01");
    EXPECT_EQ(hello.superName, "DataObject");
    EXPECT_EQ(field_type::object_, hello.kind);
    ASSERT_EQ(hello.fields.size(), 4u);
    field_type::values const kinds[] = {field_type::string_, field_type::int64_, field_type::list_,
                                        field_type::enum_};
    char const * const names[] = {"user", "seq", "tags", "mood"};
    for (unsigned i = 0; i < 4; ++i) {
        EXPECT_EQ(static_cast<short>(i + 1), hello.fields[i].idName.id);
        EXPECT_EQ(names[i], hello.fields[i].idName.name);
        EXPECT_EQ(kinds[i], hello.fields[i].classType.type);
    }
    EXPECT_EQ(field_type::string_, hello.fields[2].classType.elementType);
    EXPECT_EQ((std::set<int>{0, 1}), hello.fields[3].validValues);
    ASSERT_EQ(hello.enums.size(), 1u);
    EXPECT_EQ(hello.enums[0].name, "Mood");
    ASSERT_EQ(factory.code2class.size(), 1u);
    EXPECT_EQ(factory.code2class.at(0x1F01), "im.Hello");
}

TEST(MetaFactory, FindsClassesByNameAndByCode) {
    MetaFactory const factory = loadTemplate(tav_test::helloTemplate);
    MetaClass const * const hello = &factory.classes.at("im.Hello");
    unsigned short const code = 0x1F01;
    EXPECT_EQ(hello, factory.findClass("im.Hello"));
    EXPECT_EQ(hello, factory.findClass(code));
    EXPECT_EQ(factory.findClassName(code), "im.Hello");
    EXPECT_EQ(factory.findClass("Hello"), nullptr);
    EXPECT_EQ(factory.findClass(""), nullptr);
    EXPECT_EQ(factory.findClass(static_cast<unsigned short>(0x1F02)), nullptr);
    EXPECT_EQ(factory.findClassName(0x1F02), "");
    EXPECT_EQ(factory.findEnum("Mood"), nullptr);
    EXPECT_EQ(hello, factory.findClass(tav_istr("im.Hello, and more", 8u)));
    EXPECT_EQ(factory.findClass(tav_istr()), nullptr);
}

TEST(MetaFactory, LoadsWithTheDefaultsOfEveryKey) {
    tav_test::LogCapture log("clear(VERBOSE)");
    MetaFactory const factory =
        loadTemplate("types(int32(long)) rootObject:R(x:int32()) t:T([1]a:int32()u:union{U}(b:int8()))");
    EXPECT_EQ(factory.findClass("T")->superName, "DataObject");
    EXPECT_EQ(factory.findClass("T")->fields.at(0).classType.name, "int32");
    EXPECT_EQ(factory.findClass("T")->classes.at(0).superName, "UnionObject");
    EXPECT_FALSE(log.contains("not defined in template cfg"));
}

TEST(MetaFactory, FindsNoClassForACodeWhoseClassIsGone) {
    MetaFactory factory = loadTemplate(tav_test::helloTemplate);
    factory.classes.clear();
    EXPECT_EQ(factory.findClass(static_cast<unsigned short>(0x1F01)), nullptr);
    EXPECT_EQ(factory.findClassName(0x1F01), "im.Hello");
}

TEST(MetaFactory, LoadsAllUnitsOfATemplate) {
    MetaFactory const factory = loadTemplate("a:A(x:int32()) (*note*) b:enum{B}(one(1)) c:C(y:int32())");
    EXPECT_EQ(factory.classes.size(), 2u);
    EXPECT_EQ(factory.enums.size(), 1u);
    EXPECT_EQ(factory.findClass("C")->name, "c");
}

TEST(MetaFactory, KeepsEnumsApart) {
    MetaFactory const factory = loadTemplate("b:enum{B}(__code__(5)__default__(one)one(1)two(2))");
    EXPECT_TRUE(factory.classes.empty());
    MetaEnum const * const found = factory.findEnum("B");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->name, "B");
    EXPECT_EQ(found->values.child("two").value(), "2");
    EXPECT_EQ(found->values.name(), "b");
    EXPECT_EQ(factory.findClassName(5), "B");
    EXPECT_EQ(factory.findClass(static_cast<unsigned short>(5)), nullptr);
}

TEST(MetaFactory, NamesAnEnumByItsDirective) {
    MetaFactory const factory = loadTemplate("b:enum{B}(__class__(im.B)one(1))");
    ASSERT_NE(factory.findEnum("im.B"), nullptr);
    EXPECT_EQ(factory.findEnum("im.B")->name, "im.B");
}

TEST(MetaFactory, DropsAClassWithoutName) {
    MetaFactory const factory =
        loadTemplate("a(__code__(1)x:int32()) b:object(__code__(2)x:int32()) c:C(__code__(3))");
    EXPECT_EQ(factory.classes.size(), 1u);
    EXPECT_EQ(factory.code2class.size(), 1u);
    EXPECT_EQ(factory.findClassName(3), "C");
}

TEST(MetaFactory, DerivesANameFromTheTypeText) {
    MetaFactory const factory = loadTemplate("a:A(x:int32()) b:im.B(x:int32())");
    EXPECT_NE(factory.findClass("A"), nullptr);
    EXPECT_NE(factory.findClass("im$B"), nullptr);
}

TEST(MetaFactory, PassesGlobalOver) {
    MetaFactory const factory = loadTemplate("__global__:G(__class__(G)__code__(1)x:int32()) a:A(x:int32())");
    EXPECT_EQ(factory.classes.size(), 1u);
    EXPECT_TRUE(factory.code2class.empty());
}

TEST(MetaFactory, KeepsTheLaterOfTwoClasses) {
    MetaFactory const factory = loadTemplate("a:A(__code__(1)x:int32()) b:A(__code__(2)y:int32())");
    ASSERT_EQ(factory.classes.size(), 1u);
    EXPECT_EQ(factory.findClass("A")->name, "b");
    EXPECT_EQ(factory.findClass("A"), factory.findClass(static_cast<unsigned short>(1)));
    EXPECT_EQ(factory.findClass("A"), factory.findClass(static_cast<unsigned short>(2)));
}

TEST(MetaFactory, KeepsTheLaterOfTwoEnumsAndAClassOfThatNameBesides) {
    MetaFactory const factory = loadTemplate("a:enum{A}(one(1)) b:enum{A}(two(2)) c:A(x:int32())");
    ASSERT_EQ(factory.enums.size(), 1u);
    EXPECT_EQ(factory.findEnum("A")->values.name(), "b");
    EXPECT_EQ(factory.findClass("A")->name, "c");
}

TEST(MetaFactory, KeepsTheLaterClassOfACode) {
    MetaFactory const factory = loadTemplate("a:A(__code__(1)x:int32()) b:B(__code__(0x1)y:int32())");
    EXPECT_EQ(factory.findClassName(1), "B");
}

TEST(MetaFactory, ReadsCodesAsHexadecimal) {
    auto const code = [](char const * text) {
        MetaFactory const factory = loadTemplate("a:A(__code__(" + std::string(text) + ")x:int32())");
        return factory.code2class.size() == 1 ? static_cast<int>(factory.code2class.begin()->first) : -1;
    };
    EXPECT_EQ(code("0x1F01"), 0x1F01);
    EXPECT_EQ(code("1f01"), 0x1F01);
    EXPECT_EQ(code("1F01"), 0x1F01);
    EXPECT_EQ(code("0"), 0);
    EXPECT_EQ(code("0x"), 0);
    EXPECT_EQ(code("12345"), 0x2345);
    EXPECT_EQ(0x10 - 1, code("1g"));
    EXPECT_EQ(code("FFFE"), 0xFFFE);
    EXPECT_EQ(code("FFFF"), -1);
    EXPECT_EQ(code("z"), -1);
    EXPECT_EQ(code(""), -1);
}

TEST(MetaFactory, KeepsAClassWhoseCodeIsNone) {
    MetaFactory const factory = loadTemplate("a:A(__code__(FFFF)x:int32())");
    EXPECT_EQ(factory.findClass("A")->code, "FFFF");
}

TEST(MetaFactory, HasEmptyMapsForAnEmptyTemplate) {
    EXPECT_TRUE(loadTemplate("").classes.empty());
    PmlInputStream none;
    EXPECT_TRUE(MetaFactory(none).classes.empty());
}

TEST(MetaFactory, LetsTheFailuresOfTheTextThrough) {
    EXPECT_THROW(loadTemplate("a:A("), std::invalid_argument);
}

TEST(MetaFactory, OutlivesItsTemplate) {
    MetaFactory factory;
    {
        Unit unit;
        unit.decode(tav_istr("a:A(n:N(x:int32()))b:B(y:int32())"));
        PmlInputStream in(unit);
        factory = MetaFactory(in);
    }
    EXPECT_EQ(factory.findClass("A")->classes.at(0).unit.at(0).name(), "x");
    EXPECT_EQ(factory.findClass("B")->fields.at(0).idName.name, "y");
}

TEST(MetaFactory, CopiesAreIndependent) {
    MetaFactory const factory = loadTemplate(tav_test::helloTemplate);
    MetaFactory copy(factory);
    copy.classes.at("im.Hello").fields.clear();
    EXPECT_EQ(factory.findClass("im.Hello")->fields.size(), 4u);
}

TEST(MetaFactory, UnknownTypesAreClasses) {
    MetaFactory const factory = loadTemplate("a:A(x:Whatever())");
    EXPECT_EQ(field_type::ref_, factory.findClass("A")->fields.at(0).classType.type);
    EXPECT_EQ(factory.findClass("Whatever"), nullptr);
}

TEST(MetaFactory, IsReadByManyThreads) {
    MetaFactory const factory = loadTemplate(tav_test::helloTemplate);
    std::vector<std::thread> threads;
    std::atomic<unsigned> found{0};
    for (unsigned i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (unsigned round = 0; round < 500; ++round) {
                MetaClass const * const hello = factory.findClass(static_cast<unsigned short>(0x1F01));
                bool const all = hello != nullptr && hello == factory.findClass("im.Hello") &&
                                 hello->findField("mood") == hello->findField(4) &&
                                 hello->unit.child("[3]tags").type() == "list{string}" &&
                                 factory.findClassName(0x1F01) == "im.Hello";
                found += all ? 1u : 0u;
            }
        });
    }
    for (std::thread & thread : threads) {
        thread.join();
    }
    EXPECT_EQ(found.load(), 2000u);
}

} // namespace
