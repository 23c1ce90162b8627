#include "tav/vinta/vinta_pml_meta.h"

#include "support/log_capture.h"
#include "support/meta_model.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

using tav::pml::MetaClass;
using tav::pml::MetaFactory;
using tav::pml::MetaField;
using tav_test::joined;
using tav_test::loadTemplate;
namespace field_type = tav::pml::field_type;

namespace {

/// The only class of a template.
MetaClass classOf(std::string const & text) {
    MetaFactory const factory = loadTemplate(text);
    EXPECT_EQ(factory.classes.size(), 1u) << text;
    return factory.classes.empty() ? MetaClass() : factory.classes.begin()->second;
}

/// A class with these fields.
MetaClass withFields(std::string const & fields) {
    return classOf("top:Top(" + fields + ")");
}

MetaField const & onlyField(MetaClass const & c) {
    static MetaField const none;
    EXPECT_EQ(c.fields.size(), 1u);
    return c.fields.empty() ? none : c.fields.front();
}

TEST(MetaClass, StartsAsAStringWithoutAnything) {
    MetaClass const c;
    EXPECT_EQ(field_type::string_, c.kind);
    EXPECT_FALSE(c.isList);
    EXPECT_FALSE(c.isRef);
    EXPECT_EQ(c.className, "");
    EXPECT_TRUE(c.fields.empty() && c.classes.empty() && c.enums.empty() && c.imports.empty());
    EXPECT_TRUE(c.unit.empty());
}

TEST(MetaClass, KeepsACopyOfItsUnit) {
    MetaClass const c = withFields("[1]a:int32(5)");
    EXPECT_EQ(c.unit.name(), "top");
    EXPECT_EQ(c.unit.type(), "Top");
    ASSERT_EQ(c.unit.size(), 1u);
    EXPECT_EQ(c.unit.at(0).value(), "5");
}

TEST(MetaClass, TakesTheTagOffItsName) {
    MetaClass const c = classOf("[7]top:Top([1]a:int32())");
    EXPECT_EQ(c.name, "top");
    EXPECT_EQ(c.unit.name(), "[7]top");
}

TEST(MetaClass, IsNamedByItsDirective) {
    MetaClass const c = classOf("top:Top(__class__(im.Top)[1]a:int32())");
    EXPECT_EQ(c.className, "im.Top");
    EXPECT_EQ(c.typeText, "Top");
    EXPECT_EQ(field_type::object_, c.kind);
}

TEST(MetaClass, IsNamedByItsTypeTextElse) {
    MetaClass const c = classOf("top:im.sub.Top([1]a:int32())");
    EXPECT_EQ(c.className, "im$sub$Top");
    EXPECT_EQ(c.typeText, "im.sub.Top");
}

TEST(MetaClass, WithoutTypeTextTakesItFromItsName) {
    MetaClass const c = classOf("top:object(__class__(im$Top)[1]a:int32())");
    EXPECT_EQ(c.className, "im$Top");
    EXPECT_EQ(c.typeText, "im.Top");
}

TEST(MetaClass, IsOptionalWithItsNameIntact) {
    EXPECT_EQ(classOf("top:Top?([1]a:int32())").className, "Top");
}

TEST(MetaClass, TakesTheFirstOfEachDirective) {
    MetaClass const c = classOf("t:T(__class__(A)__class__(B)__code__(1)__code__(2)"
                                "__super__(C)__super__(D)a:int32())");
    EXPECT_EQ(c.className, "A");
    EXPECT_EQ(c.code, "1");
    EXPECT_EQ(c.superName, "C");
}

TEST(MetaClass, GathersAllImports) {
    MetaClass const c = classOf("t:T(__import__(im.A)__import__(B)a:int32()__import__(im.sub.C))");
    EXPECT_EQ(joined(c.imports), "B im/A im/sub/C ");
    EXPECT_EQ(joined(classOf("t:T(__import__()a:time())").imports), "");
}

TEST(MetaClass, PutsATypeAheadOfItsCode) {
    EXPECT_EQ(classOf("t:T(__code__:im.Codes(HELLO)a:int32())").code, "im.Codes$HELLO");
    EXPECT_EQ(classOf("t:T(__code__(HELLO)a:int32())").code, "HELLO");
}

TEST(MetaClass, HasTheRootAsBaseUnlessItNamesOne) {
    EXPECT_EQ(withFields("a:int32()").superName, "DataObject");
    EXPECT_EQ(withFields("__super__()a:int32()").superName, "DataObject");
    EXPECT_EQ(withFields("__super__(Base)a:int32()").superName, "Base");
    EXPECT_EQ(classOf("u:union{U}(a:int32())").superName, "UnionObject");
    EXPECT_EQ(classOf("m:map{string,M}(a:int32())").superName, "DataObject");
}

TEST(MetaClass, HasNoBaseIfThatIsNull) {
    EXPECT_EQ(withFields("__super__(null)a:int32()").superName, "");
    EXPECT_EQ(classOf("u:union{U}(__super__(null)a:int32())").superName, "");
}

TEST(MetaClass, OfASimpleKindHasNoBaseAndNoFields) {
    MetaClass const c = classOf("x:int32([1]a:int32())");
    EXPECT_EQ(c.className, "int32");
    EXPECT_EQ(field_type::int32_, c.kind);
    EXPECT_EQ(c.superName, "");
    EXPECT_TRUE(c.fields.empty());
}

TEST(MetaClass, WithoutTypeTextIsAString) {
    MetaClass const c = classOf("x(__class__(X)[1]a:int32())");
    EXPECT_EQ(field_type::string_, c.kind);
    EXPECT_EQ(c.typeText, "X");
    EXPECT_TRUE(c.fields.empty());
}

TEST(MetaClass, WithoutChildrenIsAReference) {
    MetaClass const c = classOf("x:Foo()");
    EXPECT_EQ(field_type::ref_, c.kind);
    EXPECT_TRUE(c.isRef);
    EXPECT_FALSE(c.isList);
    EXPECT_EQ(c.className, "Foo");
    EXPECT_EQ(c.superName, "DataObject");
}

TEST(MetaClass, WithADirectiveAloneIsNoReference) {
    MetaClass const c = classOf("x:Foo(__code__(1))");
    EXPECT_EQ(field_type::object_, c.kind);
    EXPECT_FALSE(c.isRef);
}

TEST(MetaClass, TellsListsAndReferencesByItsKind) {
    MetaClass const list = classOf("x:list{Foo}(a:int32())");
    EXPECT_TRUE(list.isList);
    EXPECT_FALSE(list.isRef);
    MetaClass const refs = classOf("x:list{ref{Foo}}(a:int32())");
    EXPECT_EQ(field_type::ref_list_, refs.kind);
    EXPECT_TRUE(refs.isList);
    EXPECT_TRUE(refs.isRef);
    MetaClass const ref = classOf("x:ref{Foo}(a:int32())");
    EXPECT_FALSE(ref.isList);
    EXPECT_TRUE(ref.isRef);
}

TEST(MetaClass, ReadsFieldsInOrderAndPassesDirectivesOver) {
    MetaClass const c = withFields("[2]b:int32()__other__(x)[1]a:string()__c:int32()__super__(S)[3]d()");
    ASSERT_EQ(c.fields.size(), 3u);
    EXPECT_EQ(c.fields[0].idName.name, "b");
    EXPECT_EQ(c.fields[1].idName.name, "a");
    EXPECT_EQ(c.fields[2].idName.name, "d");
    EXPECT_EQ(field_type::string_, c.fields[2].classType.type);
    EXPECT_TRUE(c.classes.empty());
}

TEST(MetaClass, PassesADirectiveWithChildrenOver) {
    MetaClass const c = withFields("__global__(a(1))a:int32()");
    EXPECT_EQ(c.fields.size(), 1u);
    EXPECT_TRUE(c.classes.empty());
}

TEST(MetaClass, FindsTheFirstFieldByNameAndByTag) {
    MetaClass const c = withFields("[1]a:int32()[2]b:int64()[2]a:string()[3]b:bool()");
    EXPECT_EQ(&c.fields[0], c.findField("a"));
    EXPECT_EQ(&c.fields[1], c.findField("b"));
    EXPECT_EQ(&c.fields[1], c.findField(2));
    EXPECT_EQ(&c.fields[3], c.findField(3));
    EXPECT_EQ(c.findField("c"), nullptr);
    EXPECT_EQ(c.findField(""), nullptr);
    EXPECT_EQ(c.findField(0), nullptr);
    EXPECT_EQ(c.findField(258), nullptr);
}

TEST(MetaClass, FindsFieldsThatChangedAfterwards) {
    MetaClass c = withFields("[1]a:int32()[2]b:int64()");
    EXPECT_EQ(&c.fields[1], c.findField("b"));
    c.fields[0].idName.name = "b";
    c.fields[0].idName.id = 2;
    EXPECT_EQ(&c.fields[0], c.findField("b"));
    EXPECT_EQ(&c.fields[0], c.findField(2));
    EXPECT_EQ(c.findField("a"), nullptr);
}

TEST(MetaClassEnumField, BringsANestedEnum) {
    MetaClass const c = withFields("[4]mood:enum{Mood}(__default__(good)good(0)bad(1))");
    ASSERT_EQ(c.enums.size(), 1u);
    EXPECT_EQ(c.enums[0].name, "Mood");
    EXPECT_EQ(c.enums[0].values.size(), 3u);
    EXPECT_EQ(c.enums[0].values.child("bad").value(), "1");
    EXPECT_TRUE(c.classes.empty());
    MetaField const & field = onlyField(c);
    EXPECT_EQ(field.idName.id, 4);
    EXPECT_EQ(field.idName.name, "mood");
    EXPECT_EQ(field_type::enum_, field.classType.type);
    EXPECT_EQ(field.classType.name, "Mood");
    EXPECT_FALSE(field.classType.optional);
    EXPECT_EQ(field.valueComment.value, "good");
    EXPECT_EQ((std::set<int>{0, 1}), field.validValues);
    MetaClass const twice = withFields("mood:enum{Mood}(__default__(a)__default__(b)__other__(9)a(0)b(1))");
    EXPECT_EQ(onlyField(twice).valueComment.value, "a");
    EXPECT_EQ((std::set<int>{0, 1}), onlyField(twice).validValues);
}

TEST(MetaClassEnumField, ReadsMembersAsIntegersAndElseAsMinusOne) {
    MetaField const field =
        onlyField(withFields("mood:enum{Mood}(a(0x10)b(-3)c(x)d()e(99999999999)f(010)g(1 1))"));
    EXPECT_EQ((std::set<int>{-3, -1, 8, 16}), field.validValues);
    EXPECT_EQ(field.valueComment.value, "");
}

TEST(MetaClassEnumField, IsNamedByItsDirectiveFirst) {
    MetaClass const c = withFields("mood:enum{Mood}?(__class__(im.Mood)a(0))");
    EXPECT_EQ(c.enums.at(0).name, "im.Mood");
    EXPECT_EQ(onlyField(c).classType.name, "im.Mood");
    EXPECT_TRUE(onlyField(c).classType.optional);
}

TEST(MetaClassEnumField, WithoutMembersIsAPlainField) {
    MetaClass const c = withFields("mood:enum{Mood}(1)");
    EXPECT_TRUE(c.enums.empty());
    EXPECT_EQ(field_type::enum_, onlyField(c).classType.type);
    EXPECT_EQ(onlyField(c).classType.name, "Mood");
    EXPECT_EQ(onlyField(c).valueComment.value, "1");
    EXPECT_TRUE(onlyField(c).validValues.empty());
}

TEST(MetaClassMapField, AddsItsFirstChildAsElement) {
    MetaClass const c = withFields("[1]m:map{string,Foo}(v:Foo([1]a:int32())w:Bar([1]b:int32()))");
    ASSERT_EQ(c.classes.size(), 1u);
    EXPECT_EQ(c.classes[0].className, "Foo");
    EXPECT_EQ(c.classes[0].name, "v");
    EXPECT_EQ(onlyField(c.classes[0]).idName.name, "a");
    EXPECT_EQ(c.classes[0].unit.name(), "v");
    MetaField const & field = onlyField(c);
    EXPECT_EQ(field.idName.id, 1);
    EXPECT_EQ(field_type::map_, field.classType.type);
    EXPECT_EQ(field.classType.name, "Foo");
    EXPECT_EQ(field_type::object_, field.classType.elementType);
    EXPECT_EQ(field.classType.keyName, "string");
    EXPECT_EQ(field_type::string_, field.classType.keyType);
}

TEST(MetaClassMapField, TakesAnElementWithoutAName) {
    MetaClass const c = withFields("m:map{string,Foo}(:Bar([1]a:int32()))");
    ASSERT_EQ(c.classes.size(), 1u);
    EXPECT_EQ(c.classes[0].className, "Bar");
    EXPECT_EQ(onlyField(c).classType.name, "Bar");
}

TEST(MetaClassMapField, MayHaveASimpleElement) {
    MetaClass const c = withFields("m:map{int64,Foo}?(v:int32())");
    EXPECT_EQ(c.classes.size(), 1u);
    MetaField const & field = onlyField(c);
    EXPECT_EQ(field.classType.name, "int32");
    EXPECT_EQ(field_type::int32_, field.classType.elementType);
    EXPECT_EQ(field_type::int64_, field.classType.keyType);
    EXPECT_TRUE(field.classType.optional);
}

TEST(MetaClassMapField, MayHaveAReferenceOrAnEnumAsElement) {
    MetaClass const refs = withFields("m:map{string,Foo}(v:Bar())");
    EXPECT_EQ(onlyField(refs).classType.name, "Bar");
    EXPECT_EQ(field_type::ref_, onlyField(refs).classType.elementType);
    EXPECT_EQ(refs.classes.size(), 1u);
    MetaClass const enums = withFields("m:map{string,Foo}(v:enum{Mood}(a(3)b(4)))");
    EXPECT_EQ(onlyField(enums).classType.name, "Mood");
    EXPECT_EQ(field_type::enum_, onlyField(enums).classType.elementType);
    EXPECT_EQ((std::set<int>{3, 4}), onlyField(enums).validValues);
    EXPECT_EQ(enums.classes.size(), 1u);
}

TEST(MetaClassMapField, KeepsItsTypeWithDirectivesAlone) {
    MetaClass const c = withFields("m:map{string,Foo}(__import__(x))");
    EXPECT_TRUE(c.classes.empty());
    EXPECT_EQ(onlyField(c).classType.name, "Foo");
    EXPECT_EQ(field_type::object_, onlyField(c).classType.elementType);
}

TEST(MetaClassListField, OfAnUnnamedChildTakesItsTypeText) {
    MetaClass const c = withFields("[1]a:list{Foo}((x))[2]b:list{Foo}(:int32())[3]c:list{Foo}(:Bar())"
                                   "[4]d:list{Foo}(:ref{Bar}())[5]e:list{ref{Foo}}(:Bar())"
                                   "[6]f:list{Foo}(:list{Bar}())");
    EXPECT_TRUE(c.classes.empty());
    ASSERT_EQ(c.fields.size(), 6u);
    auto const expect = [&](unsigned i, field_type::values kind, char const * name,
                            field_type::values element) {
        EXPECT_EQ(kind, c.fields[i].classType.type) << i;
        EXPECT_EQ(name, c.fields[i].classType.name) << i;
        EXPECT_EQ(element, c.fields[i].classType.elementType) << i;
    };
    expect(0, field_type::list_, "string", field_type::string_);
    expect(1, field_type::list_, "int32", field_type::int32_);
    expect(2, field_type::list_, "Bar", field_type::object_);
    expect(3, field_type::ref_list_, "Bar", field_type::unknown_);
    expect(4, field_type::ref_list_, "Bar", field_type::object_);
    expect(5, field_type::list_, "Bar", field_type::unknown_);
}

TEST(MetaClassListField, OfASimpleChildIsAListOfThatKind) {
    MetaClass const c = withFields("[1]a:list{Foo}(x:int64())[2]b:list{ref{Foo}}?(x())");
    EXPECT_TRUE(c.classes.empty());
    EXPECT_EQ(field_type::list_, c.fields[0].classType.type);
    EXPECT_EQ(field_type::int64_, c.fields[0].classType.elementType);
    EXPECT_EQ(c.fields[0].classType.name, "int64");
    EXPECT_EQ(field_type::list_, c.fields[1].classType.type);
    EXPECT_EQ(field_type::string_, c.fields[1].classType.elementType);
    EXPECT_EQ(c.fields[1].classType.name, "string");
    EXPECT_TRUE(c.fields[1].classType.optional);
}

TEST(MetaClassListField, OfAReferenceIsAListOfReferences) {
    MetaClass const c = withFields("[1]a:list{Foo}(x:Bar())");
    EXPECT_TRUE(c.classes.empty());
    EXPECT_EQ(field_type::ref_list_, onlyField(c).classType.type);
    EXPECT_EQ(onlyField(c).classType.name, "Bar");
}

TEST(MetaClassListField, OfAClassAddsThatClass) {
    MetaClass const c = withFields("[1]a:list{Foo}[3](x:Bar([1]i:int32())y:Baz([1]j:int32()))");
    ASSERT_EQ(c.classes.size(), 1u);
    EXPECT_EQ(c.classes[0].className, "Bar");
    EXPECT_EQ(onlyField(c.classes[0]).idName.name, "i");
    EXPECT_EQ(field_type::list_, onlyField(c).classType.type);
    EXPECT_EQ(onlyField(c).classType.name, "Bar");
    EXPECT_EQ(field_type::object_, onlyField(c).classType.elementType);
    ASSERT_EQ(onlyField(c).classType.dimensions.size(), 1u);
    EXPECT_EQ(onlyField(c).classType.dimensions[0], "3");
}

TEST(MetaClassListField, KeepsItsTypeWithDirectivesAlone) {
    MetaClass const c = withFields("[1]a:list{Foo}(__import__(x))");
    EXPECT_EQ(field_type::list_, onlyField(c).classType.type);
    EXPECT_EQ(onlyField(c).classType.name, "Foo");
    EXPECT_EQ(field_type::object_, onlyField(c).classType.elementType);
}

TEST(MetaClassListField, PassesDirectivesOverAheadOfItsElement) {
    MetaClass const c = withFields("[1]a:list{Foo}(__import__(x)y:int8())");
    EXPECT_EQ(field_type::int8_, onlyField(c).classType.elementType);
}

TEST(MetaClassObjectField, WithFieldsAddsItsClass) {
    MetaClass const c = withFields("[1]home:Address?[2]([1]city:string())");
    ASSERT_EQ(c.classes.size(), 1u);
    EXPECT_EQ(c.classes[0].className, "Address");
    EXPECT_EQ(c.classes[0].name, "home");
    EXPECT_EQ(onlyField(c.classes[0]).idName.name, "city");
    EXPECT_EQ(c.classes[0].unit.name(), "[1]home");
    MetaField const & field = onlyField(c);
    EXPECT_EQ(field.idName.id, 1);
    EXPECT_EQ(field.idName.name, "home");
    EXPECT_EQ(field_type::object_, field.classType.type);
    EXPECT_EQ(field.classType.name, "Address");
    EXPECT_FALSE(field.classType.isRef);
    EXPECT_TRUE(field.classType.optional);
    EXPECT_EQ(field.classType.dimensions.size(), 1u);
}

TEST(MetaClassObjectField, OfWhateverKindBecomesAnObjectOnceItHasFields) {
    for (char const * type : {"ref{Foo}", "union{Foo}", "optional{Foo}", "array{Foo}"}) {
        MetaClass const c = withFields(std::string("x:") + type + "(a:int32())");
        ASSERT_EQ(c.classes.size(), 1u) << type;
        EXPECT_EQ(c.classes[0].className, "Foo") << type;
        EXPECT_EQ(field_type::object_, onlyField(c).classType.type) << type;
        EXPECT_EQ(onlyField(c).classType.name, "Foo") << type;
    }
    EXPECT_TRUE(onlyField(withFields("x:optional{Foo}(a:int32())")).classType.optional);
}

TEST(MetaClassObjectField, WithNothingButANameIsAReference) {
    for (char const * text : {"x:Foo(__import__(im.Foo))", "x:Bar(__class__(Foo))", "x:ref{Foo}(__x(1))"}) {
        MetaClass const c = withFields(text);
        EXPECT_TRUE(c.classes.empty()) << text;
        EXPECT_EQ(field_type::ref_, onlyField(c).classType.type) << text;
        EXPECT_EQ(onlyField(c).classType.name, "Foo") << text;
        EXPECT_TRUE(onlyField(c).classType.isRef) << text;
    }
}

TEST(MetaClassObjectField, WithoutTypeTextIsAReferenceOfItsName) {
    MetaClass const c = withFields("[2]home([1]city:string())");
    EXPECT_TRUE(c.classes.empty());
    EXPECT_EQ(field_type::ref_, onlyField(c).classType.type);
    EXPECT_EQ(onlyField(c).classType.name, "home");
    EXPECT_EQ(onlyField(c).idName.id, 2);
}

TEST(MetaClassObjectField, OfASimpleKindWithChildrenIsAReferenceOfThatName) {
    MetaClass const c = withFields("[2]x:int32(a:int8())");
    EXPECT_TRUE(c.classes.empty());
    EXPECT_EQ(field_type::ref_, onlyField(c).classType.type);
    EXPECT_EQ(onlyField(c).classType.name, "int32");
}

TEST(MetaClassObjectField, WithABaseOrACodeOfItsOwnDeclaresAClass) {
    MetaClass const c = withFields("[2]home:Home(__super__(Address))");
    ASSERT_EQ(c.classes.size(), 1u);
    EXPECT_EQ(c.classes[0].superName, "Address");
    EXPECT_EQ(field_type::object_, onlyField(c).classType.type);
    EXPECT_EQ(withFields("home:Home(__code__(1))").classes.size(), 1u);
    EXPECT_EQ(withFields("home:Home(__super__(null))").classes.size(), 1u);
}

TEST(MetaClass, NestsClassesWithinClasses) {
    MetaClass const c = withFields("a:A(b:B(c:C(x:int32())m:enum{M}(one(1)))) d:D(y:int32())");
    ASSERT_EQ(c.classes.size(), 2u);
    EXPECT_EQ(c.classes[1].className, "D");
    MetaClass const & b = c.classes[0].classes.at(0);
    EXPECT_EQ(b.className, "B");
    EXPECT_EQ(b.classes.at(0).className, "C");
    EXPECT_EQ(b.enums.at(0).name, "M");
    ASSERT_EQ(b.fields.size(), 2u);
    EXPECT_EQ(b.fields[0].idName.name, "c");
    EXPECT_EQ(b.fields[1].idName.name, "m");
}

TEST(MetaClass, OfAListKindReadsItsOwnFields) {
    MetaClass const c = classOf("x:list{Foo}(a:Bar(i:int32())b:int32())");
    EXPECT_EQ(c.className, "Foo");
    EXPECT_EQ(c.fields.size(), 2u);
    EXPECT_EQ(c.classes.at(0).className, "Bar");
}

TEST(MetaClass, OfAListElementThatIsAListKeepsItsFields) {
    MetaClass const c = withFields("x:list{Foo}(y:list{Bar}(z:Baz(i:int32())))");
    ASSERT_EQ(c.classes.size(), 1u);
    EXPECT_EQ(c.classes[0].className, "Bar");
    EXPECT_EQ(c.classes[0].classes.at(0).className, "Baz");
    EXPECT_EQ(onlyField(c.classes[0]).idName.name, "z");
    EXPECT_EQ(onlyField(c).classType.name, "Bar");
}

TEST(MetaClass, CopiesWithAllThatIsWithin) {
    MetaClass const c = withFields("__code__(12)__import__(i)a:A(b:B(x:int32()))m:enum{M}(one(1))");
    MetaClass copy(c);
    EXPECT_EQ(c.className, copy.className);
    EXPECT_EQ(c.code, copy.code);
    EXPECT_EQ(c.imports, copy.imports);
    EXPECT_EQ(c.typeText, copy.typeText);
    EXPECT_EQ(c.superName, copy.superName);
    EXPECT_EQ(c.kind.value(), copy.kind.value());
    EXPECT_EQ(copy.classes.at(0).classes.at(0).className, "B");
    EXPECT_EQ(copy.classes[0].classes[0].fields.at(0).idName.name, "x");
    EXPECT_EQ(copy.enums.at(0).name, "M");
    copy.classes[0].classes[0].className = "X";
    EXPECT_EQ(c.classes[0].classes[0].className, "B");
    EXPECT_EQ(c.unit.at(0).value(), copy.unit.at(0).value());
}

TEST(MetaClass, MovesWithAllThatIsWithin) {
    MetaClass c = withFields("a:A(b:B(x:int32()))");
    MetaClass const * const nested = &c.classes[0];
    MetaClass moved(std::move(c));
    EXPECT_EQ(moved.className, "Top");
    EXPECT_EQ(nested, &moved.classes.at(0));
    MetaClass assigned;
    assigned = std::move(moved);
    EXPECT_EQ(nested, &assigned.classes.at(0));
    EXPECT_EQ(assigned.unit.name(), "top");
    static_assert(std::is_nothrow_move_constructible<MetaClass>::value, "vectors of classes move them");
}

TEST(MetaClass, TakesOneOfItsOwnClasses) {
    MetaClass c = withFields("a:A(b:B(x:int32()))");
    c = c.classes[0];
    EXPECT_EQ(c.className, "A");
    c = std::move(c.classes[0]);
    EXPECT_EQ(c.className, "B");
    EXPECT_EQ(onlyField(c).idName.name, "x");
    EXPECT_EQ(c.unit.name(), "b");
    MetaClass & same = c;
    c = same;
    EXPECT_EQ(c.className, "B");
    EXPECT_EQ(c.fields.size(), 1u);
}

TEST(MetaClass, TellsAMapWithoutCommaToTheLog) {
    tav_test::LogCapture log;
    MetaClass const c = withFields("[1]m:map{string}()");
    EXPECT_EQ(log.count("no ',' found for map type: string"), 1u);
    EXPECT_EQ(field_type::unknown_, onlyField(c).classType.keyType);
}

} // namespace
